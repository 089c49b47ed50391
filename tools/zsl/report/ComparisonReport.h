#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "compare/Comparison.h"

namespace zebcam::tool::report {

/// The rows for people: a table for each recording, with the settings that differ. Plain text of at
/// most 120 columns, but for paths that are longer themselves.
std::string comparisonTable(std::vector<compare::ComparisonRow> const& rows);

/// What went wrong: a line for each problem and each broken limit that names recording and
/// settings. What fails alike under every setting of a recording is told once.
std::string comparisonComplaints(std::vector<compare::ComparisonRow> const& rows);

/// A header and a line for each row, with LF line ends; docs/compare.md describes the columns.
void writeCsv(std::vector<compare::ComparisonRow> const& rows, std::ostream& out);

}  // namespace zebcam::tool::report
