#pragma once

#include <string>

#include "log/Explanation.h"
#include "run/ReplayResult.h"

namespace zebcam::tool::report {

/// The whole result for people: facts, table, reasons if there are any, dumps, summary. Plain text
/// of at most 100 columns, but for names that are longer themselves.
std::string textReport(run::ReplayResult const& result,
                       log::Explanation const* explanation = nullptr);

/// Its parts, each ending with a newline.
std::string factsText(run::ReplayResult const& result);
std::string tableText(run::ReplayResult const& result);
std::string dumpsText(run::ReplayResult const& result);
std::string summaryText(run::ReplayResult const& result);
std::string verdictText(run::DeviceVerdict const& verdict);

}  // namespace zebcam::tool::report
