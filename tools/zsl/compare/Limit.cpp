#include "compare/Limit.h"

#include <fmt/format.h>

#include <charconv>
#include <cmath>
#include <stdexcept>
#include <utility>

#include "recording/RecordingError.h"

namespace zebcam::tool {
namespace {

constexpr std::string_view kBlanks = " \t";

std::string_view trimmed(std::string_view text) {
    size_t const begin = text.find_first_not_of(kBlanks);
    if (begin == std::string_view::npos) {
        return {};
    }
    return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

double parseNumber(std::string_view text) {
    double value = 0;
    auto const [end, error] =
        std::from_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed);
    if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(value)) {
        throw std::invalid_argument("expected a decimal number after the comparison, found " +
                                    quoteContent(text));
    }
    return value;
}

}  // namespace

Limit::Limit(std::string_view text) : mText(trimmed(text)) {
    std::string_view const whole = mText;
    size_t const at = whole.find_first_of("<>=!");
    std::string_view rest = at == std::string_view::npos ? "" : whole.substr(at);
    std::string_view const name = trimmed(whole.substr(0, at));
    // The longer ones first: each begins like a shorter one.
    for (auto const& [sign, comparison] :
         {std::pair{"<=", Comparison::LessEqual}, std::pair{">=", Comparison::GreaterEqual},
          std::pair{"==", Comparison::Equal}, std::pair{"!=", Comparison::Unequal},
          std::pair{"<", Comparison::Less}, std::pair{">", Comparison::Greater}}) {
        if (rest.starts_with(sign)) {
            mField = findField(name);
            if (mField == nullptr) {
                throw std::invalid_argument(fmt::format("expected one of the fields {}, found {}",
                                                        fieldNames(), quoteContent(name)));
            }
            mComparison = comparison;
            rest.remove_prefix(std::string_view(sign).size());
            mNumber = parseNumber(trimmed(rest));
            return;
        }
    }
    throw std::invalid_argument(
        "expected a field, one of < <= > >= == != and a number, as p95_lag_ms>50, found " +
        quoteContent(text));
}

bool Limit::holds(double value) const {
    switch (mComparison) {
        case Comparison::Less:
            return value < mNumber;
        case Comparison::LessEqual:
            return value <= mNumber;
        case Comparison::Greater:
            return value > mNumber;
        case Comparison::GreaterEqual:
            return value >= mNumber;
        case Comparison::Equal:
            return value == mNumber;
        case Comparison::Unequal:
            break;
    }
    return value != mNumber;
}

std::optional<std::string> Limit::brokenBy(RunNumbers const& numbers) const {
    FieldValue const value = mField->value(numbers);
    std::optional<double> const number = asNumber(value);
    if (number && !holds(*number)) {
        return std::nullopt;
    }
    return fmt::format("{} {} (--fail-if {})", mField->name,
                       number ? "is " + asText(value) : "has no value", mText);
}

}  // namespace zebcam::tool
