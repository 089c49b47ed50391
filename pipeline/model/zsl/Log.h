#pragma once

#include <ulog/ULogger.h>

#include <cstdint>

/**
 * The processor's log lines.
 *
 * A line begins with the name of its function in brackets; the macros add it, the `_AS` forms under
 * a name of their own. Arguments are evaluated only when the line goes out.
 */
namespace NSCam::v3::pipeline::model {

namespace ULog = NSCam::Utils::ULog;  // NSCam::v3 has a Utils of its own

namespace log {

/// The processor's log tag, and the name under which it locks metadata.
inline constexpr char TAG[] = "ZebCam/ZslProc";

// The formats print 64-bit numbers with %ld, as every platform of this stack has them.
static_assert(sizeof(long) == sizeof(int64_t));

enum class Level { Error, Warning, Info, Debug };

/// Whether the logger's settings let a line of this level out. Any thread.
bool isEnabled(Level level);

/// Sends a line to the outputs that the logger's mode names. Error lines carry function, line and
/// source in their Android copy.
void write(Level level, char const* function, int line, char const* format, ...)
    __attribute__((format(printf, 4, 5)));

/// Writes the line and aborts the process.
[[noreturn]] void fatal(char const* format, ...) __attribute__((format(printf, 1, 2)));

/// Writes the line, if error lines of the tag may be tested, and then holds the thread for ever, so
/// that the state can be dumped.
[[noreturn]] void hold(char const* function, int line, char const* format, ...)
    __attribute__((format(printf, 3, 4)));

}  // namespace log
}  // namespace NSCam::v3::pipeline::model

#define ZSL_LOG_AS(level, function, format, ...)                                                   \
    do {                                                                                           \
        using namespace NSCam::v3::pipeline::model::log;                                           \
        if (isEnabled(level)) {                                                                    \
            write(level, function, __LINE__, "[%s] " format, function __VA_OPT__(, ) __VA_ARGS__); \
        }                                                                                          \
    } while (false)

#define ZSL_LOGE(...) ZSL_LOG_AS(Level::Error, __func__, __VA_ARGS__)
#define ZSL_LOGW(...) ZSL_LOG_AS(Level::Warning, __func__, __VA_ARGS__)
#define ZSL_LOGI(...) ZSL_LOG_AS(Level::Info, __func__, __VA_ARGS__)
#define ZSL_LOGD(...) ZSL_LOG_AS(Level::Debug, __func__, __VA_ARGS__)
#define ZSL_LOGE_AS(function, ...) ZSL_LOG_AS(Level::Error, function, __VA_ARGS__)
#define ZSL_LOGW_AS(function, ...) ZSL_LOG_AS(Level::Warning, function, __VA_ARGS__)

#define ZSL_LOGI_AS(function, ...) ZSL_LOG_AS(Level::Info, function, __VA_ARGS__)
#define ZSL_LOGD_AS(function, ...) ZSL_LOG_AS(Level::Debug, function, __VA_ARGS__)

#define ZSL_FATAL(format, ...)                                     \
    NSCam::v3::pipeline::model::log::fatal("[Fatal] [%s] " format, \
                                           __func__ __VA_OPT__(, ) __VA_ARGS__)

/// Holds the thread unless `condition` is true.
#define ZSL_ASSERT_AS(condition, function, format, ...)                                        \
    do {                                                                                       \
        if (!(condition)) {                                                                    \
            NSCam::v3::pipeline::model::log::hold(function, __LINE__, "[Assert] [%s] " format, \
                                                  function __VA_OPT__(, ) __VA_ARGS__);        \
        }                                                                                      \
    } while (false)
#define ZSL_ASSERT(condition, ...) ZSL_ASSERT_AS(condition, __func__, __VA_ARGS__)
