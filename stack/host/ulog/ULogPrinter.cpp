#include <ulog/ULogPrinter.h>
#include <ulog/ULogger.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <utility>

namespace NSCam::Utils::ULog {

namespace {

// A module's info and debug lines pass when the settings share a bit of its class (normal, ...)
// and a bit of its area with it.
constexpr uint32_t MODULE_CLASS_MIN = 0x100000;
constexpr uint32_t MODULE_AREA_MASK = 0xff000;

// Longer formatted lines are cut, as the device cuts them; plain ones are not.
constexpr size_t FORMAT_BUFFER_SIZE = 1024;

android_LogPriority toAndroidPriority(uint32_t level) {
    switch (level) {
        case 0:  // below every level: whoever prints it means it to be seen
        case LOG_LEVEL_ERROR:
            return ANDROID_LOG_ERROR;
        case LOG_LEVEL_WARNING:
            return ANDROID_LOG_WARN;
        case LOG_LEVEL_INFO:
            return ANDROID_LOG_INFO;
        default:
            return ANDROID_LOG_DEBUG;
    }
}

}  // namespace

// A process that sets nothing up gets errors and warnings, in the Android log.
std::atomic<uint32_t> ULogger::sMode{LOG_MODE_ANDROID};
std::atomic<uint32_t> ULogger::sDetailsLevel{LOG_LEVEL_WARNING};
std::atomic<uint32_t> ULogger::sNormalDetailsMask{0};
std::atomic<ULogger*> ULogger::sULogger{nullptr};

ULogPrinter::ULogPrinter(uint32_t moduleId, std::string tag, uint32_t level)
    : mLogLevel(level),
      mModuleId(moduleId),
      mTag(std::move(tag)),
      mLogPrinter(mTag.c_str(), toAndroidPriority(level)) {
}

bool ULogPrinter::passes() const {
    if (ULogger::sDetailsLevel < mLogLevel) {
        return false;
    }
    if (mLogLevel < LOG_LEVEL_INFO) {  // errors and warnings pass whatever the module
        return true;
    }
    uint32_t const shared = ULogger::sNormalDetailsMask & mModuleId;
    return shared >= MODULE_CLASS_MIN && (shared & MODULE_AREA_MASK) != 0;
}

void ULogPrinter::printLine(char const* string) {
    if (!passes()) {
        return;
    }
    char const* const line = string ? string : "";
    uint32_t const mode = ULogger::sMode;
    if ((mode & LOG_MODE_ANDROID) != 0) {
        mLogPrinter.printLine(line);
    }
    if ((mode & LOG_MODE_CAMERA_MASK) != 0) {
        if (ULogger* const logger = ULogger::sULogger) {
            logger->onLog(line, std::strlen(line), mModuleId, mTag.c_str(), mLogLevel);
        }
    }
}

void ULogPrinter::printFormatLine(char const* format, ...) {
    if (!passes()) {  // before the formatting, which costs more than everything else here
        return;
    }
    char buffer[FORMAT_BUFFER_SIZE] = {};
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(buffer, sizeof buffer, format, arguments);
    va_end(arguments);
    printLine(buffer);
}

}  // namespace NSCam::Utils::ULog
