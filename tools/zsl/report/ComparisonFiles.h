#pragma once

#include <iosfwd>
#include <vector>

#include "compare/Comparison.h"

namespace zebcam::tool::report {

/// The results for programs. Settings, numbers and their names are the same in both forms
/// (docs/compare.md describes them).

/// A header and a line for each row, with LF line ends.
void writeCsv(std::vector<compare::ComparisonRow> const& rows, std::ostream& out);

/// One object with the settings that all rows share and the rows.
void writeJson(compare::ComparisonPlan const& plan, std::vector<compare::ComparisonRow> const& rows,
               std::ostream& out);

}  // namespace zebcam::tool::report
