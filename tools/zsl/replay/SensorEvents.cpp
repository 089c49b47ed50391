#include "replay/SensorEvents.h"

#include <algorithm>
#include <limits>

#include "replay/Schedule.h"

namespace zebcam::tool {
namespace {

/// No sensor mode of the simulated sensor, no state of Android's documentation.
constexpr int32_t kUnknownMode = 0x7fff'ffff;
constexpr uint8_t kUnknownState = 200;
constexpr int32_t kNegativeStability = -1;

void dropStates(SensorFrame& frame) {
    frame.afMode.reset();
    frame.afState.reset();
    frame.lensState.reset();
    frame.aeStable.reset();
    frame.frameSync.reset();
    frame.sensorId.reset();
    frame.sensorMode.reset();
}

void makeAbsurd(SensorFrame& frame, Absurdity absurdity) {
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

ReportedFrame report(SensorFrame frame, FrameFaults const& faults) {
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
    PassBuilder(Recording const& recording, ReplayOptions const& options, SensorPass const& pass,
                FaultInjector* injector)
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
        SensorFrame frame = mRecording.frames[i];
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

    Recording const& mRecording;
    std::vector<FrameTimes> const mTimes;
    SensorPass const mPass;
    FaultInjector* const mInjector;
    SensorEvents mMade;
};

}  // namespace

SensorEvents sensorEvents(Recording const& recording, ReplayOptions const& options,
                          SensorPass const& pass, FaultInjector* injector) {
    return PassBuilder(recording, options, pass, injector).build();
}

}  // namespace zebcam::tool
