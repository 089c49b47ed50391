#pragma once

#include <cstdint>
#include <optional>

#include "recording/Recording.h"

namespace zebcam::tool::recording {

/// What to generate. A rate is a share from 0 to 1.
struct GeneratorOptions {
    uint32_t frames = 300;                ///< 2 to MAX_FRAMES
    double fps = 30;                      ///< the rate that the sensor reports, 1 to 960
    uint64_t seedValue = 1;               ///< the same options and value make the same recording
    int64_t startNs = 1'000'000'000'000;  ///< time of the first frame, 1 ns to 10^18 ns
    uint32_t firstFrameNo = 1;            ///< the last one is MAX_FRAME_NO at most
    uint32_t intervalExcessPpm = 2000;    ///< how much longer than reported the intervals are
    int64_t jitterNs = 56'000;            ///< how far an interval strays, at most a tenth of one
    double lateRate = 0.01;               ///< frames 1.3 ms late, which the next one repays
    double gapRate = 0.01;                ///< intervals of twice the length, mostly at the start
    std::optional<int64_t> exposureNs;    ///< at the start; 10 ms or a third of a shorter frame
    double exposureDriftRate = 0.4;       ///< frames whose exposure changes by up to 5 %
    double exposureJumpRate = 0.005;      ///< frames whose exposure doubles or halves
    double scanRate = 0.01;               ///< frames that begin a focus scan, of those outside one
    double strangeAfStateRate = 0.005;    ///< frames with the undocumented AF state 101
    double missingAfStateRate = 0;        ///< frames without AF state, evenly spread
    double errorRate = 0;                 ///< frames whose image is unusable
    double unsyncedRate = 0;              ///< frames whose sensors are not synchronised
};

/// Makes a recording that shows what phones show. Subjects (timing, exposure, focus, faults) draw
/// from random sequences of their own, so that changing the rate of one leaves the others alone;
/// the result is the same on every platform. Throws std::invalid_argument naming the option as the
/// command line has it, what was expected and what was found.
Recording generate(GeneratorOptions const& options);

}  // namespace zebcam::tool::recording
