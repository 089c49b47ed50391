#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace NSCam::Utils::ULog {

/// Severity on the camera logger's own scale; a smaller number is more severe.
enum LogLevel : uint32_t {
    LOG_LEVEL_ERROR = 1,
    LOG_LEVEL_WARNING = 2,
    LOG_LEVEL_INFO = 3,
    LOG_LEVEL_DEBUG = 5,
};

/// Bits of `ULogger::sMode`. LogModeCameraMask tells whether the camera logger gets a copy.
enum LogMode : uint32_t {
    LOG_MODE_ANDROID = 1U << 0,      ///< write to the Android log
    LOG_MODE_CAMERA = 1U << 1,       ///< write to the camera logger
    LOG_MODE_CAMERA_DUMP = 1U << 3,  ///< write to the camera logger's dump ring
    LOG_MODE_CAMERA_MASK = LOG_MODE_CAMERA | LOG_MODE_CAMERA_DUMP,
};

/// Module of the ZSL processor. A normal module's info and debug lines pass when bit 21 of
/// `sNormalDetailsMask` (normal modules) and one of the module's area bits are set.
constexpr uint32_t MOD_PIPELINE_MODEL_ZSL = 0x20700c;

/**
 * The camera stack's logger and its global settings.
 *
 * The settings are read for every line, from any thread, and may be changed at any time.
 */
class ULogger {
public:
    static std::atomic<uint32_t> sMode;               ///< LogMode bits
    static std::atomic<uint32_t> sDetailsLevel;       ///< largest LogLevel that goes out
    static std::atomic<uint32_t> sNormalDetailsMask;  ///< modules that may write info and debug
    static std::atomic<ULogger*> sULogger;            ///< where camera lines go; null: nowhere

    /// Takes one line. `message` is zero-terminated, `length` excludes the terminator, neither
    /// outlives the call. May be called from several threads at once and must not throw.
    virtual void onLog(char const* message, size_t length, uint32_t moduleId, char const* tag,
                       uint32_t level) = 0;

protected:
    ~ULogger() = default;
};

}  // namespace NSCam::Utils::ULog
