#pragma once

#include <metadata/IMetadata.h>
#include <metastore/IMetadataProvider.h>
#include <utils/Printer.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

/// The process-wide services of the camera stack, as far as a program sets them up on the host.
namespace zebcam::host {

/// Gives the device opened under `openId` static characteristics (replacing earlier ones), and
/// takes them away again when it is destroyed, unless they were replaced.
class DeviceRegistration {
public:
    DeviceRegistration(int32_t openId, NSCam::IMetadata staticCharacteristics);
    ~DeviceRegistration();
    DeviceRegistration(DeviceRegistration const&) = delete;
    DeviceRegistration& operator=(DeviceRegistration const&) = delete;

private:
    int32_t const mOpenId;
    android::sp<NSCam::IMetadataProvider> const mpProvider;
};

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
    struct Impl;
    std::unique_ptr<Impl> mImpl;
};

/// Whether `zebcam_testLog` lets lines pass; true at the start.
void setTestLog(bool passes);

/// Whether IDebuggeeManager::get() gives the manager; true at the start.
void setDebuggeeManagerAvailable(bool available);

/// The names of the attached debuggees, in ascending priority number and then in the order of their
/// attachment. Works also while the manager is made unavailable.
std::vector<std::string> debuggeeNames();

/// Prints, in that order, the name of each debuggee as a line and then what it says. A debuggee
/// that is detached meanwhile may still be asked.
void dumpDebuggees(android::Printer& printer, std::vector<std::string> const& options = {});

}  // namespace zebcam::host
