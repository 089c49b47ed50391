#include <memory>
#include <vector>

#include "Parameters.h"
#include "best_shot/BestShotSelector.h"

namespace {

kit::BestShotRule ruleFrom(kit::Parameters& parameters) {
    constexpr double MAX_AGE_MS = 60'000;
    constexpr double MAX_COST = 1000;  // per s; the time is then worth a share of 1 for each ms
    constexpr double MAX_LOCKS = 1000;
    kit::BestShotRule rule;
    parameters.read("cost_per_s", rule.costPerS, MAX_COST);
    parameters.read("min_share", rule.minShare, 1);
    parameters.read("max_age_ms", rule.maxAgeMs, MAX_AGE_MS, "ms");
    parameters.read("max_wait_ms", rule.maxWaitMs, kit::BestShotSelector::MAX_WAIT_MS, "ms");
    parameters.read("hold_ms", rule.holdMs, kit::BestShotSelector::MAX_WAIT_MS, "ms");
    parameters.read("max_locks", rule.maxLocks, MAX_LOCKS);
    rule.burst = parameters.readWord("burst", {"run", "spread"}) == 0
                     ? kit::BestShotRule::Burst::Run
                     : kit::BestShotRule::Burst::Spread;
    return rule;
}

}  // namespace

/// A new policy that the caller deletes; null, with a line on standard error, if a parameter makes
/// no sense.
extern "C" __attribute__((visibility("default"))) NSCam::ZslPolicy::ISelector* create() {
    kit::Parameters parameters("BestShotSelector");
    kit::BestShotRule const rule = ruleFrom(parameters);
    return parameters.areGood() ? std::make_unique<kit::BestShotSelector>(rule).release() : nullptr;
}

/// The names of the parameters that it takes, ended by a null.
extern "C" __attribute__((visibility("default"))) char const* const* parameterNames() {
    static std::vector<char const*> const names = [] {
        kit::Parameters asked(nullptr);
        ruleFrom(asked);
        return asked.names();
    }();
    return names.data();
}
