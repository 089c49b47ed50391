#include <metadata/MetadataTags.h>
#include <streamutils/HalMetaStreamBuffer.h>

#include "Log.h"
#include "MetadataLocks.h"
#include "PluginCall.h"
#include "Streams.h"
#include "TraceSection.h"
#include "WrapAround.h"
#include "ZslProcessor.h"

/// The early shutter of a capture that waits, and its sensor timestamp, which is then not to be
/// heard a second time.
namespace NSCam::v3::pipeline::model {

using IAppCallback = IPipelineBufferSetFrameControl::IAppCallback;
using Utils::HalMetaStreamBuffer;

namespace {

/// Two shutters never carry one time, as long as no selection sets the count back in between.
constexpr int64_t FAKE_SHUTTER_STEP_NS = 1000;

void setTimestamp(android::sp<IMetaStreamBuffer> const& buffer, int64_t ns) {
    IMetadata::IEntry entry(ZEB_SENSOR_TIMESTAMP);
    entry.push_back(ns, Type2Type<int64_t>());
    LockedMetadata locked{{buffer, buffer->tryWriteLock(log::TAG)}};
    MetadataUnlocker const unlocker(locked);
    // A shutter without a time is better than none: it still tells that the capture was taken.
    if (IMetadata* const metadata = locked.front().second) {
        metadata->update(ZEB_SENSOR_TIMESTAMP, entry);
    }
}

IAppCallback::Result shutterResult(unsigned int requestNo,
                                   android::sp<IMetaStreamBuffer> const& buffer) {
    IAppCallback::Result result;
    result.requestNo = requestNo;
    result.nAppOutMetaLeft = 0;
    result.nHalOutMetaLeft = 1;  // there is more to come, so that the frame is not over for the app
    result.outputAppMetas = {buffer};
    result.isFrameEnd = false;
    return result;
}

/// Whether the stream carries a sensor's result to the application.
bool isAppResult(StreamId_T streamId) {
    constexpr uint64_t LAST = STREAM_ID_APP_META_P1_2 - STREAM_ID_APP_META_P1_0;
    // Ids below the range wrap around to far above it.
    return static_cast<uint64_t>(wrapSubtract(streamId, STREAM_ID_APP_META_P1_0)) <= LAST;
}

void removeSensorTimestamp(android::sp<IMetaStreamBuffer> const& buffer, unsigned int requestNo,
                           int64_t fakeShutter) {
    constexpr char FUNCTION[] = "onFrameUpdated";
    IMetaStreamInfo const* const info = streamInfoOf(buffer);
    if (info == nullptr || !isAppResult(info->getStreamId())) {
        return;
    }
    auto const metadata = MetadataLock::forWriting(buffer);
    if (!metadata) {
        ZSL_LOGW_AS(FUNCTION, "cannot lock metadata");
        return;
    }
    if (metadata->remove(ZEB_SENSOR_TIMESTAMP) == 0) {
        ZSL_LOGD_AS(
            FUNCTION,
            "(%#lx:%s) remove ZEB_SENSOR_TIMESTAMP tag(%#x) [requestNo:%u, fakeShutter:%ld]",
            info->getStreamId(), info->getStreamName(), ZEB_SENSOR_TIMESTAMP, requestNo,
            fakeShutter);
    } else {
        // Usual for a result in parts: only one of them carries the time.
        ZSL_LOGW_AS(FUNCTION, "(%#lx:%s) can not find ZEB_SENSOR_TIMESTAMP tag(%#x)",
                    info->getStreamId(), info->getStreamName(), ZEB_SENSOR_TIMESTAMP);
    }
}

}  // namespace

void ZslProcessor::callbackFakeShutter(unsigned int requestNo) {
    TraceSection const trace("callbackFakeShutter");
    // Held weakly: it belongs to the pipeline model, which may go before its processor does.
    auto const callback = mpCallback.promote();
    if (callback == nullptr) {
        ZSL_LOGE("can not promote pCallback for shutter");
        return;
    }
    if (mParsedStreamInfo_P1.empty()) {
        ZSL_LOGE("no P1 streams configured for shutter");
        return;
    }
    // Any sensor's stream will do: the application knows one capture, not its sensors.
    auto const& [sensorId, streams] = *mParsedStreamInfo_P1.begin();
    if (streams.pAppMeta_DynamicP1 == nullptr) {
        ZSL_LOGE("no pAppMeta_DynamicP1 stream of sensor %u configured for shutter", sensorId);
        return;
    }
    auto const buffer = HalMetaStreamBuffer::Allocator(streams.pAppMeta_DynamicP1)();
    if (buffer == nullptr) {
        ZSL_LOGE("can not make a buffer of (%#lx:%s) for shutter",
                 streams.pAppMeta_DynamicP1->getStreamId(),
                 streams.pAppMeta_DynamicP1->getStreamName());
        return;
    }
    mFakeShutterNs = wrapAdd(mFakeShutterNs, FAKE_SHUTTER_STEP_NS);
    setTimestamp(buffer, mFakeShutterNs);
    buffer->finishUserSetup();

    auto const result = shutterResult(requestNo, buffer);
    callPlugin(__func__, requestNo, "callback", [&] { callback->updateFrame(result); });
    // Noted even if the callback threw: it may have passed the time on before.
    ZSL_LOGD("cb fakeShutter (reqNo:%u, timestamp:%ld)", requestNo, mFakeShutterNs);
    mFakeShutterMap.emplace(requestNo, mFakeShutterNs);
}

int64_t ZslProcessor::fakeShutterOf(uint32_t requestNo) const {
    auto const shutter = mFakeShutterMap.find(requestNo);
    return shutter != mFakeShutterMap.end() ? shutter->second : 0;
}

void ZslProcessor::onFrameUpdated(unsigned int requestNo, IAppCallback::Result const& result) {
    TraceSection const trace("onFrameUpdated");
    LockGuard const lock(mLock);
    auto const shutter = mFakeShutterMap.find(requestNo);
    if (shutter == mFakeShutterMap.end()) {
        return;
    }
    for (auto const& buffer : result.outputAppMetas) {
        removeSensorTimestamp(buffer, requestNo, shutter->second);
    }
    // After its last result the request number may be used again.
    if (result.isFrameEnd) {
        mFakeShutterMap.erase(shutter);
    }
}

}  // namespace NSCam::v3::pipeline::model
