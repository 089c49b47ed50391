#include "ZslProcessor.h"

#include <cutils/properties.h>
#include <metadata/MetadataTags.h>
#include <metastore/IMetadataProvider.h>
#include <utils/Timers.h>

#include <new>

#include "Log.h"
#include "WrapAround.h"

namespace NSCam::v3::pipeline::model {

namespace {

/// The timestamp source of the sensor opened under `openId`, from its static characteristics: 1
/// (REALTIME, boot-time clock) or 0 (UNKNOWN, monotonic clock).
uint8_t getTimeSource(int openId) {
    // What nearly every sensor has. A wrong guess shows as captures that always time out.
    constexpr uint8_t REALTIME = 1;
    auto const provider = NSMetadataProviderManager::valueForByDeviceId(openId);
    if (provider == nullptr) {
        ZSL_LOGW("openId(%d): can not get IMetadataProvider", openId);
        return REALTIME;
    }
    auto const entry =
        provider->getStaticCharacteristics().entryFor(ZEB_SENSOR_INFO_TIMESTAMP_SOURCE);
    if (entry.isEmpty()) {
        ZSL_LOGW("can not get ZEB_SENSOR_INFO_TIMESTAMP_SOURCE, use REALTIME as default");
        return REALTIME;
    }
    return entry.itemAt(0, Type2Type<uint8_t>());
}

int64_t readZsdOffsetMs() {
    int64_t const platform = property_get_int64("ro.vendor.camera3.zsl.default", 0);
    int64_t const project = property_get_int64("ro.vendor.camera3.zsl.project", 0);
    int64_t const user = property_get_int64("vendor.debug.camera3.zsl.timestamp", 0);
    // Whoever sets them may set anything; a negative sum looks into the future and is kept.
    int64_t const sum = wrapAdd(wrapAdd(platform, project), user);
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
      mFakeShutterNs(processorClockNs()),
      mZsdOffsetMs(readZsdOffsetMs()) {
    mParsedStreamInfo_P1.max_load_factor(1.0F);
    ZSL_LOGI("mTimeSource(%d) mFakeShutterNs(%ld)", mTimeSource, mFakeShutterNs);
}

// Captures that still wait are dropped, and locked sets destroyed rather than given back: their
// provider may be gone already. Whoever wants them back flushes first.
ZslProcessor::~ZslProcessor() = default;

int64_t ZslProcessor::processorClockNs() const {
    return systemTime(mTimeSource != 0 ? SYSTEM_TIME_BOOTTIME : SYSTEM_TIME_MONOTONIC);
}

ZslProcessor::ZslReqObject::TimePoint ZslProcessor::ZslReqObject::now() {
    return std::chrono::time_point_cast<std::chrono::microseconds>(
        std::chrono::system_clock::now());
}

int64_t ZslProcessor::ZslReqObject::ageMs() const {
    return (now() - reqTimePoint).count() / 1000;
}

}  // namespace NSCam::v3::pipeline::model
