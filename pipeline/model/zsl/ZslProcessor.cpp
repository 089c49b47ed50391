#include "ZslProcessor.h"

#include <cutils/properties.h>
#include <utils/Timers.h>

#include <new>

#include "BuiltinSelectors.h"
#include "Debuggee.h"
#include "Log.h"
#include "TimeSource.h"

namespace NSCam::v3::pipeline::model {

namespace {

int64_t clockNs(uint8_t timeSource) {
    return systemTime(timeSource != 0 ? SYSTEM_TIME_BOOTTIME : SYSTEM_TIME_MONOTONIC);
}

int64_t readZsdOffsetMs() {
    int64_t const platform = property_get_int64("ro.vendor.camera3.zsl.default", 0);
    int64_t const project = property_get_int64("ro.vendor.camera3.zsl.project", 0);
    int64_t const user = property_get_int64("vendor.debug.camera3.zsl.timestamp", 0);
    // Unsigned, so that absurd settings wrap around instead of being undefined.
    auto const sum =
        static_cast<int64_t>(static_cast<uint64_t>(platform) + static_cast<uint64_t>(project) +
                             static_cast<uint64_t>(user));
    ZSL_LOGI_AS("ZslProcessor", "zsdOffsetMs(%ld) = default(%ld)+project(%ld)+user(%ld)", sum,
                platform, project, user);
    return sum;
}

}  // namespace

IZslProcessor::~IZslProcessor() = default;

android::sp<IZslProcessor> IZslProcessor::createInstance(int openId, std::string const& name) {
    android::sp<IZslProcessor> processor = new (std::nothrow) ZslProcessor(openId, name);
    if (processor == nullptr) {
        ZSL_LOGE("create zsl processor instance fail");
    }
    return processor;
}

ZslProcessor::ZslProcessor(int openId, std::string const& name)
    : mTimeSource(getTimeSource(openId)),
      mUserName(name),
      mLogLevel(property_get_int32("vendor.debug.camera.log.pipelinemodel.zsl", 0)),
      mFakeShutterNs(clockNs(mTimeSource)),
      mZsdOffsetMs(readZsdOffsetMs()) {
    mParsedStreamInfo_P1.max_load_factor(1.0F);
    ZSL_LOGI("mTimeSource(%d) mFakeShutterNs(%ld)", mTimeSource, mFakeShutterNs);
}

ZslProcessor::~ZslProcessor() = default;

void ZslProcessor::onFirstRef() {
    mpDebuggee = std::make_shared<MyDebuggee>(this);
    if (IDebuggeeManager* const manager = IDebuggeeManager::get()) {
        mpDebuggee->mCookie = manager->attach(mpDebuggee, 0);
    }
}

void ZslProcessor::onLastStrongRef(void const* /*id*/) {
    if (mpDebuggee == nullptr) {
        return;
    }
    if (IDebuggeeManager* const manager = IDebuggeeManager::get()) {
        manager->detach(mpDebuggee->mCookie);
    }
    mpDebuggee.reset();
}

int64_t ZslProcessor::processorClockNs() const {
    return clockNs(mTimeSource);
}

ZslProcessor::ZslReqObject::TimePoint ZslProcessor::ZslReqObject::now() {
    return std::chrono::time_point_cast<std::chrono::microseconds>(
        std::chrono::system_clock::now());
}

int64_t ZslProcessor::ZslReqObject::ageMs() const {
    return (now() - reqTimePoint).count() / 1000;
}

bool ZslProcessor::hasZslPendingRequest() const {
    LockGuard const lock(mLock);
    return !mPendingRequests.empty();
}

// A plug-in's or a callback's exception must not cost a frame, nor the time of one: the operation
// goes on, and what it built goes out. The exception leaves the first operation that has nothing to
// hand over.

void ZslProcessor::noteFailure() {
    try {
        throw;
    } catch (std::exception const& failure) {
        ZSL_LOGE("a policy or callback failed: %s", failure.what());
    } catch (...) {
        ZSL_LOGE("a policy or callback failed");
    }
    if (mFailure == nullptr) {
        mFailure = std::current_exception();
    }
}

ZslFrameBuilders ZslProcessor::deliver(ZslFrameBuilders result) {
    if (result.empty() && mFailure != nullptr) {
        std::rethrow_exception(std::exchange(mFailure, nullptr));
    }
    return result;
}

}  // namespace NSCam::v3::pipeline::model
