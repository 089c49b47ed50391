#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "compare/ChildPool.h"
#include "compare/ComparisonFields.h"
#include "compare/ComparisonRow.h"

namespace zebcam::tool::compare {

/// What to compare: each recording under each combination of the settings. None of the lists may be
/// empty.
struct ComparisonPlan {
    std::vector<std::string> recordings;  ///< paths
    std::vector<pipeline::PolicyOption> policies;
    std::vector<std::optional<int64_t>> offsetsMs;  ///< none: see ReplayOptions
    std::vector<size_t> framesPerCapture;
    std::vector<size_t> history;
    pipeline::ReplayOptions common;  ///< everything else
    std::vector<Limit> limits;

    size_t settings() const {
        return policies.size() * offsetsMs.size() * framesPerCapture.size() * history.size();
    }
};

/**
 * Runs the plan, each run in a process of its own, and judges the limits. Rows come in the order of
 * the lists, the last list changing fastest, whatever ends first. A run that fails is a row that
 * says so.
 *
 * `progress` gets the number of runs that have ended. Throws as runInChildren() does, and the same
 * holds for threads.
 */
std::vector<ComparisonRow> compare(
    ComparisonPlan const& plan, ChildPoolOptions const& pool, base::SignalWatch const& signals,
    std::function<void(size_t runs, size_t total)> const& progress = {});

}  // namespace zebcam::tool::compare
