#include "run/FrameSource.h"

namespace zebcam::tool::run {

std::optional<int64_t> RecordedFrames::lengthNs() const {
    return mRecording.frames.back().timestampNs - mRecording.frames.front().timestampNs;
}

void RecordedFrames::start(int64_t startNs, pipeline::FaultInjector* faults) {
    mStartNs = startNs;
    mFaults = faults;
}

std::optional<FrameSource::Event> RecordedFrames::next(std::stop_token const&) {
    // The first events of a pass may come before the last ones of the pass before it.
    constexpr size_t kEventsAhead = 64;
    while (mEvents.size() < kEventsAhead && (mPasses == 0 || mIsRepeated)) {
        loadPass();
    }
    if (mEvents.empty()) {
        return std::nullopt;
    }
    Event event = mEvents.top();
    mEvents.pop();
    return event;
}

void RecordedFrames::loadPass() {
    pipeline::SensorEvents const pass =
        pipeline::sensorEvents(mRecording, mOptions, mFaults, mStartNs, mPasses++);
    for (pipeline::SensorEvent const& event : pass.events) {
        mEvents.push({event.timeNs, event.kind, pass.frames[event.frame], nullptr});
    }
}

}  // namespace zebcam::tool::run
