#pragma once

#include <iosfwd>
#include <vector>

#include "compare/Comparison.h"

/// The results for programs. Settings, numbers and their names are the same in both forms
/// (docs/compare.md describes them).
namespace zebcam::tool {

/// A header and a line for each row, with LF line ends.
void writeCsv(std::vector<ComparisonRow> const& rows, std::ostream& out);

/// One object with the settings that all rows share and the rows.
void writeJson(ComparisonPlan const& plan, std::vector<ComparisonRow> const& rows,
               std::ostream& out);

}  // namespace zebcam::tool
