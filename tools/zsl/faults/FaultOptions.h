#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "faults/FaultKind.h"

namespace zebcam::tool {

/// One fault as the user asked for it. With neither rate nor time it strikes at its kind's default
/// rate; a state then lasts from the first frame on.
struct FaultRule {
    FaultKind kind = FaultKind::Late;
    std::optional<double> rate;   ///< share of the opportunities that is struck, 0 to 1
    std::optional<int64_t> atNs;  ///< from the first frame: once, at the next opportunity

    bool operator==(FaultRule const&) const = default;
};

/// All faults of a run.
struct FaultOptions {
    std::vector<FaultRule> rules;  ///< empty: nothing goes wrong
    uint64_t randomSeed = 1;       ///< the same one, the same faults
};

/// Reads `KIND`, `KIND:RATE` or `KIND@TIME`. Throws std::invalid_argument, with a text that says
/// what was expected and found, for anything else, for a rate that is not from 0 to 1, for a time
/// before the first frame or more than a week after it, and for the rate of a state.
FaultRule parseFault(std::string const& text);

/// The names of all kinds: `late, lost, ...`.
std::string faultKindNames();

/// The rule in the form that parseFault reads.
std::string toString(FaultRule const& rule);

}  // namespace zebcam::tool
