#pragma once

#include <string>

#include "log/Explanation.h"
#include "run/LiveRun.h"
#include "run/ReplayResult.h"

namespace zebcam::tool::report {

/// What commands tell people: plain text of at most 100 columns, but for names that are longer
/// themselves.

/// A replay: facts, table, reasons if there are any, dumps, summary.
std::string textReport(run::ReplayResult const& result,
                       log::Explanation const* explanation = nullptr);

/// Whether a device decided as its replay does; the last part of the above.
std::string verdictText(run::DeviceVerdict const& verdict);

/// One line on how a live run stands.
std::string statusLine(run::LiveStatus const& status);

/// What is told once a live run is over.
std::string liveReport(run::LiveResult const& result);

/// An explained log: a block for each capture with a table for each try, then what is left pending,
/// given back and wrong, and the counts. Its words are cut where they fill a line.
std::string explanationText(log::Explanation const& explanation);

/// One capture; a part of the above.
std::string captureText(log::CaptureExplanation const& capture);

}  // namespace zebcam::tool::report
