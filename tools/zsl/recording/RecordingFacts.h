#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "recording/Recording.h"

namespace zebcam::tool {

/// In how many frames each state is missing.
struct MissingStates {
    size_t afMode = 0;
    size_t afState = 0;
    size_t lensState = 0;
    size_t aeStable = 0;
    size_t frameSync = 0;
    size_t sensorId = 0;
    size_t sensorMode = 0;
};

/// What a recording holds, in numbers. An interval is the time between the starts of exposure of
/// two neighbouring frames; a gap is an interval of more than 1.5 times the median one.
struct RecordingFacts {
    size_t frames = 0;
    int64_t lengthNs = 0;  ///< from the first start of exposure to the last
    double meanRateFps = 0;
    int64_t medianIntervalNs = 0;
    int64_t minIntervalNs = 0;
    int64_t maxIntervalNs = 0;
    int64_t jitterNs = 0;  ///< 95 % of the intervals that are no gaps are this near the median
    size_t gaps = 0;
    int64_t largestGapNs = 0;  ///< 0 without gaps
    MissingStates missing;
    size_t framesWithError = 0;
    size_t focusMoves = 0;  ///< frames whose lens state is MOVING
};

/// The facts of `recording`, computed from its frames alone. Without two frames every time is 0.
RecordingFacts computeFacts(Recording const& recording);

/// The median interval in ns, the mean of the middle two (rounded down) for an even number of
/// intervals; 0 without two frames. The times must ascend.
int64_t medianIntervalNs(std::vector<SensorFrame> const& frames);

}  // namespace zebcam::tool
