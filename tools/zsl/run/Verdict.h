#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "log/Explanation.h"
#include "run/LiveRun.h"
#include "run/ReplayResult.h"

namespace zebcam::tool::run {

/// How good what happened is; the higher, the worse.
enum class Level { Good, Doubtful, Bad };

/// `good`, `doubtful` or `bad`.
char const* toString(Level level);

/// One thing that a verdict rests on: `count` of `total` what `word` says.
struct VerdictReason {
    Level level = Level::Good;
    std::string word;  ///< for programs, for instance `timedOut`; docs/json.md lists them
    uint64_t count = 0;
    uint64_t total = 0;
    std::string text;                  ///< the same as a sentence, without a full stop
    std::vector<std::string> details;  ///< the first of them, where they can be told apart
};

/**
 * Whether a run is to be trusted, and why. A run may be clean, with every frame answered, and yet
 * nothing that anybody wants: what strikes some of the frames then makes it doubtful, what strikes
 * half of them or more makes it bad.
 */
struct Verdict {
    std::vector<VerdictReason> reasons;  ///< never empty; the worst first

    /// The worst reason's.
    Level level() const { return reasons.front().level; }
};

Verdict verdictOf(ReplayResult const& result);
/// Of a live run, which keeps no frames, the lag is not looked at.
Verdict verdictOf(LiveResult const& result);
/// Of the captures that a log tells of. It may end anywhere and lack lines: what is open then is
/// doubtful, not bad.
Verdict verdictOf(log::Explanation const& explanation);

}  // namespace zebcam::tool::run
