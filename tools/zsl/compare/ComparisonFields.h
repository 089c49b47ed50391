#pragma once

#include <host/BufferLedger.h>

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "log/Explanation.h"
#include "run/ReplayResult.h"

namespace zebcam::tool::compare {

/// How often frames were refused for criteria of a policy's own, by their names.
using OwnRefusals = std::map<std::string, uint64_t>;

/// How often history frames were refused, by criterion; one of a policy's own counts as unknown. A
/// frame counts each time that it is looked at: once for each try of each capture.
struct RefusalCounts {
    std::array<uint64_t, log::CRITERIA> byCriterion{};

    uint64_t& operator[](log::Criterion criterion) {
        return byCriterion[static_cast<size_t>(criterion)];
    }
    uint64_t total() const;
    /// `time 12, focus 3`: what is not 0, the most frequent first; empty for none. What is unknown
    /// goes by the names that `own` has for it.
    std::string text(OwnRefusals const& own = {}) const;

    bool operator==(RefusalCounts const&) const = default;
};

RefusalCounts countRefusals(log::Explanation const& explanation);
OwnRefusals countOwnRefusals(log::Explanation const& explanation);

/// What is counted and measured in one run. Plain data, so that it can go from process to process.
struct RunNumbers {
    run::ReplaySummary summary;
    RefusalCounts refusals;
    host::BufferLedger::Totals ledger;
    int64_t longestHeldNs = 0;   ///< the longest time that a buffer set was handed out
    uint64_t droppedFrames = 0;  ///< left the history because newer ones came
    uint64_t errorLines = 0;     ///< error lines of the processor's log
    int64_t offsetMs = 0;        ///< ZSL offset in force, over all its properties
};

RunNumbers numbersOf(run::ReplayResult const& result, RefusalCounts const& refusals);
/// What went wrong in a run, as texts.
std::vector<std::string> problemsOf(run::ReplayResult const& result);

/// A field's value, a count or a number; none when there is nothing that it could be made from.
using FieldValue = std::variant<std::monostate, uint64_t, double>;

/// Which end of a field is the better one, all else being equal.
enum class Better : uint8_t { Neither, Less, More };

/// A number of a run under the name that limits, CSV and JSON share. Times are in ms.
struct ComparisonField {
    std::string name;
    Better better;
    char const* help;
    std::function<FieldValue(RunNumbers const& numbers)> value;
};

/// Every field, in the order in which they are written; one for each criterion of a refusal.
std::span<ComparisonField const> comparisonFields();

/// Null for none of that name.
ComparisonField const* findField(std::string_view name);

/// The field of that name; blanks around it do not count. Throws std::invalid_argument, with a text
/// that says what was expected and found, when there is none.
ComparisonField const& fieldOf(std::string_view name);

std::vector<std::string> fieldNames();

/// The value as a number.
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

    run::LimitCheck check(RunNumbers const& numbers) const;

    std::string const& text() const { return mText; }
    ComparisonField const& field() const { return *mField; }

private:
    enum class Comparison { Less, LessEqual, Greater, GreaterEqual, Equal, Unequal };

    bool holds(double value) const;

    std::string mText;
    ComparisonField const* mField = nullptr;
    Comparison mComparison = Comparison::Equal;
    double mNumber = 0;
};

}  // namespace zebcam::tool::compare
