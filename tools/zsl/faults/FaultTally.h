#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "faults/FaultKind.h"

namespace zebcam::tool {

/// How often the faults that were asked for have struck.
struct FaultTally {
    uint64_t randomSeed = 0;
    std::vector<std::pair<FaultKind, uint64_t>> strikes;  ///< in the order of the kinds

    /// For instance `late 12, lost 3 (random seed 1)`.
    std::string text() const;
};

}  // namespace zebcam::tool
