#include "log/Logcat.h"

#include <android/log.h>
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <ulog/ULogger.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <string_view>

#include "base/Text.h"

namespace zebcam::tool::log {

namespace {

char androidPriority(uint32_t priority) {
    constexpr std::string_view LETTERS = "VDIWEF";
    return priority >= ANDROID_LOG_VERBOSE && priority <= ANDROID_LOG_FATAL
               ? LETTERS[priority - ANDROID_LOG_VERBOSE]
               : '\0';
}

char cameraPriority(uint32_t level) {
    switch (level) {
        case NSCam::Utils::ULog::LOG_LEVEL_ERROR:
            return 'E';
        case NSCam::Utils::ULog::LOG_LEVEL_WARNING:
            return 'W';
        case NSCam::Utils::ULog::LOG_LEVEL_INFO:
            return 'I';
        default:
            return 'D';
    }
}

constexpr std::string_view PRIORITIES = "VDIWEFA";
constexpr std::string_view BUFFER_MARK = "--------- ";

std::string_view trimmed(std::string_view text) {
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

/// The fraction of a second that `digits` stand for, in ns; finer ones do not count.
int64_t fractionNs(std::string_view digits) {
    int64_t ns = 0;
    int64_t unit = 1'000'000'000;
    for (char const digit : digits.substr(0, 9)) {
        unit /= 10;
        ns += unit * (digit - '0');
    }
    return ns;
}

/// Takes `MM-DD hh:mm:ss.fff` and the blanks behind it, with a year before and more decimals if the
/// log has them; without decimals where they are not needed.
std::optional<LogTime> takeTime(std::string_view& text, bool needsDecimals = true) {
    uint32_t year = 0;
    uint32_t month = 0;
    uint32_t day = 0;
    uint32_t hour = 0;
    uint32_t minute = 0;
    uint32_t second = 0;
    std::string_view rest;
    base::FormFields const fields = {{"Y", &year},   {"M", &month},  {"D", &day},    {"h", &hour},
                                     {"m", &minute}, {"s", &second}, {"rest", &rest}};
    bool hasDecimals = base::match(text, "<M>-<D> <h>:<m>:<s>.<rest>", fields) ||
                       base::match(text, "<Y>-<M>-<D> <h>:<m>:<s>.<rest>", fields);
    bool const isTime =
        hasDecimals || (!needsDecimals && base::match(text, "<M>-<D> <h>:<m>:<s> <rest>", fields));
    size_t const digits =
        hasDecimals ? std::min(rest.find_first_not_of("0123456789"), rest.size()) : 0;
    if (!isTime || (hasDecimals && digits == 0) || month > 12 || day > 31 || hour > 23 ||
        minute > 59 || second > 60) {
        return std::nullopt;
    }
    // Only differences count: months of one length do, and the century is left out to fit 64 bits.
    int64_t const days = (int64_t{year % 100} * 12 + month) * 31 + day;
    LogTime time;
    time.ns = ((days * 24 + hour) * 60 + minute) * 60 + second;
    time.ns = time.ns * 1'000'000'000 + fractionNs(rest.substr(0, digits));
    rest.remove_prefix(digits);
    time.text = text.substr(0, text.size() - rest.size());
    rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
    text = rest;
    return time;
}

/// A line as the log library prints it on Linux, to standard error: tag and level come first, and
/// the time has no decimals.
std::optional<LogRecord> parsePrinted(std::string_view line) {
    LogRecord record;
    uint32_t pid = 0;
    uint32_t tid = 0;
    std::string_view tag;
    std::string_view rest;
    if (!base::match(line, "<tag> <P> <rest>",
                     {{"tag", &tag}, {"P", &record.priority}, {"rest", &rest}})) {
        return std::nullopt;
    }
    record.time = takeTime(rest, false);
    std::string_view message;
    if (!record.time || tag.empty() || PRIORITIES.find(record.priority) == std::string_view::npos ||
        !base::match(rest, "<pid> <tid> <message>",
                     {{"pid", &pid}, {"tid", &tid}, {"message", &message}})) {
        return std::nullopt;
    }
    record.pid = pid;
    record.tid = tid;
    record.tag = tag;
    record.message = message;
    return record;
}

/// The header of a line and the message behind it; the message of the format `long` comes on lines
/// of its own. Nothing when the line has no header of a known format.
std::optional<LogRecord> parseHeader(std::string_view line, bool& isLong) {
    LogRecord record;
    uint32_t pid = 0;
    uint32_t tid = 0;
    std::string_view tag;
    std::string_view message;
    base::FormFields const fields = {{"P", &record.priority},
                                     {"pid", &pid},
                                     {"tid", &tid},
                                     {"tag", &tag},
                                     {"message", &message}};
    if (auto printed = parsePrinted(line)) {
        return printed;
    }
    isLong = line.starts_with("[ ");
    line.remove_prefix(isLong ? 2 : 0);
    record.time = takeTime(line);
    // The format `time` is `brief` behind a time. It comes first: its bracket and slash are in
    // places where `threadtime` has numbers.
    bool const isBrief = !isLong && base::match(line, "<P>/<tag>(<pid>):<message>", fields);
    bool isGood = isBrief;
    if (isLong) {
        isGood = record.time && base::match(trimmed(line), "<pid>:<tid> <P>/<tag> ]", fields);
    } else if (record.time && !isBrief) {
        // The option `uid` adds a user's number or name.
        isGood = base::match(line, "<pid> <tid> <P> <tag>:<message>", fields) ||
                 base::match(line, "<user> <pid> <tid> <P> <tag>:<message>", fields);
    }
    if (!isGood || PRIORITIES.find(record.priority) == std::string_view::npos) {
        return std::nullopt;
    }
    record.pid = pid;
    if (!isBrief) {
        record.tid = tid;
    }
    record.tag = trimmed(tag);
    record.message = message.substr(message.starts_with(' ') ? 1 : 0);
    return record;
}

// A log that went through another system may have other line ends, a byte order mark, or two bytes
// a character. Without these bytes they all read the same.
void cleanUp(std::string& line, bool isFirst) {
    if (isFirst) {
        for (std::string_view const mark : {"\xef\xbb\xbf", "\xff\xfe"}) {
            if (line.starts_with(mark)) {
                line.erase(0, mark.size());
            }
        }
    }
    std::erase(line, '\0');
    line.erase(line.find_last_not_of('\r') + 1);
}

}  // namespace

LogRecord fromLogLine(host::LogLine const& line) {
    LogRecord record;
    record.priority = line.output == host::LogLine::Output::Android ? androidPriority(line.level)
                                                                    : cameraPriority(line.level);
    record.tag = line.tag;
    record.message = line.message;
    return record;
}

bool LogcatReader::next(LogRecord& record) {
    bool isCut = false;
    while (readLine(mLine, isCut)) {
        ++mLineNumber;
        cleanUp(mLine, mLineNumber == 1);
        // The format `long` puts an empty line behind each message.
        if (mLine.find_first_not_of(' ') == std::string::npos) {
            continue;
        }
        // It stands between messages, so the one before it is complete.
        if (mLine.starts_with(BUFFER_MARK)) {
            mLongHeader.reset();
        }
        bool isLong = false;
        if (auto header = parseHeader(mLine, isLong)) {
            if (isLong) {
                mLongHeader = std::move(header);
                continue;
            }
            mLongHeader.reset();
            record = std::move(*header);
        } else {
            record = mLongHeader.value_or(LogRecord());
            record.message = mLine;
        }
        record.sourceLine = mLineNumber;
        record.isCut = isCut;
        return true;
    }
    return false;
}

bool LogcatReader::readLine(std::string& line, bool& isCut) {
    line.clear();
    isCut = false;
    bool isStarted = false;
    while (!mUnread.empty() || fill()) {
        isStarted = true;
        size_t const end = std::min(mUnread.find('\n'), mUnread.size());
        size_t const room = MAX_LINE - line.size();
        // What does not fit is read on and thrown away, up to the end of the line.
        isCut = isCut || end > room;
        line.append(mUnread.substr(0, std::min(end, room)));
        bool const isComplete = end < mUnread.size();
        mUnread.remove_prefix(isComplete ? end + 1 : end);
        if (isComplete) {
            return true;
        }
    }
    // The last line of a file may lack its end.
    return isStarted;
}

bool LogcatReader::fill() {
    // What is there, without waiting for a whole buffer: the lines of a log that is followed are to
    // be told as they come.
    auto const size = static_cast<std::streamsize>(mBuffer.size());
    bool const hasMore = mIn.peek() != std::istream::traits_type::eof();
    std::streamsize count = hasMore ? mIn.readsome(mBuffer.data(), size) : 0;
    // Standard input does not tell what is there.
    if (hasMore && count == 0) {
        mIn.read(mBuffer.data(), size);
        count = mIn.gcount();
    }
    mUnread = {mBuffer.data(), static_cast<size_t>(count)};
    return !mUnread.empty();
}

std::string toThreadtime(LogRecord const& record, int64_t timeNs) {
    std::chrono::sys_time<std::chrono::milliseconds> const time(
        std::chrono::milliseconds(std::max<int64_t>(timeNs, 0) / 1'000'000));
    std::string const header =
        fmt::format("{:%m-%d %H:%M}:{:%S} {:5} {:5} {} {:<8}: ",
                    std::chrono::time_point_cast<std::chrono::seconds>(time),
                    time.time_since_epoch(), record.pid.value_or(0), record.tid.value_or(0),
                    record.priority != 0 ? record.priority : 'D', record.tag);
    std::string text;
    std::string_view rest = record.message;
    // Once at least: an empty message is a line too.
    do {
        size_t const end = std::min(rest.find('\n'), rest.size());
        text += header;
        text += rest.substr(0, end);
        text += '\n';
        rest.remove_prefix(std::min(end + 1, rest.size()));
    } while (!rest.empty());
    return text;
}

}  // namespace zebcam::tool::log
