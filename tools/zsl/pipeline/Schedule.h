#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <tuple>
#include <vector>

#include "pipeline/FaultInjector.h"
#include "pipeline/ReplayOptions.h"
#include "recording/Recording.h"

namespace zebcam::tool::pipeline {

/// When a sensor frame moves on, boot time.
struct FrameTimes {
    int64_t announceNs = 0;  ///< it is in flight from here
    int64_t arrivalNs = 0;   ///< it is in the history from here
};

/// The times of every frame.
std::vector<FrameTimes> frameTimes(recording::Recording const& recording,
                                   ReplayOptions const& options);

/// The presses in ascending time, from the first frame. Throws InputError when one of them, a
/// flush, a dump or a fault lies outside the recording.
std::vector<int64_t> pressTimes(recording::Recording const& recording,
                                ReplayOptions const& options);

/// From one run through a recording to the next, where it is repeated.
int64_t passLengthNs(recording::Recording const& recording);

/// What a capture requires that is pressed `pressNs` after the first frame of a recording, which
/// may be repeated: the mode of the sensor at that moment, by sensor id. Of the frames whose
/// exposure has begun in that pass the newest that tells both decides, before those the oldest;
/// empty when no frame does. A recording without these columns is one of sensor 0 in mode 0.
std::map<uint32_t, uint32_t> sensorModesAt(recording::Recording const& recording, int64_t pressNs);

/// A sensor frame as the pipeline gets to know it.
struct ReportedFrame {
    recording::SensorFrame frame;  ///< with what is assumed of it, and the faults in it
    FrameFaults faults;            ///< what has struck it
};

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

/// What the sensor does in one pass.
struct SensorEvents {
    /// Of the recording, in its order, as the sensor tells them.
    std::vector<ReportedFrame> frames;
    std::vector<SensorEvent> events;  ///< ascending
};

/// The events of one run through a recording, with the faults that `injector` (null: none) has for
/// its frames. Of columns that the recording lacks the frames report what lets the processor
/// decide: focus off and at rest, sensor 0 in mode 0. The first frame of the first pass is exposed
/// at boot time `startNs`; each pass goes on in time and frame numbers where the one before ended,
/// and its last events may lie after the next one's first. `options` tell the delivery delay.
SensorEvents sensorEvents(recording::Recording const& recording, ReplayOptions const& options,
                          FaultInjector* injector, int64_t startNs, uint32_t pass = 0);

}  // namespace zebcam::tool::pipeline
