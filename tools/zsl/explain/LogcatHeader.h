#pragma once

#include <optional>
#include <string_view>

#include "explain/LogRecord.h"

namespace zebcam::tool {

/// The header of a logcat line and, but for the format `long`, the message behind it.
struct LogcatHeader {
    LogRecord record;
    bool isLong = false;  ///< the message follows on lines of its own
};

/// Nothing when the line has no header of a known format.
std::optional<LogcatHeader> parseLogcatHeader(std::string_view line);

}  // namespace zebcam::tool
