#pragma once

#include <host/ImageStreamBuffer.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <queue>
#include <stop_token>
#include <string>
#include <tuple>

#include "pipeline/FaultInjector.h"
#include "pipeline/ReplayOptions.h"
#include "pipeline/Schedule.h"
#include "recording/Recording.h"

namespace zebcam::tool::run {

/// Where the sensor frames of a live run come from. All but sensorModesAt() is called by one thread
/// at a time.
class FrameSource {
public:
    /// What the sensor does next.
    struct Event {
        int64_t timeNs = 0;  ///< boot time at which it is due
        pipeline::SensorEventKind kind = pipeline::SensorEventKind::Announce;
        pipeline::ReportedFrame frame;
        std::shared_ptr<host::ImageContent const> content{};  ///< of one that arrives; may be null

        /// For a queue whose top is what comes next.
        bool operator<(Event const& other) const {
            return std::tie(timeNs, kind) > std::tie(other.timeNs, other.kind);
        }
    };

    virtual ~FrameSource() = default;

    /// For people; empty where the frames are made up.
    virtual std::string name() const = 0;
    /// From one frame to the next, as a rule.
    virtual int64_t intervalNs() const = 0;
    /// From the first frame to the last; none: nobody knows.
    virtual std::optional<int64_t> lengthNs() const = 0;

    /// To be called once, before what follows: times count from boot time `startNs` on, and what
    /// `faults` (null: none) has for its frames strikes them. Borrowed while events are asked for.
    virtual void start(int64_t startNs, pipeline::FaultInjector* faults) = 0;
    /// The next event by time. Waits for one that is not known yet, until `stop`. None: there is no
    /// more.
    virtual std::optional<Event> next(std::stop_token const& stop) = 0;
    /// What a capture requires that is pressed `pressNs` after the start: see
    /// pipeline::sensorModesAt(). Thread-safe.
    virtual std::map<uint32_t, uint32_t> sensorModesAt(int64_t pressNs) const = 0;
};

/// A recording as a sensor that delivers it, once or over and over.
class RecordedFrames final : public FrameSource {
public:
    /// Recording and options are borrowed for the life of the source.
    RecordedFrames(recording::Recording const& recording, pipeline::ReplayOptions const& options,
                   bool isRepeated)
        : mRecording(recording), mOptions(options), mIsRepeated(isRepeated) {}

    std::string name() const override { return mRecording.path; }
    int64_t intervalNs() const override { return mRecording.medianIntervalNs; }
    std::optional<int64_t> lengthNs() const override;
    void start(int64_t startNs, pipeline::FaultInjector* faults) override;
    std::optional<Event> next(std::stop_token const& stop) override;
    std::map<uint32_t, uint32_t> sensorModesAt(int64_t pressNs) const override {
        return pipeline::sensorModesAt(mRecording, pressNs);
    }

private:
    void loadPass();

    recording::Recording const& mRecording;
    pipeline::ReplayOptions const& mOptions;
    bool const mIsRepeated;
    int64_t mStartNs = 0;
    pipeline::FaultInjector* mFaults = nullptr;
    std::priority_queue<Event> mEvents;
    uint32_t mPasses = 0;  ///< loaded so far
};

}  // namespace zebcam::tool::run
