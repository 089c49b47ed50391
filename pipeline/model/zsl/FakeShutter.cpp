#include <metadata/MetadataTags.h>
#include <streamutils/HalMetaStreamBuffer.h>

#include "Log.h"
#include "TraceSection.h"
#include "ZslProcessor.h"

namespace NSCam::v3::pipeline::model {

using IAppCallback = IPipelineBufferSetFrameControl::IAppCallback;
using Utils::HalMetaStreamBuffer;

namespace {

constexpr int64_t FAKE_SHUTTER_STEP_NS = 1000;

/// Wraps around: the time may come from a sensor frame with an absurd timestamp.
int64_t after(int64_t ns, int64_t stepNs) {
    return static_cast<int64_t>(static_cast<uint64_t>(ns) + static_cast<uint64_t>(stepNs));
}

IMetadata::IEntry timestampEntry(int64_t ns) {
    IMetadata::IEntry entry(ZEB_SENSOR_TIMESTAMP);
    entry.push_back(ns, Type2Type<int64_t>());
    return entry;
}

}  // namespace

void ZslProcessor::callbackFakeShutter(unsigned int requestNo) {
    TraceSection const trace("callbackFakeShutter");
    auto const callback = mpCallback.promote();
    if (callback == nullptr) {
        ZSL_LOGE("can not promote pCallback for shutter");
        return;
    }
    if (mParsedStreamInfo_P1.empty()) {
        ZSL_LOGE("no P1 streams configured for shutter");
        return;
    }
    sendFakeShutter(*callback, requestNo);
    ZSL_LOGD("cb fakeShutter (reqNo:%u, timestamp:%ld)", requestNo, mFakeShutterNs);
    mFakeShutterMap.emplace(requestNo, mFakeShutterNs);
}

void ZslProcessor::sendFakeShutter(IAppCallback& callback, unsigned int requestNo) {
    policy::ParsedStreamInfo_P1 const streams = mParsedStreamInfo_P1.begin()->second;
    auto const buffer = HalMetaStreamBuffer::Allocator(streams.pAppMeta_DynamicP1)();
    mFakeShutterNs = after(mFakeShutterNs, FAKE_SHUTTER_STEP_NS);
    if (buffer == nullptr) {
        ZSL_LOGE_AS("callbackFakeShutter", "can not make a metadata buffer for shutter");
        return;
    }
    if (auto const metadata = MetadataLock::forWriting(buffer)) {
        metadata->update(ZEB_SENSOR_TIMESTAMP, timestampEntry(mFakeShutterNs));
    }
    buffer->finishUserSetup();

    IAppCallback::Result result;
    result.requestNo = requestNo;
    result.nAppOutMetaLeft = 0;
    result.nHalOutMetaLeft = 1;
    result.outputAppMetas = {buffer};
    result.isFrameEnd = false;
    try {
        callback.updateFrame(result);
    } catch (...) {
        noteFailure();
    }
}

int64_t ZslProcessor::fakeShutterOf(uint32_t requestNo) const {
    auto const shutter = mFakeShutterMap.find(requestNo);
    return shutter != mFakeShutterMap.end() ? shutter->second : 0;
}

}  // namespace NSCam::v3::pipeline::model
