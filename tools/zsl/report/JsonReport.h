#pragma once

#include <nlohmann/json_fwd.hpp>

#include <iosfwd>

#include "log/Explanation.h"
#include "pipeline/ReplayOptions.h"
#include "run/ReplayResult.h"

namespace zebcam::tool::report {

/// `{"randomSeed", "rules": ["late:0.1", ...], "strikes": {"late": 12, ...}}`.
nlohmann::ordered_json faultJson(pipeline::FaultOptions const& options,
                                 pipeline::FaultTally const& tally);

/// As docs/explain.md describes them. Log lines and times are there only if the log has them.
nlohmann::ordered_json toJson(log::Explanation const& explanation);
nlohmann::ordered_json toJson(log::TryExplanation const& attempt);

/// Writes the whole result as one JSON object (docs/replay.md describes it). `explanation` is of
/// the replay's log and gives each try its reasons; null: there are none.
void writeJson(run::ReplayResult const& result, log::Explanation const* explanation,
               std::ostream& out);

}  // namespace zebcam::tool::report
