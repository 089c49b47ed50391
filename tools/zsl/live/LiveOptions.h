#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "replay/ReplayOptions.h"

namespace zebcam::tool {

/// How a pipeline runs in real time. Of `replay`, what makes a schedule of its own (presses,
/// flushes, dumps) is not used.
struct LiveOptions {
    ReplayOptions replay;
    std::optional<int64_t> durationNs;      ///< none: once through the recording
    int64_t pressEveryNs = 500'000'000;     ///< the first press comes one such time after the start
    int64_t dumpEveryNs = 1'000'000'000;    ///< at least 1 ms
    std::optional<std::string> recordPath;  ///< where a recorder writes what the processor sees
};

}  // namespace zebcam::tool
