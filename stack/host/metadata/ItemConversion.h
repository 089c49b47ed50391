#pragma once

#include <metadata/IMetadataEntry.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <type_traits>
#include <utility>

namespace NSCam {

/// The fraction nearest to `value` whose denominator is a power of two up to 2^30.
inline Rational toRational(double value) {
    constexpr double MAX = std::numeric_limits<int32_t>::max();
    if (std::isnan(value)) {
        return {};
    }
    value = std::clamp(value, -MAX, MAX);
    int32_t denominator = 1 << 30;
    while (denominator > 1 && std::abs(value) * denominator > MAX) {
        denominator /= 2;
    }
    int32_t const numerator = static_cast<int32_t>(std::lround(value * denominator));
    int32_t const divisor = std::gcd(numerator, denominator);
    return {numerator / divisor, denominator / divisor};
}

/// An item as another type; IEntry::itemAt says how.
template <MetadataItem To, MetadataItem From>
To convertItem(From const& value) {
    if constexpr (std::is_same_v<To, From>) {
        return value;
    } else if constexpr (std::is_same_v<From, Rational>) {
        return value.denominator == 0
                   ? To{}
                   : convertItem<To>(static_cast<double>(value.numerator) / value.denominator);
    } else if constexpr (std::is_same_v<To, Rational>) {
        return std::is_integral_v<From> ? Rational{convertItem<int32_t>(value), 1}
                                        : toRational(static_cast<double>(value));
    } else if constexpr (std::is_floating_point_v<To>) {
        return static_cast<To>(value);
    } else if constexpr (std::is_integral_v<From>) {
        using Limits = std::numeric_limits<To>;
        return std::in_range<To>(value) ? static_cast<To>(value)
               : value < 0              ? Limits::min()
                                        : Limits::max();
    } else {
        using Limits = std::numeric_limits<To>;
        // max() itself may have no exact floating form; the power of two above it does.
        From const end = std::ldexp(From{1}, Limits::digits);
        return std::isnan(value)                          ? To{}
               : value < static_cast<From>(Limits::min()) ? Limits::min()
               : value >= end                             ? Limits::max()
                                                          : static_cast<To>(value);
    }
}

}  // namespace NSCam
