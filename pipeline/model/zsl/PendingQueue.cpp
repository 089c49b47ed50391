#include <metadata/MetadataTags.h>

#include "Log.h"
#include "TraceSection.h"
#include "ZslProcessor.h"

namespace NSCam::v3::pipeline::model {

namespace {

/// Whether the stream carries a sensor's result to the application.
bool isAppResult(StreamId_T streamId) {
    return static_cast<uint64_t>(streamId - STREAM_ID_APP_META_P1_0) <=
           static_cast<uint64_t>(STREAM_ID_APP_META_P1_2 - STREAM_ID_APP_META_P1_0);
}

void removeSensorTimestamp(android::sp<IMetaStreamBuffer> const& buffer, unsigned int requestNo,
                           int64_t fakeShutter) {
    constexpr char FUNCTION[] = "onFrameUpdated";
    if (buffer == nullptr || buffer->getStreamInfo() == nullptr) {
        return;
    }
    StreamId_T const streamId = buffer->getStreamInfo()->getStreamId();
    if (!isAppResult(streamId)) {
        return;
    }
    char const* const streamName = buffer->getStreamInfo()->getStreamName();
    auto const metadata = MetadataLock::forWriting(buffer);
    if (!metadata) {
        ZSL_LOGW_AS(FUNCTION, "cannot lock metadata");
        return;
    }
    if (metadata->remove(ZEB_SENSOR_TIMESTAMP) == 0) {
        ZSL_LOGD_AS(
            FUNCTION,
            "(%#lx:%s) remove ZEB_SENSOR_TIMESTAMP tag(%#x) [requestNo:%u, fakeShutter:%ld]",
            streamId, streamName, ZEB_SENSOR_TIMESTAMP, requestNo, fakeShutter);
    } else {
        ZSL_LOGW_AS(FUNCTION, "(%#lx:%s) can not find ZEB_SENSOR_TIMESTAMP tag(%#x)", streamId,
                    streamName, ZEB_SENSOR_TIMESTAMP);
    }
}

}  // namespace

ZslFrameBuilders ZslProcessor::processZslPendingRequest(unsigned int requestNo) {
    TraceSection const trace("processZslPendingRequest");
    ZslFrameBuilders result;
    LockGuard const lock(mLock);
    for (size_t position = 0; position < mPendingRequests.size();) {
        ZslReqObject const& req = mPendingRequests[position];
        FrameBuilders selected = processZslRequest(req);
        if (req.isServed()) {
            finishServedPending(position, requestNo, std::move(selected), result);
            continue;
        }
        ZSL_LOGW(
            "[requestNo:%u]: fail. (reqNo:%u, selected:#%zu, preselect:#%zu, remaining:#%zu) "
            "=> keep pending (#%zu)",
            requestNo, req.requestNo, selected.size(), req.vPreselectFrameObj.size(),
            req.vFrameObj.size(), mPendingRequests.size());
        if (!selected.empty()) {
            result.push_back(std::move(selected));
        }
        ++position;
    }
    return deliver(std::move(result));
}

/**
 * Takes a served capture out of the queue and its frames into the result.
 *
 * What is told and returned is what stands at the queue position once the capture has left it. In
 * the front half the queue closes from the front: the position then still names the capture, whose
 * tuning frames went with it, and so does the last one. Elsewhere the neighbour behind has moved
 * in, and its number and tuning frames are the ones taken.
 */
void ZslProcessor::finishServedPending(size_t position, unsigned int requestNo,
                                       FrameBuilders selected, ZslFrameBuilders& result) {
    size_t const size = mPendingRequests.size();
    bool const closesFromFront = position <= (size - 1) / 2;
    bool const isLast = position + 1 == size;
    uint32_t toldRequestNo = mPendingRequests[position].requestNo;
    FrameBuilders tuning;
    if (!closesFromFront && !isLast) {
        toldRequestNo = mPendingRequests[position + 1].requestNo;
        tuning = mPendingRequests[position + 1].vTuningFrameBuilder;
    }
    mPendingRequests.erase(mPendingRequests.begin() + static_cast<std::ptrdiff_t>(position));
    ZSL_LOGI_AS("processZslPendingRequest",
                "[requestNo:%u]: success. (reqNo:%u, selected:#%zu, tuning:#%zu) => remove from "
                "pending (#%zu)",
                requestNo, toldRequestNo, selected.size(), tuning.size(), mPendingRequests.size());
    selected.insert(selected.end(), tuning.begin(), tuning.end());
    result.push_back(std::move(selected));
}

void ZslProcessor::onFrameUpdated(
    unsigned int requestNo, IPipelineBufferSetFrameControl::IAppCallback::Result const& result) {
    TraceSection const trace("onFrameUpdated");
    LockGuard const lock(mLock);
    auto const shutter = mFakeShutterMap.find(requestNo);
    if (shutter == mFakeShutterMap.end()) {
        return;
    }
    for (auto const& buffer : result.outputAppMetas) {
        removeSensorTimestamp(buffer, requestNo, shutter->second);
    }
    if (result.isFrameEnd) {
        mFakeShutterMap.erase(shutter);
    }
}

}  // namespace NSCam::v3::pipeline::model
