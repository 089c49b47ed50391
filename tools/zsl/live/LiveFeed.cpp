#include "live/LiveFeed.h"

#include <utility>

#include "replay/Schedule.h"

namespace zebcam::tool {
namespace {

/// Enough for the frames that are in flight across the seam of two passes.
constexpr size_t kEventsAhead = 64;

int64_t lengthOf(Recording const& recording) {
    return recording.frames.back().timestampNs - recording.frames.front().timestampNs;
}

}  // namespace

LiveFeed::LiveFeed(Recording const& recording, LiveOptions const& options, int64_t startNs,
                   FaultInjector* faults)
    : mRecording(recording),
      mOptions(options),
      mStartNs(startNs),
      mFaults(faults),
      mPassNs(lengthOf(recording) + recording.medianIntervalNs),
      mPassCount(recording.frames.back().frameNo - recording.frames.front().frameNo + 1) {
}

std::optional<LiveFeed::Event> LiveFeed::next() {
    while (mEvents.size() < kEventsAhead && (mPasses == 0 || mOptions.durationNs)) {
        loadPass();
    }
    if (mEvents.empty()) {
        return std::nullopt;
    }
    Event event = mEvents.top();
    mEvents.pop();
    if (mOptions.durationNs && event.timeNs > mStartNs + *mOptions.durationNs) {
        return std::nullopt;
    }
    return event;
}

void LiveFeed::loadPass() {
    int64_t const shiftNs = mStartNs - mRecording.frames.front().timestampNs + mPasses * mPassNs;
    SensorEvents const pass = sensorEvents(
        mRecording, mOptions.replay,
        {.number = mPasses, .shiftNs = shiftNs, .frameNoShift = mPasses * mPassCount}, mFaults);
    for (SensorEvent const& event : pass.events) {
        mEvents.push({event.timeNs, event.kind, pass.frames[event.frame]});
    }
    ++mPasses;
}

std::map<uint32_t, uint32_t> LiveFeed::sensorModesAt(int64_t pressNs) const {
    int64_t const intoPassNs = (pressNs - mStartNs) % mPassNs;
    return tool::sensorModesAt(mRecording, mRecording.frames.front().timestampNs + intoPassNs);
}

}  // namespace zebcam::tool
