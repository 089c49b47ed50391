#include "log/Logcat.h"

#include <android/log.h>
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <ulog/ULogger.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <string>
#include <string_view>

#include "log/ProcessorLine.h"

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

}  // namespace

LogRecord fromLogLine(host::LogLine const& line) {
    LogRecord record;
    record.priority = line.output == host::LogLine::Output::Android ? androidPriority(line.level)
                                                                    : cameraPriority(line.level);
    record.tag = line.tag;
    record.message = line.message;
    return record;
}

namespace {

constexpr std::string_view PRIORITIES = "VDIWEFA";

bool isPriority(std::string_view text) {
    return text.size() == 1 && PRIORITIES.find(text[0]) != std::string_view::npos;
}

std::string_view trimmed(std::string_view text) {
    while (text.ends_with(' ')) {
        text.remove_suffix(1);
    }
    return text;
}

/// The fraction of a second that the digits at the start of `text` stand for, in ns.
int64_t fractionNs(std::string_view text) {
    int64_t ns = 0;
    int64_t unit = 1'000'000'000;
    for (char const c : text) {
        if (c < '0' || c > '9' || unit == 1) {
            break;
        }
        unit /= 10;
        ns += unit * (c - '0');
    }
    return ns;
}

size_t digitsAt(std::string_view text) {
    size_t const end = text.find_first_not_of("0123456789");
    return end == std::string_view::npos ? text.size() : end;
}

/// Takes `MM-DD hh:mm:ss.fff`, with a year before and more decimals if the log has them.
std::optional<LogTime> takeTime(std::string_view& text) {
    unsigned year = 0;
    unsigned month = 0;
    unsigned day = 0;
    unsigned hour = 0;
    unsigned minute = 0;
    unsigned second = 0;
    TextScan scan(text);
    scan.num(month).lit("-").num(day);
    if (scan.has("-")) {
        year = month;
        month = day;
        scan.num(day);
    }
    scan.lit(" ").num(hour).lit(":").num(minute).lit(":").num(second).lit(".");
    size_t const digits = digitsAt(scan.rest());
    if (!scan.isGood() || digits == 0 || month > 12 || day > 31 || hour > 23 || minute > 59 ||
        second > 60) {
        return std::nullopt;
    }
    // Only differences count: months of one length do, and the century is left out to fit 64 bits.
    int64_t const days = (int64_t{year % 100} * 12 + month) * 31 + day;
    LogTime time;
    time.ns = ((days * 24 + hour) * 60 + minute) * 60 + second;
    time.ns = time.ns * 1'000'000'000 + fractionNs(scan.rest());
    auto const end = static_cast<size_t>(scan.rest().data() - text.data()) + digits;
    time.text = text.substr(0, end);
    text.remove_prefix(end);
    return time;
}

/// `P/TAG     ( 1234): message`
bool readBrief(std::string_view text, LogRecord& record) {
    if (text.size() < 2 || !isPriority(text.substr(0, 1)) || text[1] != '/') {
        return false;
    }
    for (size_t at = text.find('('); at != std::string_view::npos; at = text.find('(', at + 1)) {
        uint32_t pid = 0;
        TextScan scan(text.substr(at + 1));
        if (!scan.blanks().num(pid).lit("):").isGood()) {
            continue;
        }
        scan.has(" ");
        record.priority = text[0];
        record.tag = trimmed(text.substr(2, at - 2));
        record.pid = pid;
        record.message = scan.rest();
        return true;
    }
    return false;
}

/// ` [uid] 1234  1235 P TAG     : message`, from behind the time on. The uid may be a name.
bool readThreadtime(std::string_view text, LogRecord& record) {
    std::array<std::string_view, 4> words;
    size_t count = 0;
    TextScan scan(text);
    for (; count < words.size(); ++count) {
        if (!scan.blanks().until(" ", words[count]).isGood()) {
            return false;
        }
        if (count >= 2 && isPriority(words[count])) {
            break;
        }
    }
    uint32_t pid = 0;
    uint32_t tid = 0;
    if (count == words.size() || !TextScan(words[count - 2]).num(pid).isDone() ||
        !TextScan(words[count - 1]).num(tid).isDone()) {
        return false;
    }
    std::string_view tag;
    if (!scan.until(":", tag).isGood()) {
        return false;
    }
    scan.has(" ");
    record.priority = words[count][0];
    record.tag = trimmed(tag);
    record.pid = pid;
    record.tid = tid;
    record.message = scan.rest();
    return true;
}

/// `[ MM-DD hh:mm:ss.fff  1234: 1235 P/TAG     ]`
bool readLong(std::string_view text, LogRecord& record) {
    if (!text.starts_with("[ ") || !text.ends_with(" ]")) {
        return false;
    }
    text = text.substr(2, text.size() - 4);
    record.time = takeTime(text);
    uint32_t pid = 0;
    uint32_t tid = 0;
    TextScan scan(text);
    scan.blanks().num(pid).lit(":").blanks().num(tid).lit(" ");
    std::string_view const rest = scan.rest();
    if (!record.time || !scan.isGood() || rest.size() < 2 || !isPriority(rest.substr(0, 1)) ||
        rest[1] != '/') {
        return false;
    }
    record.priority = rest[0];
    record.tag = trimmed(rest.substr(2));
    record.pid = pid;
    record.tid = tid;
    return true;
}

}  // namespace

std::optional<LogcatHeader> parseLogcatHeader(std::string_view line) {
    LogcatHeader header;
    if (line.starts_with('[')) {
        header.isLong = readLong(trimmed(line), header.record);
        return header.isLong ? std::optional(std::move(header)) : std::nullopt;
    }
    header.record.time = takeTime(line);
    bool isGood = false;
    if (header.record.time) {
        std::string_view rest = line;
        rest.remove_prefix(rest.starts_with(' ') ? 1 : 0);
        isGood = readBrief(rest, header.record) || readThreadtime(line, header.record);
    } else {
        isGood = readBrief(line, header.record);
    }
    return isGood ? std::optional(std::move(header)) : std::nullopt;
}

namespace {

constexpr std::string_view BUFFER_MARK = "--------- ";

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

bool LogcatReader::next(LogRecord& record) {
    bool isCut = false;
    while (readLine(mLine, isCut)) {
        ++mLineNumber;
        cleanUp(mLine, mLineNumber == 1);
        if (mLine.find_first_not_of(' ') == std::string::npos) {
            continue;
        }
        if (mLine.starts_with(BUFFER_MARK)) {
            mLongHeader.reset();
        }
        if (auto header = parseLogcatHeader(mLine)) {
            if (header->isLong) {
                mLongHeader = std::move(header->record);
                continue;
            }
            mLongHeader.reset();
            record = std::move(header->record);
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
        isCut = isCut || end > room;
        line.append(mUnread.substr(0, std::min(end, room)));
        bool const isComplete = end < mUnread.size();
        mUnread.remove_prefix(isComplete ? end + 1 : end);
        if (isComplete) {
            return true;
        }
    }
    return isStarted;
}

bool LogcatReader::fill() {
    mIn.read(mBuffer.data(), static_cast<std::streamsize>(mBuffer.size()));
    mUnread = {mBuffer.data(), static_cast<size_t>(mIn.gcount())};
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
