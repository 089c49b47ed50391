#include "pipeline/Schedule.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <optional>

#include "base/Duration.h"
#include "base/InputError.h"

namespace zebcam::tool::pipeline {

namespace {

constexpr int64_t kFramesInFlight = 2;

void requireWithin(char const* option, int64_t timeNs, int64_t lengthNs) {
    if (timeNs < 0 || timeNs > lengthNs) {
        throw base::InputError(fmt::format(
            "{} {}: {} (expected 0s to {})", option, base::formatDuration(timeNs),
            timeNs < 0 ? "before the recording's first frame" : "after the recording's last frame",
            base::formatDuration(lengthNs)));
    }
}

int64_t lengthOf(recording::Recording const& recording) {
    return recording.frames.back().timestampNs - recording.frames.front().timestampNs;
}

bool tellsMode(recording::SensorFrame const& frame) {
    return frame.sensorId && frame.sensorMode;
}

}  // namespace

std::vector<FrameTimes> frameTimes(recording::Recording const& recording,
                                   ReplayOptions const& options) {
    std::vector<FrameTimes> times;
    times.reserve(recording.frames.size());
    int64_t const startNs = recording.frames.front().timestampNs;
    for (recording::SensorFrame const& frame : recording.frames) {
        // The clock starts with the first frame; by then some frames are in flight already.
        int64_t const announceNs = frame.timestampNs - kFramesInFlight * frame.durationNs;
        int64_t const delayNs = options.deliveryDelayNs.value_or(frame.durationNs);
        times.push_back({std::max(announceNs, startNs),
                         frame.timestampNs + frame.exposureNs + frame.readoutNs + delayNs});
    }
    return times;
}

std::vector<int64_t> pressTimes(recording::Recording const& recording,
                                ReplayOptions const& options) {
    int64_t const length = lengthOf(recording);
    for (int64_t const time : options.flushesNs) {
        requireWithin("--flush-at", time, length);
    }
    for (int64_t const time : options.dumpsNs) {
        requireWithin("--dump-at", time, length);
    }
    for (FaultRule const& rule : options.faults.rules) {
        requireWithin("--fault", rule.atNs.value_or(0), length);
    }
    std::vector<int64_t> presses = options.pressesNs;
    for (int64_t const time : presses) {
        requireWithin("--press", time, length);
    }
    if (presses.empty()) {
        // In the middle of as many equal parts.
        int64_t const half = length / static_cast<int64_t>(2 * options.captures);
        for (size_t i = 0; i < options.captures; ++i) {
            presses.push_back(half * static_cast<int64_t>(2 * i + 1));
        }
    }
    std::stable_sort(presses.begin(), presses.end());
    return presses;
}

std::map<uint32_t, uint32_t> sensorModesAt(recording::Recording const& recording, int64_t pressNs) {
    auto const& frames = recording.frames;
    auto const begun = std::upper_bound(
        frames.begin(), frames.end(), pressNs,
        [](int64_t time, recording::SensorFrame const& frame) { return time < frame.timestampNs; });
    recording::SensorFrame const* decides = nullptr;
    auto const newest = std::find_if(std::make_reverse_iterator(begun), frames.rend(), tellsMode);
    if (newest != frames.rend()) {
        decides = &*newest;
    } else if (auto const next = std::find_if(begun, frames.end(), tellsMode);
               next != frames.end()) {
        decides = &*next;
    }
    if (decides == nullptr) {
        return {};
    }
    return {
        {static_cast<uint32_t>(*decides->sensorId), static_cast<uint32_t>(*decides->sensorMode)}};
}

namespace {

/// No sensor mode of the simulated sensor, no state of Android's documentation.
constexpr int32_t kUnknownMode = 0x7fff'ffff;
constexpr uint8_t kUnknownState = 200;
constexpr int32_t kNegativeStability = -1;

void dropStates(recording::SensorFrame& frame) {
    frame.afMode.reset();
    frame.afState.reset();
    frame.lensState.reset();
    frame.aeStable.reset();
    frame.frameSync.reset();
    frame.sensorId.reset();
    frame.sensorMode.reset();
}

void makeAbsurd(recording::SensorFrame& frame, Absurdity absurdity) {
    switch (absurdity) {
        case Absurdity::FocusStates:
            frame.afState = kUnknownState;
            frame.lensState = kUnknownState;
            break;
        case Absurdity::ExposureStability:
            frame.aeStable = kNegativeStability;
            break;
        case Absurdity::FrameSync:
            frame.frameSync = std::numeric_limits<int64_t>::max();
            break;
        case Absurdity::SensorMode:
            frame.sensorMode = kUnknownMode;
            break;
    }
}

ReportedFrame report(recording::SensorFrame frame, FrameFaults const& faults) {
    frame.timestampNs -= faults.clockBehindNs;
    frame.hasError = frame.hasError || faults.imageError;
    if (faults.missingMetadata) {
        dropStates(frame);
    }
    if (faults.absurdity) {
        makeAbsurd(frame, *faults.absurdity);
    }
    return {frame, faults};
}

/// Collects the events of one pass.
class PassBuilder {
public:
    PassBuilder(recording::Recording const& recording, ReplayOptions const& options,
                SensorPass const& pass, FaultInjector* injector)
        : mRecording(recording),
          mTimes(frameTimes(recording, options)),
          mPass(pass),
          mInjector(injector) {}

