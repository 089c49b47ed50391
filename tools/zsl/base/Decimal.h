#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace zebcam::tool::base {

/// The whole number that a decimal one such as `-12`, `28670.33941` or `2.8e13` comes to, times ten
/// to the power of `exponent`: nothing when it is none or exceeds 64 bits. What is left behind the
/// point is rounded away (half away from zero) if the exponent is positive: a unit was converted,
/// whose last digits mean nothing. With none it must be zeros.
std::optional<int64_t> scaledDecimal(std::string_view text, int exponent = 0);

}  // namespace zebcam::tool::base
