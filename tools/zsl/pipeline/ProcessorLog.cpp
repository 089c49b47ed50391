#include "pipeline/ProcessorLog.h"

#include <android/log.h>
#include <ulog/ULogger.h>

#include <algorithm>
#include <utility>

namespace zebcam::tool::pipeline {

namespace ulog = NSCam::Utils::ULog;

namespace {

/// Begins the processor's line on each frame that it serves because of the time-out.
constexpr char kTimedOutFrame[] = "TIMEDOUT: get hbs";

/// Ends the processor's line on a capture that was tried again and has got nothing.
constexpr char kKeepsWaiting[] = "=> keep pending";

/// Errors are counted even where nothing is shown.
uint32_t detailsFor(uint32_t shownLevel) {
    return std::max<uint32_t>(shownLevel, ulog::LOG_LEVEL_ERROR);
}

}  // namespace

uint32_t logLevelOf(host::LogLine const& line) {
    if (line.output == host::LogLine::Output::Camera) {
        return line.level;
    }
    switch (line.level) {
        case ANDROID_LOG_WARN:
            return ulog::LOG_LEVEL_WARNING;
        case ANDROID_LOG_INFO:
            return ulog::LOG_LEVEL_INFO;
        default:
            return line.level < ANDROID_LOG_INFO ? ulog::LOG_LEVEL_DEBUG : ulog::LOG_LEVEL_ERROR;
    }
}

ProcessorLog::ProcessorLog(uint32_t shownLevel, Sink shown)
    : mShownLevel(shownLevel), mShown(std::move(shown)) {
    // The settings open every line's gate; watchTimeout then moves the level alone.
    mCapture.emplace(host::LogSettings::camera(ulog::LOG_LEVEL_DEBUG),
                     [this](host::LogLine const& line) { onLine(line); });
    watchTimeout(false);
}

ProcessorLog::~ProcessorLog() = default;

// Of the processor's answers none says whether the time-out served a frame; its debug line does.
void ProcessorLog::watchTimeout(bool watch) {
    Quiet const quiet = mQuiet;
    // What ends the quiet of a try is a warning, after the try; what is before it costs time.
    uint32_t const level = watch                     ? ulog::LOG_LEVEL_DEBUG
                           : quiet == Quiet::ThisTry ? ulog::LOG_LEVEL_WARNING
                           : quiet == Quiet::On      ? ulog::LOG_LEVEL_ERROR
                                                     : detailsFor(mShownLevel);
    // Every try comes here three times and mostly changes nothing; the stores alone took a
    // thirteenth of a replay.
    if (ulog::ULogger::sDetailsLevel.load(std::memory_order_relaxed) != level) {
        ulog::ULogger::sDetailsLevel = level;
    }
}

void ProcessorLog::setQuiet(Quiet quiet) {
    mQuiet = quiet;
    if (quiet == Quiet::Off) {
        watchTimeout(false);
    } else {
        ulog::ULogger::sDetailsLevel = ulog::LOG_LEVEL_ERROR;
    }
}

size_t ProcessorLog::takeTimedOutFrames() {
    return mTimedOutFrames.exchange(0);
}

void ProcessorLog::onLine(host::LogLine const& line) {
    uint32_t const level = logLevelOf(line);
    mErrorLines += level == ulog::LOG_LEVEL_ERROR ? 1 : 0;
    if (line.message.find(kTimedOutFrame) != std::string::npos) {
        ++mTimedOutFrames;
    }
    if (mQuiet == Quiet::Off) {
        if (mShown && level <= mShownLevel) {
            mShown(line);
        }
    } else if (mQuiet == Quiet::ThisTry && line.message.find(kKeepsWaiting) != std::string::npos) {
        setQuiet(Quiet::Off);
    }
}

}  // namespace zebcam::tool::pipeline
