#include "Log.h"

#include <android/log.h>
#include <debugutils/testLog.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace NSCam::v3::pipeline::model::log {

using ULog::ULogger;

namespace {

constexpr char SOURCE[] = "pipeline/model/zsl/ZslProcessor";
// The module's bits in the details mask: its own, and those of its area, any of which will do.
constexpr uint32_t NORMAL_MODULE_BIT = 1U << 21;
constexpr uint32_t AREA_BITS = 0x7000;
constexpr useconds_t HOLD_STEP_US = 500000;

struct LevelTraits {
    android_LogPriority priority;
    uint32_t cameraLevel;
    bool needsModule;  ///< goes out only when the module's lines are asked for
};

LevelTraits traitsOf(Level level) {
    switch (level) {
        case Level::Error:
            return {ANDROID_LOG_ERROR, ULog::LOG_LEVEL_ERROR, false};
        case Level::Warning:
            return {ANDROID_LOG_WARN, ULog::LOG_LEVEL_WARNING, false};
        case Level::Info:
            return {ANDROID_LOG_INFO, ULog::LOG_LEVEL_INFO, true};
        case Level::Debug:
            break;
    }
    return {ANDROID_LOG_DEBUG, ULog::LOG_LEVEL_DEBUG, true};
}

bool isModuleEnabled() {
    uint32_t const mask = ULogger::sNormalDetailsMask.load(std::memory_order_relaxed);
    return (mask & NORMAL_MODULE_BIT) != 0 && (mask & AREA_BITS) != 0;
}

/// A line, cut to what one log record holds.
class Line {
public:
    Line(char const* format, va_list args) __attribute__((format(printf, 2, 0))) {
        vsnprintf(mText, sizeof(mText), format, args);
        mText[sizeof(mText) - 1] = '\0';
    }

    char const* text() const { return mText; }

    void toCamera(uint32_t cameraLevel) const {
        if ((ULogger::sMode.load(std::memory_order_relaxed) & ULog::LOG_MODE_CAMERA_MASK) == 0) {
            return;
        }
        // Pairs with whoever set the logger up: it must be whole before a line comes to it.
        if (ULogger* const logger = ULogger::sULogger.load(std::memory_order_acquire)) {
            logger->onLog(mText, strlen(mText), ULog::MOD_PIPELINE_MODEL_ZSL, TAG, cameraLevel);
        }
    }

    void toAndroid(Level level, char const* function, int line) const {
        if ((ULogger::sMode.load(std::memory_order_relaxed) & ULog::LOG_MODE_ANDROID) != 0) {
            printToAndroid(level, function, line);
        }
    }

    void printToAndroid(Level level, char const* function, int line) const {
        android_LogPriority const priority = traitsOf(level).priority;
        // Only here: the camera's logger has no room for it, and other lines are found by their
        // text.
        if (level == Level::Error) {
            __android_log_print(priority, TAG, "%s (%s){#%d:%s}", mText, function, line, SOURCE);
        } else {
            __android_log_print(priority, TAG, "%s", mText);
        }
    }

private:
    char mText[1024] = {};
};

}  // namespace

bool isEnabled(Level level) {
    LevelTraits const traits = traitsOf(level);
    if (level == Level::Error) {
        return true;  // whatever the settings: an error may not come a second time
    }
    // Settings change while lines go out; one line more or less does no harm, hence no ordering.
    if (ULogger::sDetailsLevel.load(std::memory_order_relaxed) < traits.cameraLevel) {
        return false;
    }
    return !traits.needsModule || isModuleEnabled();
}

void write(Level level, char const* function, int line, char const* format, ...) {
    va_list args;
    va_start(args, format);
    Line const text(format, args);
    va_end(args);
    text.toAndroid(level, function, line);
    text.toCamera(traitsOf(level).cameraLevel);
}

void fatal(char const* format, ...) {
    va_list args;
    va_start(args, format);
    Line const text(format, args);
    va_end(args);
    text.toCamera(ULog::LOG_LEVEL_ERROR);
    // Prints the line, too, and leaves it in the crash report.
    __android_log_assert(nullptr, TAG, "%s", text.text());
}

void hold(char const* function, int line, char const* format, ...) {
    if (zebcam_testLog(TAG, 'E')) {
        va_list args;
        va_start(args, format);
        Line const text(format, args);
        va_end(args);
        // Whatever the mode: nobody would find a thread that hangs without a word.
        text.printToAndroid(Level::Error, function, line);
        text.toCamera(ULog::LOG_LEVEL_ERROR);
    }
    for (;;) {
        usleep(HOLD_STEP_US);
    }
}

}  // namespace NSCam::v3::pipeline::model::log
