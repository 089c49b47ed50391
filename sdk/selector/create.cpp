#include <memory>
#include <vector>

#include "NearestSettledSelector.h"
#include "Parameters.h"

namespace {

kit::NearestSettledSelector::Limits limitsFrom(kit::Parameters& parameters) {
    constexpr double LIMIT_MS = 60'000;
    kit::NearestSettledSelector::Limits limits;
    parameters.read("max_age_ms", limits.maxAgeMs, LIMIT_MS, "ms");
    parameters.read("max_wait_ms", limits.maxWaitMs, LIMIT_MS, "ms");
    return limits;
}

}  // namespace

/// A new policy that the caller deletes; null, with a line on standard error, if a parameter makes
/// no sense.
extern "C" __attribute__((visibility("default"))) NSCam::ZslPolicy::ISelector* create() {
    kit::Parameters parameters("NearestSettledSelector");
    auto const limits = limitsFrom(parameters);
    return parameters.areGood() ? std::make_unique<kit::NearestSettledSelector>(limits).release()
                                : nullptr;
}

/// The names of the parameters that it takes, ended by a null.
extern "C" __attribute__((visibility("default"))) char const* const* parameterNames() {
    static std::vector<char const*> const names = [] {
        kit::Parameters asked(nullptr);
        limitsFrom(asked);
        return asked.names();
    }();
    return names.data();
}
