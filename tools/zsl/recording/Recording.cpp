#include "recording/Recording.h"

#include <algorithm>
#include <cstdlib>
#include <numeric>

namespace zebcam::tool::recording {

namespace {

constexpr uint8_t kLensMoving = 1;

std::vector<int64_t> intervalsOf(std::vector<SensorFrame> const& frames) {
    std::vector<int64_t> intervals;
    for (size_t i = 1; i < frames.size(); ++i) {
        intervals.push_back(frames[i].timestampNs - frames[i - 1].timestampNs);
    }
    return intervals;
}

int64_t medianOf(std::vector<int64_t> values) {
    auto const middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    if (values.size() % 2 != 0) {
        return *middle;
    }
    return std::midpoint(*std::max_element(values.begin(), middle), *middle);
}

// The distance from `center` within which 95 % of the values lie.
int64_t usualDistance(std::vector<int64_t> const& values, int64_t center) {
    std::vector<int64_t> distances;
    distances.reserve(values.size());
    for (int64_t const value : values) {
        distances.push_back(std::abs(value - center));
    }
    auto const rank = (distances.size() * 95 + 99) / 100;  // from 1
    auto const at = distances.begin() + static_cast<std::ptrdiff_t>(rank - 1);
    std::nth_element(distances.begin(), at, distances.end());
    return *at;
}

void addIntervals(RecordingFacts& facts, std::vector<int64_t> intervals) {
    auto const [min, max] = std::minmax_element(intervals.begin(), intervals.end());
    facts.minIntervalNs = *min;
    facts.maxIntervalNs = *max;
    facts.medianIntervalNs = medianOf(intervals);
    // Half of the intervals are no longer than the median, so some always remain.
    auto const isGap = [median = facts.medianIntervalNs](int64_t interval) {
        return interval - median > median / 2;
    };
    facts.gaps = std::erase_if(intervals, isGap);
    facts.largestGapNs = facts.gaps > 0 ? facts.maxIntervalNs : 0;
    facts.jitterNs = usualDistance(intervals, facts.medianIntervalNs);
}

void addStates(RecordingFacts& facts, SensorFrame const& frame) {
    MissingStates& missing = facts.missing;
    missing.afMode += !frame.afMode;
    missing.afState += !frame.afState;
    missing.lensState += !frame.lensState;
    missing.aeStable += !frame.aeStable;
    missing.frameSync += !frame.frameSync;
    missing.sensorId += !frame.sensorId;
    missing.sensorMode += !frame.sensorMode;
    facts.framesWithError += frame.hasError;
    facts.focusMoves += frame.lensState == kLensMoving;
}

}  // namespace

RecordingFacts computeFacts(Recording const& recording) {
    RecordingFacts facts;
    auto const& frames = recording.frames;
    facts.frames = frames.size();
    for (SensorFrame const& frame : frames) {
        addStates(facts, frame);
    }
    if (frames.size() >= 2) {
        addIntervals(facts, intervalsOf(frames));
        facts.lengthNs = frames.back().timestampNs - frames.front().timestampNs;
        facts.meanRateFps =
            static_cast<double>(frames.size() - 1) * 1e9 / static_cast<double>(facts.lengthNs);
    }
    return facts;
}

int64_t medianIntervalNs(std::vector<SensorFrame> const& frames) {
    return frames.size() < 2 ? 0 : medianOf(intervalsOf(frames));
}

}  // namespace zebcam::tool::recording
