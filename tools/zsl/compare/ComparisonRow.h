#pragma once

#include <host/BufferLedger.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "compare/RefusalCounts.h"
#include "replay/ReplayOptions.h"
#include "replay/ReplayResult.h"

namespace zebcam::tool {

/// What is counted and measured in one run. Plain data, so that it can go from process to process.
struct RunNumbers {
    ReplaySummary summary;
    Spread wait;  ///< from the press to the answer, of the frames that were answered
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
    ReplayOptions options;
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
RunNumbers numbersOf(ReplayResult const& result, RefusalCounts const& refusals);
std::vector<std::string> problemsOf(ReplayResult const& result);

}  // namespace zebcam::tool
