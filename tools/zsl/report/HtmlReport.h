#pragma once

#include <ostream>
#include <vector>

#include "compare/Comparison.h"
#include "log/Explanation.h"
#include "recording/Recording.h"
#include "run/ReplayResult.h"

namespace zebcam::tool::report {

/// Writes a replay as one HTML page that needs nothing else to open. docs/report.md says what it
/// shows. `explanation` is of the replay's log; null: the page tells of no refusals. Errors are
/// left in the state of `out`.
void writeHtmlReport(recording::Recording const& recording, run::ReplayResult const& result,
                     log::Explanation const* explanation, std::ostream& out);

/// The same of a comparison.
void writeHtmlReport(compare::ComparisonPlan const& plan,
                     std::vector<compare::ComparisonRow> const& rows, std::ostream& out);

}  // namespace zebcam::tool::report
