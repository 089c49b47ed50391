#include <utils/Printer.h>

#include <algorithm>

#include "Log.h"
#include "TextForms.h"
#include "TraceSection.h"
#include "ZslProcessor.h"

namespace NSCam::v3::pipeline::model {

namespace {

/// `nowNs` less `offsetMs`; wraps around for an offset of centuries.
int64_t before(int64_t nowNs, int64_t offsetMs) {
    constexpr uint64_t NS_PER_MS = 1'000'000;
    return static_cast<int64_t>(static_cast<uint64_t>(nowNs) -
                                static_cast<uint64_t>(offsetMs) * NS_PER_MS);
}

/// The entries of `modes` whose sensor is required.
std::unordered_map<uint32_t, uint32_t> requiredModes(
    std::unordered_map<uint32_t, uint32_t> const& modes, std::vector<uint32_t> const& sensorIds) {
    std::unordered_map<uint32_t, uint32_t> required;
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

}  // namespace

ZslProcessor::ZslReqObject ZslProcessor::makeRequest(ZslRequestParams& params) const {
    ZslReqObject req;
    req.requestNo = params.requestNo;
    req.reqTimePoint = ZslReqObject::now();
    req.pPolicyParams = params.pPolicyParams;
    req.pSelector = std::move(params.pSelector);
    req.checkPureRaw = params.checkPureRaw;
    req.needFrameSync = params.needFrameSync;
    req.zsdTimestamp = before(processorClockNs(), mZsdOffsetMs);
    req.pHistoryBufferProvider = std::move(params.pHistoryBufferProvider);
    static std::unordered_map<uint32_t, uint32_t> const NO_MODES;
    static std::vector<uint32_t> const NO_SENSORS;
    prepareFrames(params.vReqResult, params.vFrameBuilder,
                  params.pStreamIdMap != nullptr ? *params.pStreamIdMap : NO_MODES,
                  params.pvRequiredSensorIds != nullptr ? *params.pvRequiredSensorIds : NO_SENSORS,
                  req.vFrameObj, req.vTuningFrameBuilder);
    return req;
}

void ZslProcessor::prepareFrames(
    std::vector<std::shared_ptr<policy::RequestResultParams>> const& vReqResult,
    FrameBuilders const& vFrameBuilder, std::unordered_map<uint32_t, uint32_t> const& streamIdMap,
    std::vector<uint32_t> const& requiredSensorIds, FrameObjectMap& vFrameObj,
    FrameBuilders& /*vTuningFrameBuilder*/) {
    if (vReqResult.size() != vFrameBuilder.size()) {
        ZSL_FATAL("mismatch - #vReqResult:%zu #vFrameBuilder:%zu", vReqResult.size(),
                  vFrameBuilder.size());
    }
    auto const pSensorModeMap = std::make_shared<std::unordered_map<uint32_t, uint32_t> const>(
        requiredModes(streamIdMap, requiredSensorIds));
    uint64_t key = 0;
    for (size_t i = 0; i < vFrameBuilder.size(); ++i) {
        auto const& pFB = vFrameBuilder[i];
        if (pFB != nullptr && isDummy(pFB->getFrameType())) {
            ZSL_LOGE("skip (%zu,%s)", i, frameTypeName(pFB->getFrameType()));
            continue;
        }
        if (vReqResult[i] == nullptr) {
            ZSL_LOGE("vReqResult[%zu] is null, no stream is required", i);
        }
        auto required =
            vReqResult[i] != nullptr ? vReqResult[i]->required : ZslPolicy::RequiredStreams();
        vFrameObj.emplace(
            key,
            FrameObject{std::make_shared<ZslPolicy::RequiredStreams const>(std::move(required)),
                        pSensorModeMap, pFB});
        ++key;
    }
}

ZslFrameBuilders ZslProcessor::submitZslRequest(ZslRequestParams&& params) {
    TraceSection const trace("submitZslRequest");
    ZSL_LOGD("+");
    uint32_t const requestNo = params.requestNo;
    ZslReqObject req = makeRequest(params);

    ZslFrameBuilders result;
    std::exception_ptr earlierFailure;
    try {
        result = processZslPendingRequest(requestNo);
    } catch (...) {
        // A policy of an older capture failed; that is no reason to lose this one.
        earlierFailure = std::current_exception();
    }

    LockGuard const lock(mLock);
    if (mFailure == nullptr) {
        mFailure = earlierFailure;
    }
    FrameBuilders selected = processZslRequest(req);
    if (req.isServed()) {
        ZSL_LOGI("[requestNo:%u]: success. (selected:#%zu, tuning:#%zu)", requestNo,
                 selected.size(), req.vTuningFrameBuilder.size());
        selected.insert(selected.end(), req.vTuningFrameBuilder.begin(),
                        req.vTuningFrameBuilder.end());
        result.push_back(std::move(selected));
    } else {
        queue(std::move(req), selected.size());
        if (!selected.empty()) {
            result.push_back(std::move(selected));
        }
    }
    ZSL_LOGD("-");
    return deliver(std::move(result));
}

void ZslProcessor::queue(ZslReqObject&& pending, size_t selected) {
    constexpr char FUNCTION[] = "submitZslRequest";
    uint32_t const requestNo = pending.requestNo;
    callbackFakeShutter(requestNo);
    mPendingRequests.push_back(std::move(pending));
    ZslReqObject const& req = mPendingRequests.back();
    int64_t const fakeShutter = mFakeShutterMap[requestNo];
    ZSL_LOGW_AS(FUNCTION,
                "[requestNo:%u]: fail. (selected:#%zu, preselect:#%zu, remaining:#%zu) => add to "
                "pending [fakeShutter:%ld; pendingReq(#%zu):%s]",
                requestNo, selected, req.vPreselectFrameObj.size(), req.vFrameObj.size(),
                fakeShutter, mPendingRequests.size(), dumpPendingToString().c_str());
    if (req.pHistoryBufferProvider != nullptr) {
        // To the Android log whatever the log level: a capture that waits is worth the lines.
        android::LogPrinter printer(log::TAG, ANDROID_LOG_WARN);
        req.pHistoryBufferProvider->dump(printer);
    }
}

ZslProcessor::FrameBuilders ZslProcessor::processZslRequest(ZslReqObject const& req) {
    return buildFrame_Locked(req.requestNo, selectBuf_Locked(req));
}

}  // namespace NSCam::v3::pipeline::model
