#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "replay/ReplayOptions.h"

namespace zebcam::tool {

/// The values of options. Each reads `text` or throws std::invalid_argument with a text that says
/// what was expected and found.

int64_t parseWholeNumber(std::string const& text, int64_t min, int64_t max);

/// A time from 0 to an hour, in ns.
int64_t parseDelay(std::string const& text);

/// A time in whole ms, in ms.
int64_t parseMilliseconds(std::string const& text);

/// `default`, `cshot`, `multiframe`, or the path of a library (which contains a slash or ends with
/// `.so`).
PolicyOption parsePolicy(std::string const& text);

/// `error`, `warning`, `info` or `debug`, as a ULog::LogLevel.
uint32_t parseLogLevel(std::string const& text);

/// `KEY=VALUE`; the value may be empty or contain further equals signs.
std::pair<std::string, std::string> parseProperty(std::string const& text);

}  // namespace zebcam::tool
