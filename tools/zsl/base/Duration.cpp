#include "base/Duration.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

#include "base/Text.h"

namespace zebcam::tool::base {

namespace {

constexpr uint64_t kNsPerSecond = 1'000'000'000;
constexpr std::array<std::pair<std::string_view, uint64_t>, 4> kUnits = {
    {{"s", kNsPerSecond}, {"ms", 1'000'000}, {"us", 1'000}, {"ns", 1}}};

[[noreturn]] void refuse(std::string_view expected, std::string_view text) {
    throw std::invalid_argument(fmt::format("expected {}, found {}", expected, quoteContent(text)));
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

/// Takes the digits at the front of `rest`.
std::string_view takeDigits(std::string_view& rest) {
    auto const end = std::find_if_not(rest.begin(), rest.end(), isDigit);
    std::string_view const digits = rest.substr(0, static_cast<size_t>(end - rest.begin()));
    rest.remove_prefix(digits.size());
    return digits;
}

/// Appends a digit worth `weight` ns; false when it does not fit.
bool addDigit(int64_t& ns, char digit, int64_t weight) {
    int64_t part = 0;
    return !__builtin_mul_overflow(static_cast<int64_t>(digit - '0'), weight, &part) &&
           !__builtin_add_overflow(ns, part, &ns);
}

uint64_t magnitude(int64_t ns) {
    return ns < 0 ? -static_cast<uint64_t>(ns) : static_cast<uint64_t>(ns);
}

std::string roundedTo(int64_t ns, uint64_t nsPerUnit, int decimals, uint64_t nsPerStep) {
    uint64_t const size = magnitude(ns);
    uint64_t const steps = size / nsPerStep + (size % nsPerStep * 2 >= nsPerStep ? 1 : 0);
    uint64_t const stepsPerUnit = nsPerUnit / nsPerStep;
    return fmt::format("{}{}.{:0{}}", ns < 0 && steps > 0 ? "-" : "", steps / stepsPerUnit,
                       steps % stepsPerUnit, decimals);
}

}  // namespace

int64_t parseDuration(std::string_view text) {
    constexpr std::string_view kExpected = "a time with its unit, such as 1.2s, 350ms or 5us";
    std::string_view rest = text;
    bool const isNegative = rest.starts_with('-');
    if (isNegative || rest.starts_with('+')) {
        rest.remove_prefix(1);
    }
    std::string_view const whole = takeDigits(rest);
    std::string_view fraction;
    if (rest.starts_with('.')) {
        rest.remove_prefix(1);
        fraction = takeDigits(rest);
    }
    auto const unit = std::find_if(kUnits.begin(), kUnits.end(),
                                   [&](auto const& candidate) { return candidate.first == rest; });
    if (unit == kUnits.end() || (whole.empty() && fraction.empty())) {
        refuse(kExpected, text);
    }
    int64_t const unitNs = static_cast<int64_t>(unit->second);
    int64_t ns = 0;
    for (char const digit : whole) {
        if (__builtin_mul_overflow(ns, int64_t{10}, &ns) || !addDigit(ns, digit, unitNs)) {
            refuse("a time within 292 years", text);
        }
    }
    int64_t weight = unitNs;
    for (char const digit : fraction) {
        weight /= 10;
        if (weight == 0 && digit != '0') {
            refuse("whole nanoseconds", text);
        }
        if (!addDigit(ns, digit, weight)) {
            refuse("a time within 292 years", text);
        }
    }
    return isNegative ? -ns : ns;
}

std::string formatDuration(int64_t ns) {
    uint64_t const size = magnitude(ns);
    std::string text =
        fmt::format("{}{}.{:09}", ns < 0 ? "-" : "", size / kNsPerSecond, size % kNsPerSecond);
    text.erase(text.find_last_not_of('0') + 1);
    if (text.ends_with('.')) {
        text.pop_back();
    }
    return text + "s";
}

std::string formatMs(int64_t ns) {
    return roundedTo(ns, 1'000'000, 2, 10'000);
}

std::string formatSeconds(int64_t ns) {
    return roundedTo(ns, kNsPerSecond, 3, 1'000'000);
}

}  // namespace zebcam::tool::base
