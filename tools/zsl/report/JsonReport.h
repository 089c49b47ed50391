#pragma once

#include <iosfwd>

#include "replay/ReplayResult.h"

namespace zebcam::tool {

/// Writes the whole result as one JSON object (docs/replay.md describes it).
void writeJson(ReplayResult const& result, std::ostream& out);

}  // namespace zebcam::tool
