#include "base/Decimal.h"

#include <algorithm>
#include <charconv>
#include <string>

#include "base/Text.h"

namespace zebcam::tool::base {

namespace {

constexpr int64_t kMost = 19;  // digits of a 64-bit number

template <typename T>
std::optional<T> wholeNumber(std::string_view text) {
    T value{};
    auto const [rest, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    bool const isAll = rest == text.data() + text.size();
    return isAll && error == std::errc() ? std::optional<T>(value) : std::nullopt;
}

/// A decimal number, taken apart: its digits without leading zeros, and how many are before the
/// point, which may lie before the first or after the last one.
struct Decimal {
    bool isNegative = false;
    std::string digits;
    int64_t point = 0;
};

std::optional<Decimal> takeApart(std::string_view text) {
    Decimal number;
    number.isNegative = text.starts_with('-');
    text.remove_prefix(number.isNegative ? 1 : 0);
    size_t const end = std::min(text.find_first_of("eE"), text.size());
    std::string_view const mantissa = text.substr(0, end);
    size_t const point = std::min(mantissa.find('.'), mantissa.size());
    number.digits.append(mantissa.substr(0, point))
        .append(mantissa.substr(std::min(point + 1, mantissa.size())));
    if (number.digits.empty() ||
        !std::all_of(number.digits.begin(), number.digits.end(), isDigit)) {
        return std::nullopt;
    }
    number.point = static_cast<int64_t>(point);
    if (end < text.size()) {
        std::string_view power = text.substr(end + 1);
        power.remove_prefix(power.starts_with('+') ? 1 : 0);
        auto const value = wholeNumber<int16_t>(power);
        if (!value) {
            return std::nullopt;
        }
        number.point += *value;
    }
    size_t const zeros = std::min(number.digits.find_first_not_of('0'), number.digits.size());
    number.digits.erase(0, zeros);
    number.point -= static_cast<int64_t>(zeros);
    return number;
}

}  // namespace

std::optional<int64_t> scaledDecimal(std::string_view text, int exponent) {
    if (exponent == 0) {
        // What nearly all cells are.
        if (auto const value = wholeNumber<int64_t>(text)) {
            return value;
        }
    }
    auto number = takeApart(text);
    if (!number || number->digits.empty()) {
        return number ? std::optional<int64_t>(0) : std::nullopt;
    }
    int64_t const point = number->point + exponent;
    if (point > kMost) {
        return std::nullopt;
    }
    size_t const kept = static_cast<size_t>(std::max<int64_t>(point, 0));
    std::string const rest =
        kept < number->digits.size() ? number->digits.substr(kept) : std::string();
    bool const isExact = rest.find_first_not_of('0') == std::string::npos;
    if (exponent <= 0 && !isExact) {
        return std::nullopt;
    }
    number->digits.resize(kept, '0');
    std::string const whole = (number->isNegative ? "-0" : "0") + number->digits;
    auto value = wholeNumber<int64_t>(whole);
    // Before a point that lies further left stand zeros.
    bool const isHalf = point >= 0 && !rest.empty() && rest[0] >= '5';
    if (value && isHalf && __builtin_add_overflow(*value, number->isNegative ? -1 : 1, &*value)) {
        return std::nullopt;
    }
    return value;
}

}  // namespace zebcam::tool::base
