#include <algorithm>

#include "Log.h"
#include "TextForms.h"
#include "TraceSection.h"
#include "WrapAround.h"
#include "ZslProcessor.h"

namespace NSCam::v3::pipeline::model {

namespace {

constexpr int64_t NS_PER_MS = 1'000'000;

using SensorModes = std::unordered_map<uint32_t, uint32_t>;

/// The entries of `modes` whose sensor is required.
SensorModes requiredModes(SensorModes const& modes, std::vector<uint32_t> const& sensorIds) {
    SensorModes required;
    for (auto const& [id, mode] : modes) {
        if (std::find(sensorIds.begin(), sensorIds.end(), id) != sensorIds.end()) {
            required.emplace(id, mode);
        }
    }
    return required;
}

bool isDummy(uint32_t frameType) {
    return frameType == NSPipelineContext::FRAME_TYPE_PREDUMMY ||
           frameType == NSPipelineContext::FRAME_TYPE_POSTDUMMY;
}

/// Pairs each frame's settings with its builder, under ascending indices without gaps.
void prepareFrames(std::vector<std::shared_ptr<policy::RequestResultParams>> const& vReqResult,
                   ZslProcessor::FrameBuilders const& vFrameBuilder, SensorModes const& streamIdMap,
                   std::vector<uint32_t> const& requiredSensorIds,
                   ZslProcessor::FrameObjectMap& vFrameObj) {
    if (vReqResult.size() != vFrameBuilder.size()) {
        // There is no telling which frame has lost its partner.
        ZSL_FATAL("mismatch - #vReqResult:%zu #vFrameBuilder:%zu", vReqResult.size(),
                  vFrameBuilder.size());
    }
    auto const pSensorModeMap =
        std::make_shared<SensorModes const>(requiredModes(streamIdMap, requiredSensorIds));
    uint64_t key = 0;
    for (size_t i = 0; i < vFrameBuilder.size(); ++i) {
        auto const& pFB = vFrameBuilder[i];
        if (pFB != nullptr && isDummy(pFB->getFrameType())) {
            // It only lets the sensor settle, and a frame of the history has settled long ago. It
            // takes no index either, so that policies never see a gap.
            ZSL_LOGE("skip (%zu,%s)", i, frameTypeName(pFB->getFrameType()));
            continue;
        }
        if (vReqResult[i] == nullptr) {
            ZSL_LOGE("vReqResult[%zu] is null, no stream is required", i);
        }
        auto required =
            vReqResult[i] != nullptr ? vReqResult[i]->required : ZslPolicy::RequiredStreams();
        vFrameObj.emplace(
            key++, ZslProcessor::FrameObject{
                       std::make_shared<ZslPolicy::RequiredStreams const>(std::move(required)),
                       pSensorModeMap, pFB});
    }
}

}  // namespace

ZslProcessor::ZslReqObject ZslProcessor::makeRequest(ZslRequestParams& params) const {
    ZslReqObject req;
    req.requestNo = params.requestNo;
    req.reqTimePoint = ZslReqObject::now();
    req.pPolicyParams = params.pPolicyParams;
    req.pSelector = std::move(params.pSelector);
    req.checkPureRaw = params.checkPureRaw;
    req.needFrameSync = params.needFrameSync;
    req.zsdTimestamp = wrapSubtract(processorClockNs(), wrapMultiply(mZsdOffsetMs, NS_PER_MS));
    req.pHistoryBufferProvider = std::move(params.pHistoryBufferProvider);
    static SensorModes const NO_MODES;
    static std::vector<uint32_t> const NO_SENSORS;
    prepareFrames(params.vReqResult, params.vFrameBuilder,
                  params.pStreamIdMap != nullptr ? *params.pStreamIdMap : NO_MODES,
                  params.pvRequiredSensorIds != nullptr ? *params.pvRequiredSensorIds : NO_SENSORS,
                  req.vFrameObj);
    return req;
}

ZslFrameBuilders ZslProcessor::submitZslRequest(ZslRequestParams&& params) {
    TraceSection const trace("submitZslRequest");
    ZSL_LOGD("+");
    uint32_t const requestNo = params.requestNo;
    // Without the lock: the press counts from here, however long an older capture takes.
    ZslReqObject req = makeRequest(params);

    // Who waits longest chooses first. Another submission may come in between, and then comes
    // first, too.
    ZslFrameBuilders result = processZslPendingRequest(requestNo);

    LockGuard const lock(mLock);
    FrameBuilders selected = processZslRequest(req);
    if (req.isServed()) {
        ZSL_LOGI("[requestNo:%u]: success. (selected:#%zu, tuning:#%zu)", requestNo,
                 selected.size(), req.vTuningFrameBuilder.size());
        selected.insert(selected.end(), req.vTuningFrameBuilder.begin(),
                        req.vTuningFrameBuilder.end());
        // Even an empty list: one for each capture that is served, so that callers can count.
        result.push_back(std::move(selected));
    } else {
        addToPending(std::move(req), selected.size());
        if (!selected.empty()) {
            result.push_back(std::move(selected));
        }
    }
    ZSL_LOGD("-");
    return result;
}

ZslProcessor::FrameBuilders ZslProcessor::processZslRequest(ZslReqObject const& req) {
    return buildFrame_Locked(req.requestNo, selectBuf_Locked(req));
}

}  // namespace NSCam::v3::pipeline::model
