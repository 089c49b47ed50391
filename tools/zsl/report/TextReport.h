#pragma once

#include <string>

#include "replay/ReplayResult.h"

namespace zebcam::tool {

/// The whole result for people: facts, table, dumps, summary. Plain text of at most 100 columns,
/// but for names that are longer themselves.
std::string textReport(ReplayResult const& result);

/// Its parts, each ending with a newline.
std::string factsText(ReplayResult const& result);
std::string tableText(ReplayResult const& result);
std::string dumpsText(ReplayResult const& result);
std::string summaryText(ReplayResult const& result);

}  // namespace zebcam::tool
