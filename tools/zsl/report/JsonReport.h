#pragma once

#include <nlohmann/json.hpp>

#include <iosfwd>
#include <string>
#include <vector>

#include "compare/Comparison.h"
#include "log/Explanation.h"
#include "recording/Recording.h"
#include "recording/RecordingGenerator.h"
#include "run/LiveRun.h"
#include "run/ReplayResult.h"

namespace zebcam::tool::report {

/// What each command tells programs, as a value. docs/json.md lists every field; a field is always
/// there, and null where it does not apply.

/// `explanation` is of the replay's log and gives each try its reasons; null: there are none.
nlohmann::ordered_json toJson(run::ReplayResult const& result, log::Explanation const* explanation);

/// `recording` is what the run played; without a path it was generated.
nlohmann::ordered_json toJson(run::LiveResult const& result, recording::Recording const& recording);

nlohmann::ordered_json toJson(compare::ComparisonPlan const& plan,
                              std::vector<compare::ComparisonRow> const& rows);

/// `path` is that of the log, empty for standard input.
nlohmann::ordered_json toJson(log::Explanation const& explanation, std::string const& path = "");

nlohmann::ordered_json toJson(recording::GeneratorOptions const& options,
                              recording::Recording const& made);

/// Writes a document for people to read as well. Errors are left in the state of `out`.
void writeJson(nlohmann::ordered_json const& document, std::ostream& out);

}  // namespace zebcam::tool::report
