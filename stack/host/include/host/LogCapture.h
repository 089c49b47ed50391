#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace NSCam::Utils::ULog {
class ULogger;
}

/// The process's logs, camera logger and Android log, in a program's hands.
namespace zebcam::host {

/// One line for the camera logger, or for the Android log.
struct LogLine {
    enum class Output { Camera, Android } output = Output::Camera;
    uint32_t moduleId = 0;  ///< 0 for the Android log
    std::string tag;
    /// Camera logger's scale (ULog::LogLevel) or Android's priority, by output.
    uint32_t level = 0;
    std::string message;
};

/// Settings of the camera logger; see ULogger.
struct LogSettings {
    uint32_t mode = 0;
    uint32_t detailsLevel = 0;
    uint32_t normalDetailsMask = 0;

    /// Everything up to `level` of the processor's module, to the camera logger only.
    static LogSettings camera(uint32_t level);
};

/**
 * Installs logger settings and a sink for the camera logger and the Android log; puts back what
 * was there when it is destroyed (for the Android log: standard error). The sink is called under a
 * lock, one line at a time, on the thread that logs; it must not log and must not throw. At most
 * one at a time (std::logic_error).
 */
class LogCapture {
public:
    using Sink = std::function<void(LogLine const&)>;
    LogCapture(LogSettings settings, Sink sink);
    ~LogCapture();
    LogCapture(LogCapture const&) = delete;
    LogCapture& operator=(LogCapture const&) = delete;

private:
    Sink const mSink;
    // What there was before
    LogSettings mSettings;
    NSCam::Utils::ULog::ULogger* mLogger = nullptr;
    int mMinimumPriority = 0;
};

/// Whether `zebcam_testLog` lets lines pass; true at the start.
void setTestLog(bool passes);

}  // namespace zebcam::host
