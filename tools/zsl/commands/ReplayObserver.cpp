#include "commands/ReplayObserver.h"

#include <ulog/ULogger.h>

#include <utility>

#include "log/Logcat.h"
#include "pipeline/ProcessorLog.h"

namespace zebcam::tool::commands {

ReplayObserver::ReplayObserver(Wishes wishes)
    : mWishes(std::move(wishes)),
      mRecorder(mWishes.sections ? std::make_unique<run::SectionRecorder>() : nullptr) {
}

pipeline::ReplayOptions ReplayObserver::listeningOptions(pipeline::ReplayOptions options) const {
    options.logLevel = mWishes.reasons ? static_cast<uint32_t>(NSCam::Utils::ULog::LOG_LEVEL_DEBUG)
                                       : mWishes.shownLevel;
    return options;
}

run::ReplayListener ReplayObserver::listener() {
    run::ReplayListener listener;
    listener.progress = mWishes.progress;
    if (mWishes.reasons || mWishes.shownLevel > 0) {
        listener.log = [this](int64_t timeNs, host::LogLine const& line) { onLog(timeNs, line); };
    }
    if (mWishes.sections) {
        listener.occupancy = &mOccupancy;
    }
    return listener;
}

void ReplayObserver::onLog(int64_t timeNs, host::LogLine const& line) {
    log::LogRecord const record = log::fromLogLine(line);
    if (pipeline::logLevelOf(line) <= mWishes.shownLevel && mWishes.show) {
        mWishes.show(log::toThreadtime(record, timeNs));
    }
    // A line that goes to the Android log only is a dump and tells of no decision.
    if (mWishes.reasons && line.output == host::LogLine::Output::Camera) {
        mExplainer.feed(record);
    }
}

void ReplayObserver::finish() {
    if (mWishes.reasons) {
        mExplanation = mExplainer.finish();
    }
    if (mRecorder != nullptr) {
        mSections = mRecorder->finish();
        mRecorder.reset();
    }
}

log::Explanation const* ReplayObserver::explanation() const {
    return mExplanation ? &*mExplanation : nullptr;
}

}  // namespace zebcam::tool::commands