    SensorEvents build() && {
        mMade.frames.reserve(mTimes.size());
        mMade.events.reserve(2 * mTimes.size());
        for (size_t i = 0; i < mTimes.size(); ++i) {
            add(i);
        }
        std::sort(mMade.events.begin(), mMade.events.end());
        return std::move(mMade);
    }

private:
    void add(size_t i) {
        recording::SensorFrame frame = mRecording.frames[i];
        frame.timestampNs += mPass.shiftNs;
        frame.frameNo += mPass.frameNoShift;
        FrameFaults const faults =
            mInjector != nullptr
                ? mInjector->ofFrame(mPass.number * mTimes.size() + i, frame.timestampNs)
                : FrameFaults{};
        mMade.frames.push_back(report(frame, faults));
        addEvent(mTimes[i].announceNs, SensorEventKind::Announce, i);
        if (faults.lost) {
            return;
        }
        int64_t const arrivalNs =
            std::max(mTimes[i].arrivalNs,
                     faults.reorder ? afterSuccessor(i) : mTimes[i].arrivalNs) +
            faults.lateNs;
        addEvent(arrivalNs, SensorEventKind::Arrival, i);
        if (faults.duplicate) {
            addEvent(arrivalNs + mRecording.medianIntervalNs, SensorEventKind::Arrival, i);
        }
    }

    /// `timeNs`: of the recording.
    void addEvent(int64_t timeNs, SensorEventKind kind, size_t i) {
        mMade.events.push_back({timeNs + mPass.shiftNs, kind, i});
    }

    /// The last frame waits for a successor that the recording does not have.
    int64_t afterSuccessor(size_t i) const {
        int64_t const successorNs = i + 1 < mTimes.size()
                                        ? mTimes[i + 1].arrivalNs
                                        : mTimes[i].arrivalNs + mRecording.medianIntervalNs;
        return successorNs + mRecording.medianIntervalNs / 4;
    }

    recording::Recording const& mRecording;
    std::vector<FrameTimes> const mTimes;
    SensorPass const mPass;
    FaultInjector* const mInjector;
    SensorEvents mMade;
};

}  // namespace

SensorEvents sensorEvents(recording::Recording const& recording, ReplayOptions const& options,
                          SensorPass const& pass, FaultInjector* injector) {
    return PassBuilder(recording, options, pass, injector).build();
}

}  // namespace zebcam::tool::pipeline
