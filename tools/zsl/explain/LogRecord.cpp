#include "explain/LogRecord.h"

#include <android/log.h>
#include <fmt/format.h>
#include <ulog/ULogger.h>

#include <algorithm>

namespace zebcam::tool {
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

bool isPrintable(char c) {
    return c >= ' ' && c <= '~';
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

std::string printable(std::string_view text) {
    if (std::all_of(text.begin(), text.end(), isPrintable)) {
        return std::string(text);
    }
    std::string out;
    for (char const c : text) {
        if (isPrintable(c)) {
            out += c;
        } else {
            out += fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
        }
    }
    return out;
}

}  // namespace zebcam::tool
