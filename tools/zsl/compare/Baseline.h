#pragma once

#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "compare/ComparisonFields.h"
#include "compare/ComparisonResult.h"

namespace zebcam::tool::compare {

/**
 * By how much a field may get worse before it counts: `5%` of what it was, for every field;
 * `p95_lag_ms=2` in the field's own unit, or `p95_lag_ms=5%`, for one. Where several apply the one
 * that allows most does.
 */
class Tolerance {
public:
    /// Throws std::invalid_argument with a text that says what was expected and found.
    explicit Tolerance(std::string_view text);

    /// 0 for a field that it says nothing about.
    double allowed(ComparisonField const& field, double was) const;

    std::string const& text() const { return mText; }

private:
    std::string mText;
    ComparisonField const* mField = nullptr;  ///< null: every field
    double mAmount = 0;
    bool mIsPercent = false;
};

/// A field that is not what it was.
struct Change {
    enum class Trend : uint8_t {
        Worse,  ///< beyond the tolerance
        Better,
        Tolerated,  ///< worse, but within the tolerance
        Other,      ///< of a field with no better end
    };

    bool isOfTotal = false;
    size_t row = 0;  ///< position among the rows, or the totals
    ComparisonField const* field = nullptr;
    std::optional<double> was{};
    std::optional<double> is{};
    Trend trend = Trend::Other;
};

char const* toString(Change::Trend trend);

/// What has become of a comparison that was written down as JSON earlier.
struct Since {
    std::string path;
    std::string version;  ///< of the tool that wrote it
    std::vector<std::string> tolerances;
    size_t matched = 0;           ///< rows that were there already
    size_t added = 0;             ///< rows that were not
    size_t gone = 0;              ///< rows that are there no more
    bool hasTotals = false;       ///< they are of the same rows, so that they compare
    std::vector<Change> changes;  ///< in the order of rows and fields; totals last
};

/// An earlier comparison, by which a new one is measured.
class Baseline {
public:
    /// Reads what --json wrote. Throws InputError, with the path, for what is none.
    explicit Baseline(std::string path);

    void setTolerances(std::vector<Tolerance> tolerances) { mTolerances = std::move(tolerances); }

    /**
     * What became of each row and, where the recordings are the same, of the totals; those that got
     * worse are told so. A row is matched by the recording's file name, the settings and the number
     * of captures, and by the policy's path or, for a library that was built elsewhere, its own
     * name; of several the one whose paths are the same.
     */
    Since changes(std::vector<ComparisonRow>& rows, Totals& totals) const;

private:
    std::string mPath;
    nlohmann::json mDocument;
    std::vector<Tolerance> mTolerances;
};

}  // namespace zebcam::tool::compare
