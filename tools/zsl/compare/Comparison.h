#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/SignalWatch.h"
#include "compare/Baseline.h"
#include "compare/ComparisonFields.h"
#include "compare/ComparisonResult.h"
#include "log/Explanation.h"
#include "picture/MeasuredVideo.h"
#include "pipeline/ReplayOptions.h"
#include "recording/Recording.h"
#include "run/ReplayResult.h"

namespace zebcam::tool::compare {

struct ChildPoolOptions {
    size_t jobs = 1;                                      ///< children at once, at least 1
    std::chrono::nanoseconds timeLimit{600'000'000'000};  ///< of each child, in real time
};

/// How a task ended in its child.
struct ChildOutcome {
    std::string data;     ///< what the task gave
    std::string failure;  ///< why it gave nothing; empty: it did
};

/// Runs in the child. What it gives is not empty, so that a child that ends without it shows; what
/// it throws is the task's failure.
using ChildTask = std::function<std::string(size_t task)>;
/// Called in the order in which the tasks end.
using ChildListener = std::function<void(size_t task, ChildOutcome outcome)>;

/**
 * Runs tasks 0, 1, ... each in a process of its own that is forked from this one: a task that
 * crashes, hangs or changes what is process-wide harms no other. A child has no input; what it
 * prints is kept from this process's outputs, and its last line goes into the failure. Children end
 * with this process, however it ends.
 *
 * Call it while this process has one thread. Throws std::system_error when a child cannot be
 * started, and Interrupted.
 */
void runInChildren(size_t tasks, ChildPoolOptions const& options, base::SignalWatch const& signals,
                   ChildTask const& task, ChildListener const& onEnd);

/// Has something made of a run in its child, where there is more than its row tells: the reasons
/// have all values. What it throws is a problem of the run.
using RunListener =
    std::function<void(size_t row, recording::Recording const& recording,
                       run::ReplayResult const& result, log::Explanation const& explanation)>;

/// What to compare: each recording under each combination of the settings. None of the lists may be
/// empty.
struct ComparisonPlan {
    std::vector<std::string> recordings;  ///< paths
    std::vector<std::string> videos;      ///< of the recordings, in their order; or none
    picture::Measure measure;             ///< of videos; called once for each file
    std::vector<pipeline::PolicyOption> policies;
    /// Values for each parameter, for the policies from files that take it; the others take none.
    std::vector<std::pair<std::string, std::vector<std::string>>> policyParameters;
    std::vector<std::optional<int64_t>> offsetsMs;  ///< none: see ReplayOptions
    std::vector<size_t> framesPerCapture;
    std::vector<size_t> history;
    pipeline::ReplayOptions common;  ///< everything else
    std::vector<Limit> limits;
    std::optional<Baseline> baseline;
    RunListener onRun;  ///< may be empty
};

/// What came of a plan.
struct Comparison {
    std::vector<Limit> limits;
    std::vector<ComparisonRow>
        rows;  ///< in the order of the plan's lists, the last changing fastest
    Totals totals;
    std::vector<Ranking> rankings;  ///< of the totals
    std::optional<Since> since;     ///< none without a baseline

    /// Every run is in order, within the limits and no worse than a baseline that has its like.
    bool isGood() const;
};

/**
 * Runs the plan, each run in a process of its own, judges the limits and holds the result against
 * the baseline. Nothing depends on what ends first. A run that fails is a row that says so.
 *
 * `progress` gets the number of runs that have ended. Throws as runInChildren() does, and the same
 * holds for threads; also InputError, for a rule that cannot be loaded and for a parameter that no
 * policy takes.
 */
Comparison compare(ComparisonPlan const& plan, ChildPoolOptions const& pool,
                   base::SignalWatch const& signals,
                   std::function<void(size_t runs, size_t total)> const& progress = {});

}  // namespace zebcam::tool::compare
