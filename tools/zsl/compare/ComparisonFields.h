#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>

#include "compare/ComparisonRow.h"

namespace zebcam::tool {

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

}  // namespace zebcam::tool
