#include "compare/ComparisonRow.h"

#include <fmt/format.h>

#include <utility>

namespace zebcam::tool {

std::optional<int64_t> ComparisonRow::offsetMs() const {
    return numbers ? numbers->offsetMs : options.offsetMs;
}

char const* ComparisonRow::status() const {
    if (!numbers) {
        return "failed";
    }
    if (!problems.empty()) {
        return "problem";
    }
    return broken.empty() ? "ok" : "limit";
}

RunNumbers numbersOf(ReplayResult const& result, RefusalCounts const& refusals) {
    RunNumbers numbers;
    numbers.summary = result.summary;
    std::vector<int64_t> waits;
    for (CaptureRecord const& capture : result.captures) {
        for (FrameOutcome const& frame : capture.frames) {
            if (std::optional<int64_t> const wait = capture.waitNs(frame)) {
                waits.push_back(*wait);
            }
        }
    }
    numbers.wait = spreadOf(std::move(waits));
    numbers.refusals = refusals;
    numbers.ledger = result.ledger;
    numbers.longestHeldNs = result.longestHeldNs;
    numbers.droppedFrames = result.droppedFrames;
    numbers.errorLines = result.errorLines;
    numbers.offsetMs = result.offsetMs;
    return numbers;
}

std::vector<std::string> problemsOf(ReplayResult const& result) {
    std::vector<std::string> problems = result.failures;
    if (result.summary.unanswered > 0) {
        problems.push_back(fmt::format("{} of {} frames unanswered", result.summary.unanswered,
                                       result.summary.frames));
    }
    host::BufferLedger::Totals const& ledger = result.ledger;
    if (!ledger.balances()) {
        problems.push_back(fmt::format("the ledger does not balance: {} buffer sets out, {} lost",
                                       ledger.withProcessor + ledger.withFrameBuilder,
                                       ledger.lost));
    }
    return problems;
}

}  // namespace zebcam::tool
