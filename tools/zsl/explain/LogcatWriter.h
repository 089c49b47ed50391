#pragma once

#include <cstdint>
#include <string>

#include "explain/LogRecord.h"

namespace zebcam::tool {

/// The record as `adb logcat -v threadtime` prints it: a line with a header for each line of the
/// message. `timeNs` counts from the first of January; what the record does not know is 0.
std::string toThreadtime(LogRecord const& record, int64_t timeNs);

}  // namespace zebcam::tool
