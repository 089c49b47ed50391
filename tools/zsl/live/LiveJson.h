#pragma once

#include <iosfwd>

#include "live/LiveResult.h"

namespace zebcam::tool {

/// Writes a live run's result as JSON; docs/live.md describes it.
void writeJson(LiveResult const& result, std::ostream& out);

}  // namespace zebcam::tool
