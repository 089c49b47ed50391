#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>

#include "compare/ComparisonRow.h"

namespace zebcam::tool::compare {

/// A time, in ns; written in ms.
struct Nanoseconds {
    int64_t ns = 0;
};

/// A field's value; none when there is nothing that it could be made from.
using FieldValue = std::variant<std::monostate, uint64_t, Nanoseconds, double>;

/// A number of a run under the name that limits, CSV and JSON share. Times are in ms.
struct ComparisonField {
    char const* name;
    char const* help;
    FieldValue (*value)(RunNumbers const& numbers);
};

/// Every field, in the order in which they are written.
std::span<ComparisonField const> comparisonFields();

/// Null for none of that name.
ComparisonField const* findField(std::string_view name);

/// All names, separated by blanks.
std::string fieldNames();

/// The value as a number, times in ms.
std::optional<double> asNumber(FieldValue const& value);

/// The value in full: whole numbers, or decimals without needless zeros; empty for none.
std::string asText(FieldValue const& value);

/**
 * A condition that a run must not meet, as `p95_lag_ms>50`: a field, one of < <= > >= == !=, a
 * decimal number; blanks between them do not count. A value that is missing meets every condition,
 * because what was to be watched did not happen.
 */
class Limit {
public:
    /// Throws std::invalid_argument with a text that says what was expected and found.
    explicit Limit(std::string_view text);

    /// What was found, if `numbers` meet the condition:
    /// `p95_lag_ms is 66.7 (--fail-if p95_lag_ms>50)`.
    std::optional<std::string> brokenBy(RunNumbers const& numbers) const;

    std::string const& text() const { return mText; }

private:
    enum class Comparison { Less, LessEqual, Greater, GreaterEqual, Equal, Unequal };

    bool holds(double value) const;

    std::string mText;
    ComparisonField const* mField = nullptr;
    Comparison mComparison = Comparison::Equal;
    double mNumber = 0;
};

}  // namespace zebcam::tool::compare
