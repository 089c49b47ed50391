#pragma once

#include <nlohmann/json_fwd.hpp>

#include "faults/FaultOptions.h"
#include "faults/FaultTally.h"

namespace zebcam::tool {

/// `{"randomSeed", "rules": ["late:0.1", ...], "strikes": {"late": 12, ...}}`.
nlohmann::ordered_json faultJson(FaultOptions const& options, FaultTally const& tally);

}  // namespace zebcam::tool
