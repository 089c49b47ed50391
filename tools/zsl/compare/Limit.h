#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "compare/ComparisonFields.h"

namespace zebcam::tool {

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

}  // namespace zebcam::tool
