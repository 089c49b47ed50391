#pragma once

#include <array>
#include <cstddef>
#include <istream>
#include <optional>
#include <string>
#include <string_view>

#include "explain/LogRecord.h"

namespace zebcam::tool {

/**
 * Reads what `adb logcat` printed, in its formats threadtime, time, brief and long, line by line;
 * a file may even change its format. Any content is fine: what has no header of a format comes as a
 * record without a tag. Lines without text are left out.
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

}  // namespace zebcam::tool
