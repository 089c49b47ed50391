#include "NearestSettledSelector.h"

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>

namespace {

constexpr char MAX_AGE_VARIABLE[] = "NEAREST_SETTLED_MAX_AGE_MS";
constexpr int64_t MAX_AGE_LIMIT_MS = 60'000;

/// The limits in force; nothing, with a line on standard error, if the variable makes no sense.
std::optional<sample::NearestSettledSelector::Limits> limitsFromEnvironment() {
    sample::NearestSettledSelector::Limits limits;
    char const* const text = std::getenv(MAX_AGE_VARIABLE);
    if (text == nullptr) {
        return limits;
    }
    char const* const end = text + std::strlen(text);
    auto const [stop, error] = std::from_chars(text, end, limits.maxAgeMs);
    if (error != std::errc{} || stop != end || limits.maxAgeMs < 0 ||
        limits.maxAgeMs > MAX_AGE_LIMIT_MS) {
        std::fprintf(stderr, "NearestSettledSelector: %s is '%s': expected 0 to %lld ms\n",
                     MAX_AGE_VARIABLE, text, static_cast<long long>(MAX_AGE_LIMIT_MS));
        return std::nullopt;
    }
    return limits;
}

}  // namespace

/// A new policy that the caller deletes; null, with a line on standard error, on failure.
extern "C" __attribute__((visibility("default"))) NSCam::ZslPolicy::ISelector* create() {
    auto const limits = limitsFromEnvironment();
    return limits ? std::make_unique<sample::NearestSettledSelector>(*limits).release() : nullptr;
}
