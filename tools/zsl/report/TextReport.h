#pragma once

#include <string>

#include "explain/Explanation.h"
#include "replay/ReplayResult.h"

namespace zebcam::tool {

/// The whole result for people: facts, table, reasons if there are any, dumps, summary. Plain text
/// of at most 100 columns, but for names that are longer themselves.
std::string textReport(ReplayResult const& result, Explanation const* explanation = nullptr);

/// Its parts, each ending with a newline.
std::string factsText(ReplayResult const& result);
std::string tableText(ReplayResult const& result);
std::string dumpsText(ReplayResult const& result);
std::string summaryText(ReplayResult const& result);
std::string verdictText(DeviceVerdict const& verdict);

}  // namespace zebcam::tool
