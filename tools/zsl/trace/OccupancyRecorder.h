#pragma once

#include <cstdint>
#include <vector>

#include "sim/SimulatedPipeline.h"

namespace zebcam::tool {

/// How many frames were where from an instant on.
struct OccupancySample {
    int64_t bootTimeNs = 0;
    Occupancy occupancy;
};

/// Records what a replay tells of its occupancy: one sample for each instant, as it ends.
class OccupancyRecorder {
public:
    void add(int64_t bootTimeNs, Occupancy const& occupancy) {
        if (mSamples.empty() || mSamples.back().bootTimeNs != bootTimeNs) {
            mSamples.push_back({bootTimeNs, {}});
        }
        mSamples.back().occupancy = occupancy;
    }

    std::vector<OccupancySample> const& samples() const { return mSamples; }

private:
    std::vector<OccupancySample> mSamples;
};

}  // namespace zebcam::tool
