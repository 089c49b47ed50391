#include "recording/RecordingGenerator.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "recording/FrameGenerators.h"
#include "recording/RecordingFacts.h"

namespace zebcam::tool {
namespace {

template <typename Value>
void requireRange(std::string_view name, Value value, Value min, Value max) {
    if (!(value >= min && value <= max)) {  // also refuses what is not a number
        throw std::invalid_argument(
            fmt::format("{}: expected {} to {}, found {}", name, min, max, value));
    }
}

void requireRates(GeneratorOptions const& options) {
    std::pair<std::string_view, double> const rates[] = {
        {"late rate", options.lateRate},
        {"gap rate", options.gapRate},
        {"exposure drift rate", options.exposureDriftRate},
        {"exposure jump rate", options.exposureJumpRate},
        {"scan rate", options.scanRate},
        {"strange AF state rate", options.strangeAfStateRate},
        {"missing AF state rate", options.missingAfStateRate},
        {"error rate", options.errorRate},
        {"unsynced rate", options.unsyncedRate},
    };
    for (auto const& [name, rate] : rates) {
        requireRange(name, rate, 0.0, 1.0);
    }
}

void requireValid(GeneratorOptions const& options) {
    requireRange<uint32_t>("frames", options.frames, 2, 1'000'000);
    requireRange("fps", options.fps, 1.0, 960.0);
    requireRange<int64_t>("start (ns)", options.startNs, 1, 1'000'000'000'000'000'000);
    requireRange<uint32_t>("first frame number", options.firstFrameNo, 0,
                           std::numeric_limits<uint32_t>::max() - (options.frames - 1));
    requireRange<uint32_t>("interval excess (ppm)", options.intervalExcessPpm, 0, 100'000);
    requireRates(options);
}

}  // namespace

Recording generate(GeneratorOptions const& options) {
    requireValid(options);
    auto const durationNs = static_cast<int64_t>(std::llround(1e9 / options.fps));
    int64_t const intervalNs = durationNs + durationNs * options.intervalExcessPpm / 1'000'000;
    int64_t const exposureNs =
        options.exposureNs.value_or(std::min<int64_t>(10'000'000, durationNs / 3));
    requireRange<int64_t>("exposure (ns)", exposureNs, 1, durationNs);
    requireRange<int64_t>("jitter (ns)", options.jitterNs, 0, intervalNs / 10);

    TimingGenerator timing(options, intervalNs);
    ExposureGenerator exposure(options, exposureNs, durationNs);
    FocusGenerator focus(options);
    FaultGenerator faults(options);
    Recording recording{"<generated>", {}, {}, 0};
    recording.frames.resize(options.frames);
    for (uint32_t i = 0; i < options.frames; ++i) {
        SensorFrame& frame = recording.frames[i];
        frame.frameNo = options.firstFrameNo + i;
        frame.durationNs = durationNs;
        timing.next(frame);
        exposure.next(frame);
        focus.next(frame);
        faults.next(frame);
    }
    recording.medianIntervalNs = medianIntervalNs(recording.frames);
    return recording;
}

}  // namespace zebcam::tool
