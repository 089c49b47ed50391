#pragma once

#include <cstddef>
#include <cstdint>
#include <tuple>
#include <vector>

#include "faults/FaultInjector.h"
#include "recording/Recording.h"
#include "replay/ReplayOptions.h"
#include "sim/ReportedFrame.h"

namespace zebcam::tool {

/// In the order in which they happen at one instant.
enum class SensorEventKind : uint8_t {
    Announce,  ///< the sensor starts on a frame
    Arrival,   ///< a frame reaches the history
};

struct SensorEvent {
    int64_t timeNs = 0;  ///< boot time
    SensorEventKind kind = SensorEventKind::Announce;
    size_t frame = 0;  ///< position in SensorEvents::frames

    bool operator<(SensorEvent const& other) const {
        return std::tie(timeNs, kind, frame) < std::tie(other.timeNs, other.kind, other.frame);
    }
};

/// One run through a recording. A live run that repeats it moves each pass on.
struct SensorPass {
    uint64_t number = 0;        ///< how many passes came before
    int64_t shiftNs = 0;        ///< from the recording's times to boot time
    uint32_t frameNoShift = 0;  ///< from the recording's frame numbers to the pipeline's
};

/// What the sensor does in one pass.
struct SensorEvents {
    /// Of the recording, in its order, as the sensor tells them.
    std::vector<ReportedFrame> frames;
    std::vector<SensorEvent> events;  ///< ascending
};

/// The events of one pass, with the faults that `injector` (null: none) has for its frames. Events
/// may lie after the next pass's first ones. `options` tell the delivery delay.
SensorEvents sensorEvents(Recording const& recording, ReplayOptions const& options,
                          SensorPass const& pass, FaultInjector* injector);

}  // namespace zebcam::tool
