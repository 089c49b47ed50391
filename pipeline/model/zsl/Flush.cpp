#include <algorithm>

#include "Log.h"
#include "TraceSection.h"
#include "ZslProcessor.h"

namespace NSCam::v3::pipeline::model {

ZslFrameBuilders ZslProcessor::flush() {
    TraceSection const trace("flush");
    ZSL_LOGD("+");
    LockGuard const lock(mLock);
    if (!std::all_of(mPendingRequests.begin(), mPendingRequests.end(), hasEveryFrameBuilder)) {
        return {};
    }
    ZslFrameBuilders result;
    for (ZslReqObject& req : mPendingRequests) {
        result.push_back(changeToNormalCapture(req));
    }
    mPendingRequests.clear();
    returnLockedBuffers();
    ZSL_LOGD("-");
    mFailure = nullptr;  // whose capture it was is no longer here
    return result;
}

/// False, with an error line, when a frame has no frame builder.
bool ZslProcessor::hasEveryFrameBuilder(ZslReqObject const& req) {
    for (FrameObjectMap const* const frames : {&req.vFrameObj, &req.vPreselectFrameObj}) {
        if (std::any_of(frames->begin(), frames->end(),
                        [](auto const& frame) { return frame.second.pFB == nullptr; })) {
            ZSL_LOGE_AS("flush", "bad pFrameBuilder - requestNo:%u", req.requestNo);
            return false;
        }
    }
    return true;
}

ZslProcessor::FrameBuilders ZslProcessor::changeToNormalCapture(ZslReqObject& req) {
    req.vFrameObj.merge(req.vPreselectFrameObj);
    FrameBuilders frames;
    for (auto const& [index, frame] : req.vFrameObj) {
        frame.pFB->setFrameTimestamp(fakeShutterOf(req.requestNo));
        frame.pFB->setBuiltFromHistory(false);
        frames.push_back(frame.pFB);
    }
    frames.insert(frames.end(), req.vTuningFrameBuilder.begin(), req.vTuningFrameBuilder.end());
    ZSL_LOGI_AS("flush",
                "[requestNo:%u]: change pending to normal capture (frames:#%zu + tuning:#%zu)",
                req.requestNo, frames.size(), req.vTuningFrameBuilder.size());
    return frames;
}

void ZslProcessor::returnLockedBuffers() {
    for (auto& [name, sets] : mLockedBuffersMap) {
        ZSL_LOGI_AS("flush", "return and release lockedBuffers of [%s](#%zu)", name.c_str(),
                    sets.size());
        if (mpHistoryBufferProvider != nullptr) {
            for (HistoryBufferSet& set : sets) {
                NSPipelineContext::IHistoryBufferProvider::ReturnedBufferSet released{&set, false};
                mpHistoryBufferProvider->returnBufferSet(released);
            }
            mpHistoryBufferProvider->endSelect();
        }
        sets.clear();
    }
}

}  // namespace NSCam::v3::pipeline::model
