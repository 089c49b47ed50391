#pragma once

#include <iosfwd>

#include "run/LiveRun.h"

namespace zebcam::tool::report {

/// Writes a live run's result as JSON; docs/live.md describes it.
void writeJson(run::LiveResult const& result, std::ostream& out);

}  // namespace zebcam::tool::report
