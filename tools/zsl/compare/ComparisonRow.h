#pragma once

#include <host/BufferLedger.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "log/Explainer.h"
#include "pipeline/ReplayOptions.h"
#include "run/ReplayResult.h"

namespace zebcam::tool::compare {

/// How often history frames were refused, by criterion. A frame counts each time that it is looked
/// at: once for each try of each capture.
struct RefusalCounts {
    std::array<uint64_t, static_cast<size_t>(log::Criterion::Unknown) + 1> byCriterion{};

    uint64_t& operator[](log::Criterion criterion) {
        return byCriterion[static_cast<size_t>(criterion)];
    }
    uint64_t operator[](log::Criterion criterion) const {
        return byCriterion[static_cast<size_t>(criterion)];
    }
    uint64_t total() const;
    /// `time 12, focus 3`: what is not 0, the most frequent first; empty for none.
    std::string text() const;

    bool operator==(RefusalCounts const&) const = default;
};

/// Counts the refusals that the processor's log tells of.
class RefusalCounter {
public:
    /// Log level (ULog::LogLevel) up to which the lines are needed.
    static uint32_t logLevel();

    void feed(host::LogLine const& line);
    /// Ends the count, once.
    RefusalCounts finish();

private:
    log::Explainer mExplainer;
};

/// What is counted and measured in one run. Plain data, so that it can go from process to process.
struct RunNumbers {
    run::ReplaySummary summary;
    base::Spread wait;  ///< from the press to the answer, of the frames that were answered
    RefusalCounts refusals;
    host::BufferLedger::Totals ledger;
    int64_t longestHeldNs = 0;   ///< the longest time that a buffer set was handed out
    uint64_t droppedFrames = 0;  ///< left the history because newer ones came
    uint64_t errorLines = 0;     ///< error lines of the processor's log
    int64_t offsetMs = 0;        ///< ZSL offset in force, over all its properties
};

/// One recording under one setting: what came of it.
struct ComparisonRow {
    std::string recording;  ///< path
    pipeline::ReplayOptions options;
    std::optional<RunNumbers> numbers;  ///< none: the run failed
    std::vector<std::string> problems;  ///< why it failed, or what went wrong in it
    std::vector<std::string> broken;    ///< the limits that it exceeds, with what was found

    /// In force, ms; of a failed run what was asked for, if anything was.
    std::optional<int64_t> offsetMs() const;
    /// `failed`, `problem`, `limit` or `ok`: the worst that holds.
    char const* status() const;
    bool isGood() const { return problems.empty() && broken.empty(); }
};

/// The numbers of a run, and what went wrong in it as texts.
RunNumbers numbersOf(run::ReplayResult const& result, RefusalCounts const& refusals);
std::vector<std::string> problemsOf(run::ReplayResult const& result);

}  // namespace zebcam::tool::compare
