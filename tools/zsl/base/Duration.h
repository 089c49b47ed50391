#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace zebcam::tool::base {

/// The ns of a time as `1.2s`, `350ms`, `5us` or `-20ns`. Throws std::invalid_argument, with a text
/// that says what was expected and found, for anything else, for parts of a ns and for what does
/// not fit 64 bits.
int64_t parseDuration(std::string_view text);

/// `ns` in a form that parseDuration reads: in seconds, without needless zeros.
std::string formatDuration(int64_t ns);

/// `ns` in ms (in s) with two (three) decimals, rounded half away from zero.
std::string formatMs(int64_t ns);
std::string formatSeconds(int64_t ns);

}  // namespace zebcam::tool::base
