#pragma once

#include <iosfwd>

#include "explain/Explanation.h"
#include "replay/ReplayResult.h"

namespace zebcam::tool {

/// Writes the whole result as one JSON object (docs/replay.md describes it). `explanation` is of
/// the replay's log and gives each try its reasons; null: there are none.
void writeJson(ReplayResult const& result, Explanation const* explanation, std::ostream& out);

}  // namespace zebcam::tool
