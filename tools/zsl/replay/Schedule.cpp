#include "replay/Schedule.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>

#include "sim/InputError.h"
#include "text/Duration.h"

namespace zebcam::tool {
namespace {

constexpr int64_t kFramesInFlight = 2;

void requireWithin(char const* option, int64_t timeNs, int64_t lengthNs) {
    if (timeNs < 0 || timeNs > lengthNs) {
        throw InputError(fmt::format(
            "{} {}: {} (expected 0s to {})", option, formatDuration(timeNs),
            timeNs < 0 ? "before the recording's first frame" : "after the recording's last frame",
            formatDuration(lengthNs)));
    }
}

int64_t lengthOf(Recording const& recording) {
    return recording.frames.back().timestampNs - recording.frames.front().timestampNs;
}

bool tellsMode(SensorFrame const& frame) {
    return frame.sensorId && frame.sensorMode;
}

}  // namespace

std::vector<FrameTimes> frameTimes(Recording const& recording, ReplayOptions const& options) {
    std::vector<FrameTimes> times;
    times.reserve(recording.frames.size());
    int64_t const startNs = recording.frames.front().timestampNs;
    for (SensorFrame const& frame : recording.frames) {
        // The clock starts with the first frame; by then some frames are in flight already.
        int64_t const announceNs = frame.timestampNs - kFramesInFlight * frame.durationNs;
        int64_t const delayNs = options.deliveryDelayNs.value_or(frame.durationNs);
        times.push_back({std::max(announceNs, startNs),
                         frame.timestampNs + frame.exposureNs + frame.readoutNs + delayNs});
    }
    return times;
}

std::vector<int64_t> pressTimes(Recording const& recording, ReplayOptions const& options) {
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

std::map<uint32_t, uint32_t> sensorModesAt(Recording const& recording, int64_t pressNs) {
    auto const& frames = recording.frames;
    auto const begun = std::upper_bound(
        frames.begin(), frames.end(), pressNs,
        [](int64_t time, SensorFrame const& frame) { return time < frame.timestampNs; });
    SensorFrame const* decides = nullptr;
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

}  // namespace zebcam::tool
