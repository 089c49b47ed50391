#include "pipeline/Schedule.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>

#include "base/InputError.h"
#include "base/Text.h"
#include "recording/FrameStates.h"

namespace zebcam::tool::pipeline {

namespace {

/// How many frames before its exposure a frame is requested of the sensor.
constexpr int64_t kFramesInFlight = 2;

constexpr char kBefore[] = "before the recording's first frame";
constexpr char kAfter[] = "after the recording's last frame";

void requireWithin(char const* option, int64_t timeNs, int64_t lengthNs) {
    if (timeNs < 0 || timeNs > lengthNs) {
        throw base::InputError(
            fmt::format("{} {}: {} (expected 0s to {})", option, base::formatDuration(timeNs),
                        timeNs < 0 ? kBefore : kAfter, base::formatDuration(lengthNs)));
    }
}

void requireBootTimeWithin(char const* option, int64_t timeNs, int64_t firstNs, int64_t lastNs) {
    if (timeNs < firstNs || timeNs > lastNs) {
        // In ns, as recordings and logs have them.
        throw base::InputError(fmt::format("{} @{}: {} (expected @{} to @{})", option, timeNs,
                                           timeNs < firstNs ? kBefore : kAfter, firstNs, lastNs));
    }
}

int64_t lengthOf(recording::Recording const& recording) {
    return recording.frames.back().timestampNs - recording.frames.front().timestampNs;
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
    int64_t const startNs = recording.frames.front().timestampNs;
    for (int64_t const time : options.pressBootTimesNs) {
        requireBootTimeWithin("--press", time, startNs, startNs + length);
        presses.push_back(time - startNs);
    }
    if (presses.empty()) {
        // In the middle of as many equal parts, so that each has frames before and after it.
        auto const halves = static_cast<int64_t>(2 * options.captures);
        for (int64_t i = 1; i < halves; i += 2) {
            // To the ns: a rounded half would drift off its part with thousands of captures.
            presses.push_back(length / halves * i + length % halves * i / halves);
        }
    }
    std::stable_sort(presses.begin(), presses.end());
    return presses;
}

int64_t passLengthNs(recording::Recording const& recording) {
    return lengthOf(recording) + recording.medianIntervalNs;
}

std::map<uint32_t, uint32_t> sensorModesAt(recording::Recording const& recording, int64_t pressNs) {
    auto const& frames = recording.frames;
    auto const begun = std::upper_bound(
        frames.begin(), frames.end(),
        frames.front().timestampNs + pressNs % passLengthNs(recording),
        [](int64_t time, recording::SensorFrame const& frame) { return time < frame.timestampNs; });
    using recording::Column;
    auto const tellsMode = [&recording](recording::SensorFrame const& frame) {
        return (frame.sensorId || recording.lacks(Column::SensorId)) &&
               (frame.sensorMode || recording.lacks(Column::SensorMode));
    };
    // A capture is asked for in the mode that the preview has just now. A frame without both
    // values says nothing of it; before the first one that does, the sensor is taken to have been
    // in that one's.
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
    return {{static_cast<uint32_t>(decides->sensorId.value_or(0)),
             static_cast<uint32_t>(decides->sensorMode.value_or(0))}};
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

/// The frame as it is told with what has struck it. What is missing is dropped first, so that an
/// absurd state shows where both strike.
ReportedFrame report(recording::SensorFrame frame, FrameFaults const& faults) {
    frame.timestampNs -= faults.clockBehindNs;
    frame.hasError = frame.hasError || faults.has(FaultKind::ImageError);
    if (faults.has(FaultKind::MissingMetadata)) {
        dropStates(frame);
    }
    if (faults.absurdity) {
        makeAbsurd(frame, *faults.absurdity);
    }
    return {frame, faults};
}

/// When frame `i` reaches the history if it is not lost, in the recording's time.
int64_t arrivalOf(std::vector<FrameTimes> const& times, size_t i, FrameFaults const& faults,
                  int64_t intervalNs) {
    int64_t arrivalNs = times[i].arrivalNs;
    if (faults.has(FaultKind::Reorder)) {
        // The last frame waits for a successor that the recording does not have.
        int64_t const successorNs =
            i + 1 < times.size() ? times[i + 1].arrivalNs : arrivalNs + intervalNs;
        arrivalNs = std::max(arrivalNs, successorNs + intervalNs / 4);
    }
    return arrivalNs + faults.lateNs;
}

}  // namespace

SensorEvents sensorEvents(recording::Recording const& recording, ReplayOptions const& options,
                          FaultInjector* injector, int64_t startNs, uint32_t pass) {
    std::vector<FrameTimes> const times = frameTimes(recording, options);
    std::vector<recording::SensorFrame> const& frames = recording.frames;
    int64_t const intervalNs = recording.medianIntervalNs;
    int64_t const shiftNs = startNs - frames.front().timestampNs + pass * passLengthNs(recording);
    uint32_t const numbers = frames.back().frameNo - frames.front().frameNo + 1;
    SensorEvents made;
    made.frames.reserve(times.size());
    made.events.reserve(2 * times.size());
    for (size_t i = 0; i < times.size(); ++i) {
        recording::SensorFrame frame = recording::withAssumed(frames[i], recording);
        frame.timestampNs += shiftNs;
        frame.frameNo += pass * numbers;
        // Counted on from pass to pass, so that each meets faults of its own.
        FrameFaults const faults =
            injector != nullptr
                ? injector->ofFrame(uint64_t{pass} * times.size() + i, frame.timestampNs)
                : FrameFaults{};
        made.frames.push_back(report(frame, faults));
        made.events.push_back({times[i].announceNs + shiftNs, SensorEventKind::Announce, i});
        if (faults.has(FaultKind::Lost)) {
            continue;
        }
        int64_t const arrivalNs = arrivalOf(times, i, faults, intervalNs) + shiftNs;
        made.events.push_back({arrivalNs, SensorEventKind::Arrival, i});
        if (faults.has(FaultKind::Duplicate)) {
            made.events.push_back({arrivalNs + intervalNs, SensorEventKind::Arrival, i});
        }
    }
    // Frames overlap: some arrive after the next ones were announced.
    std::sort(made.events.begin(), made.events.end());
    return made;
}

}  // namespace zebcam::tool::pipeline
