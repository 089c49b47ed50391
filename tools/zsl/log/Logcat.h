#pragma once

#include <host/LogCapture.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <istream>
#include <optional>
#include <string>
#include <string_view>

namespace zebcam::tool::log {

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

/**
 * Reads what `adb logcat` printed, in its formats threadtime, time, brief and long, and what the
 * log library prints on Linux, line by line; a file may even change its format. Any content is
 * fine: what has no header of a format comes as a record without a tag. Lines without text are left
 * out.
 *
 * A message of several lines comes as a record a line: only so it looks the same in every format,
 * since all but `long` repeat the header.
 */
class LogcatReader {
public:
    /// A longer line is cut to so many bytes, so that no input fills the memory.
    static constexpr size_t MAX_LINE = 64 * 1024;

    /// `in` is borrowed for the lifetime of this object.
    explicit LogcatReader(std::istream& in) : mIn(in) {}

    /// False at the end of the stream, and when it cannot be read further (`in.bad()`).
    bool next(LogRecord& record);

private:
    bool readLine(std::string& line, bool& isCut);
    bool fill();

    std::istream& mIn;
    std::array<char, MAX_LINE> mBuffer{};
    std::string_view mUnread;  ///< in mBuffer
    std::string mLine;
    size_t mLineNumber = 0;
    std::optional<LogRecord> mLongHeader;  ///< of the message of several lines that is being read
};

/// The record as `adb logcat -v threadtime` prints it: a line with a header for each line of the
/// message. `timeNs` counts from the first of January; what the record does not know is 0.
std::string toThreadtime(LogRecord const& record, int64_t timeNs);

}  // namespace zebcam::tool::log
