#include "NearestSettledSelector.h"

#include <memory>

#include "Parameters.h"

/// A new policy that the caller deletes; null, with a line on standard error, if a parameter makes
/// no sense.
extern "C" __attribute__((visibility("default"))) NSCam::ZslPolicy::ISelector* create() {
    constexpr double LIMIT_MS = 60'000;
    kit::NearestSettledSelector::Limits limits;
    kit::Parameters parameters("NearestSettledSelector");
    parameters.read("max_age_ms", limits.maxAgeMs, LIMIT_MS, "ms");
    parameters.read("max_wait_ms", limits.maxWaitMs, LIMIT_MS, "ms");
    return parameters.areGood() ? std::make_unique<kit::NearestSettledSelector>(limits).release()
                                : nullptr;
}
