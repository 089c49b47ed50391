#include "NearestSettledSelector.h"

#include <cutils/properties.h>

#include <charconv>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <string>

namespace {

using sample::NearestSettledSelector;

/// Where `zsl --policy-option NAME=VALUE` and `setprop` on a device put a policy's parameters. All
/// policies share it, so that a name should tell whose it is if several are in use.
constexpr char PREFIX[] = "vendor.debug.camera3.zsl.policy.";
constexpr int64_t LIMIT_MS = 60'000;

/// Replaces `ms` by the parameter, if it is set. False, with a line on standard error, if that
/// makes no sense.
bool readMs(char const* name, int64_t& ms) {
    char text[PROPERTY_VALUE_MAX] = "";
    property_get((std::string(PREFIX) + name).c_str(), text, "");
    if (text[0] == '\0') {
        return true;
    }
    char const* const end = text + std::strlen(text);
    auto const [stop, error] = std::from_chars(text, end, ms);
    if (error != std::errc{} || stop != end || ms < 0 || ms > LIMIT_MS) {
        std::fprintf(stderr, "NearestSettledSelector: %s%s is '%s': expected 0 to %lld ms\n",
                     PREFIX, name, text, static_cast<long long>(LIMIT_MS));
        return false;
    }
    return true;
}

/// The limits in force; nothing if a parameter makes no sense.
std::optional<NearestSettledSelector::Limits> readLimits() {
    NearestSettledSelector::Limits limits;
    bool const isGood =
        readMs("max_age_ms", limits.maxAgeMs) && readMs("max_wait_ms", limits.maxWaitMs);
    return isGood ? std::optional(limits) : std::nullopt;
}

}  // namespace

/// A new policy that the caller deletes; null, with a line on standard error, on failure.
extern "C" __attribute__((visibility("default"))) NSCam::ZslPolicy::ISelector* create() {
    auto const limits = readLimits();
    return limits ? std::make_unique<NearestSettledSelector>(*limits).release() : nullptr;
}
