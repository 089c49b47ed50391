#pragma once

#include <cstdint>
#include <vector>

#include "pipeline/SimulatedPipeline.h"

namespace zebcam::tool::run {

/// How many frames were where from an instant on.
struct OccupancySample {
    int64_t bootTimeNs = 0;
    pipeline::Occupancy occupancy;
};

/// Records what a replay tells of its occupancy: one sample for each instant, as it ends.
class OccupancyRecorder {
public:
    void add(int64_t bootTimeNs, pipeline::Occupancy const& occupancy) {
        if (mSamples.empty() || mSamples.back().bootTimeNs != bootTimeNs) {
            mSamples.push_back({bootTimeNs, {}});
        }
        mSamples.back().occupancy = occupancy;
    }

    std::vector<OccupancySample> const& samples() const { return mSamples; }

private:
    std::vector<OccupancySample> mSamples;
};

}  // namespace zebcam::tool::run
