#include <utils/Printer.h>

#include <algorithm>

#include "Log.h"
#include "TraceSection.h"
#include "ZslProcessor.h"

namespace NSCam::v3::pipeline::model {

namespace {

/// False, with an error line, when a frame has no frame builder.
bool hasEveryFrameBuilder(ZslProcessor::ZslReqObject const& req) {
    for (auto const* const frames : {&req.vFrameObj, &req.vPreselectFrameObj}) {
        if (std::any_of(frames->begin(), frames->end(),
                        [](auto const& frame) { return frame.second.pFB == nullptr; })) {
            ZSL_LOGE_AS("flush", "bad pFrameBuilder - requestNo:%u", req.requestNo);
            return false;
        }
    }
    return true;
}

}  // namespace

bool ZslProcessor::hasZslPendingRequest() const {
    LockGuard const lock(mLock);
    return !mPendingRequests.empty();
}

void ZslProcessor::addToPending(ZslReqObject&& pending, size_t selected) {
    constexpr char FUNCTION[] = "submitZslRequest";
    uint32_t const requestNo = pending.requestNo;
    // First, because every millisecond until the shutter is one that the user sees.
    callbackFakeShutter(requestNo);
    mPendingRequests.push_back(std::move(pending));
    ZslReqObject const& req = mPendingRequests.back();
    // Makes an entry of 0 where no shutter went out. The capture's results then lose their sensor
    // timestamp all the same, and its frames get that of the history.
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

ZslFrameBuilders ZslProcessor::processZslPendingRequest(unsigned int requestNo) {
    TraceSection const trace("processZslPendingRequest");
    ZslFrameBuilders result;
    LockGuard const lock(mLock);
    for (size_t position = 0; position < mPendingRequests.size();) {
        ZslReqObject const& req = mPendingRequests[position];
        FrameBuilders selected = processZslRequest(req);
        if (req.isServed()) {
            // The next capture is now at this position.
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
    return result;
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
    // Read while all of it is still there.
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

ZslFrameBuilders ZslProcessor::flush() {
    TraceSection const trace("flush");
    ZSL_LOGD("+");
    LockGuard const lock(mLock);
    // Looked at before anything is changed: half a flush would answer frames twice when it is
    // tried again.
    if (!std::all_of(mPendingRequests.begin(), mPendingRequests.end(), hasEveryFrameBuilder)) {
        return {};
    }
    ZslFrameBuilders result;
    for (ZslReqObject& req : mPendingRequests) {
        result.push_back(changeToNormalCapture(req));
    }
    mPendingRequests.clear();
    // The early shutters stay known: the results of these captures are yet to come.
    returnLockedBuffers();
    ZSL_LOGD("-");
    return result;
}

ZslProcessor::FrameBuilders ZslProcessor::changeToNormalCapture(ZslReqObject& req) {
    req.vFrameObj.merge(req.vPreselectFrameObj);
    FrameBuilders frames;
    for (auto const& [index, frame] : req.vFrameObj) {
        // The application heard this time already; 0 leaves the choice to the pipeline.
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
                // Released rather than unused: after a flush the history starts anew.
                NSPipelineContext::IHistoryBufferProvider::ReturnedBufferSet released{&set, false};
                mpHistoryBufferProvider->returnBufferSet(released);
            }
            mpHistoryBufferProvider->endSelect();
        }
        sets.clear();
    }
}

std::string ZslProcessor::dumpPendingToString() const {
    std::string text;
    for (ZslReqObject const& req : mPendingRequests) {
        text += "R" + std::to_string(req.requestNo) + " ";
    }
    return text;
}

}  // namespace NSCam::v3::pipeline::model
