#include "compare/ComparisonRow.h"

#include <fmt/format.h>
#include <ulog/ULogger.h>

#include <algorithm>
#include <numeric>
#include <utility>
#include <vector>

namespace zebcam::tool::compare {

uint64_t RefusalCounts::total() const {
    return std::accumulate(byCriterion.begin(), byCriterion.end(), uint64_t{0});
}

std::string RefusalCounts::text() const {
    std::vector<std::pair<uint64_t, char const*>> counts;
    for (size_t i = 0; i < byCriterion.size(); ++i) {
        if (byCriterion[i] > 0) {
            counts.emplace_back(byCriterion[i], toString(static_cast<log::Criterion>(i)));
        }
    }
    std::stable_sort(counts.begin(), counts.end(),
                     [](auto const& a, auto const& b) { return a.first > b.first; });
    std::string text;
    for (auto const& [count, name] : counts) {
        text += fmt::format("{}{} {}", text.empty() ? "" : ", ", name, count);
    }
    return text;
}

uint32_t RefusalCounter::logLevel() {
    // Debug lines add the values that were found, which nobody counts.
    return NSCam::Utils::ULog::LOG_LEVEL_INFO;
}

void RefusalCounter::feed(host::LogLine const& line) {
    // Some lines go to both outputs.
    if (line.output == host::LogLine::Output::Camera) {
        mExplainer.feed(log::fromLogLine(line));
    }
}

RefusalCounts RefusalCounter::finish() {
    RefusalCounts counts;
    for (log::CaptureExplanation const& capture : mExplainer.finish().captures) {
        for (log::TryExplanation const& attempt : capture.tries) {
            for (log::Candidate const& frame : attempt.candidates) {
                counts[frame.criterion] += frame.criterion == log::Criterion::None ? 0 : 1;
            }
        }
    }
    return counts;
}

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

RunNumbers numbersOf(run::ReplayResult const& result, RefusalCounts const& refusals) {
    RunNumbers numbers;
    numbers.summary = result.summary;
    std::vector<int64_t> waits;
    for (pipeline::CaptureRecord const& capture : result.captures) {
        for (pipeline::FrameOutcome const& frame : capture.frames) {
            if (std::optional<int64_t> const wait = capture.waitNs(frame)) {
                waits.push_back(*wait);
            }
        }
    }
    numbers.wait = base::spreadOf(std::move(waits));
    numbers.refusals = refusals;
    numbers.ledger = result.ledger;
    numbers.longestHeldNs = result.longestHeldNs;
    numbers.droppedFrames = result.droppedFrames;
    numbers.errorLines = result.errorLines;
    numbers.offsetMs = result.offsetMs;
    return numbers;
}

std::vector<std::string> problemsOf(run::ReplayResult const& result) {
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

}  // namespace zebcam::tool::compare
