#pragma once

#include <host/Services.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zebcam::tool {

/// When a line was logged.
struct LogTime {
    int64_t ns = 0;    ///< comparable within one log
    std::string text;  ///< as the log has it
};

/// A line of a log. What its source does not tell stays empty.
struct LogRecord {
    size_t sourceLine = 0;  ///< line of the file it comes from, from 1; 0: none
    std::optional<LogTime> time;
    std::optional<uint32_t> pid;
    std::optional<uint32_t> tid;
    char priority = 0;  ///< V, D, I, W, E, F or A; 0: unknown
    std::string tag;    ///< empty for a line that no logger wrote
    std::string message;
    bool isCut = false;  ///< the reader left its end out
};

/// The record of a line as the host's logger hands it out. A line may go to both outputs; whoever
/// explains a log passes on those of one.
LogRecord fromLogLine(host::LogLine const& line);

/// `text` with each byte that is not printable ASCII as \xHH, fit for a terminal and for JSON.
std::string printable(std::string_view text);

}  // namespace zebcam::tool
