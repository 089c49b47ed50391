#include "log/Explanation.h"

#include <algorithm>
#include <array>

namespace zebcam::tool::log {

namespace {

template <typename Enum, size_t N>
char const* nameOf(Enum value, std::array<char const*, N> const& names) {
    return names.at(static_cast<size_t>(value));
}

}  // namespace

bool CaptureExplanation::isCertain() const {
    return std::any_of(tries.begin(), tries.end(),
                       [](TryExplanation const& attempt) { return attempt.hasInput; });
}

char const* toString(Verdict verdict) {
    return nameOf(verdict, std::array{"taken", "parked", "locked", "refused"});
}

char const* toString(Criterion criterion) {
    return nameOf(criterion,
                  std::array{"none", "time", "streams", "sensor mode", "focus", "exposure", "sync",
                             "image", "pure raw", "broken run", "lost", "unknown"});
}

char const* toString(Source source) {
    return nameOf(source, std::array{"chosen", "arrived", "timed out"});
}

char const* toString(Order::Kind kind) {
    return nameOf(kind, std::array{"lock", "unlock", "release"});
}

char const* toString(Order::Fate fate) {
    return nameOf(fate, std::array{"done", "in flight", "not found"});
}

char const* toString(TryOutcome outcome) {
    return nameOf(outcome, std::array{"unknown", "served", "waiting"});
}

char const* toString(CaptureOutcome outcome) {
    return nameOf(outcome, std::array{"unknown", "served", "timed out", "flushed", "pending"});
}

}  // namespace zebcam::tool::log
