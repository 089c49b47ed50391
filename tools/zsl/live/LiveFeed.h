#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <queue>
#include <tuple>

#include "live/LiveOptions.h"
#include "recording/Recording.h"
#include "replay/SensorEvents.h"

namespace zebcam::tool {

/// A recording as a sensor that delivers it from a given moment on, over and over: each pass goes
/// on in frame numbers and time where the one before ended.
class LiveFeed {
public:
    /// What the sensor does next.
    struct Event {
        int64_t timeNs = 0;  ///< boot time
        SensorEventKind kind = SensorEventKind::Announce;
        ReportedFrame frame;

        /// For a queue whose top is what comes next.
        bool operator<(Event const& other) const {
            return std::tie(timeNs, kind) > std::tie(other.timeNs, other.kind);
        }
    };

    /// All but `startNs` is borrowed for the life of the feed; `faults` may be null. The first
    /// frame's exposure begins at boot time `startNs`.
    LiveFeed(Recording const& recording, LiveOptions const& options, int64_t startNs,
             FaultInjector* faults);

    /// None at the end of the run.
    std::optional<Event> next();

    /// What a capture pressed at boot time `pressNs` requires, by sensor id.
    std::map<uint32_t, uint32_t> sensorModesAt(int64_t pressNs) const;

private:
    void loadPass();

    Recording const& mRecording;
    LiveOptions const& mOptions;
    int64_t const mStartNs;
    FaultInjector* const mFaults;
    int64_t const mPassNs;      ///< from a pass to the next
    uint32_t const mPassCount;  ///< likewise, in frame numbers
    std::priority_queue<Event> mEvents;
    uint32_t mPasses = 0;  ///< loaded so far
};

}  // namespace zebcam::tool
