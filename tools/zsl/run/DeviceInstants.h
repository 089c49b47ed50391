#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "device/DeviceRecording.h"
#include "run/DeviceRun.h"

namespace zebcam::tool::run {

/// A capture whose instant is not known well enough to tell on which side of it some frames lie:
/// the processor read the clock between two readings of the recorder's.
struct UncertainInstant {
    size_t capture = 0;    ///< position among the submissions
    size_t submitted = 0;  ///< operation
    size_t served = 0;     ///< operation, or SIZE_MAX
    uint32_t requestNo = 0;
    uint32_t frameNo = 0;  ///< the first of the frames
    int64_t widthNs = 0;
    /// Readings to try, one for each way in which the frames may lie.
    std::vector<record::ClockReading> candidates;

    std::string note() const;
};

/// In the order of the submissions.
std::vector<UncertainInstant> uncertainInstants(device::DeviceRecording const& recording);

/// Instants with which the replay does what the device did, or, where there are none, does so
/// longest, as far as a bounded number of replays tells. Those that need no other are left out.
AssumedInstants findInstants(device::DeviceRecording const& recording,
                             std::vector<UncertainInstant> const& uncertain);

}  // namespace zebcam::tool::run
