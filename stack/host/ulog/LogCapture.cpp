#include <android/log.h>
#include <host/LogCapture.h>
#include <ulog/ULogger.h>
#include <zebcam/ThreadSafety.h>

#include <atomic>
#include <stdexcept>
#include <utility>

using NSCam::Utils::ULog::ULogger;

namespace zebcam::host {

namespace {

/// Takes the lines of both outputs to the sink of the capture, if there is one. It is never
/// destroyed, because a thread may still be inside it when a capture ends.
class Hub final : public ULogger {
public:
    void setSink(LogCapture::Sink const* sink) {
        LockGuard const lock(mLock);
        mSink = sink;
    }

    void write(LogLine const& line) {
        LockGuard const lock(mLock);
        if (mSink) {
            (*mSink)(line);
        }
    }

    void onLog(char const* message, size_t length, uint32_t moduleId, char const* tag,
               uint32_t level) override {
        write({LogLine::Output::Camera, moduleId, tag, level, std::string(message, length)});
    }

private:
    Mutex mLock;
    LogCapture::Sink const* mSink GUARDED_BY(mLock) = nullptr;
};

Hub& hub() {
    static Hub& instance = *new Hub;
    return instance;
}

void takeAndroidLine(__android_logger_data const* data, char const* message) {
    hub().write({LogLine::Output::Android, 0, data->tag ? data->tag : "",
                 static_cast<uint32_t>(data->priority), message ? message : ""});
}

LogSettings exchangeSettings(LogSettings const& settings) {
    return {ULogger::sMode.exchange(settings.mode),
            ULogger::sDetailsLevel.exchange(settings.detailsLevel),
            ULogger::sNormalDetailsMask.exchange(settings.normalDetailsMask)};
}

std::atomic<bool> gIsCapturing{false};

}  // namespace

LogSettings LogSettings::camera(uint32_t level) {
    // The bits that say "normal module" and "area of the pipeline model".
    constexpr uint32_t MODULE_BITS = NSCam::Utils::ULog::MOD_PIPELINE_MODEL_ZSL & ~0xfffU;
    return {NSCam::Utils::ULog::LOG_MODE_CAMERA, level, MODULE_BITS};
}

LogCapture::LogCapture(LogSettings settings, Sink sink) : mSink(std::move(sink)) {
    if (gIsCapturing.exchange(true)) {
        throw std::logic_error("LogCapture: another one is in use");
    }
    // The sink first and the loggers last: no line reaches a hub that has nowhere to take it.
    hub().setSink(mSink ? &mSink : nullptr);
    mLogger = ULogger::sULogger.exchange(&hub());
    mSettings = exchangeSettings(settings);
    // The Android log of a host drops debug lines unless it is told not to.
    mMinimumPriority = __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    __android_log_set_logger(takeAndroidLine);
}

LogCapture::~LogCapture() {
    // The host's log has no way to ask for the logger; this is the one it starts with.
    __android_log_set_logger(__android_log_stderr_logger);
    __android_log_set_minimum_priority(mMinimumPriority);
    exchangeSettings(mSettings);
    ULogger::sULogger = mLogger;
    // Waits for a line that is on its way to the sink, which dies with this object.
    hub().setSink(nullptr);
    gIsCapturing = false;
}

}  // namespace zebcam::host
