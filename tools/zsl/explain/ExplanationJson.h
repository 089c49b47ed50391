#pragma once

#include <nlohmann/json_fwd.hpp>

#include "explain/Explanation.h"

namespace zebcam::tool {

/// As docs/explain.md describes them. Log lines and times are there only if the log has them.
nlohmann::ordered_json toJson(Explanation const& explanation);
nlohmann::ordered_json toJson(TryExplanation const& attempt);

}  // namespace zebcam::tool
