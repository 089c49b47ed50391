#include <cutils/properties.h>
#include <ulog/ULogPrinter.h>

#include "BuiltinSelectors.h"
#include "Log.h"
#include "TextForms.h"
#include "TraceSection.h"

namespace NSCam::v3::pipeline::model {

using NSPipelineContext::IHistoryBufferProvider;
using ULog::ULogPrinter;
using ZslPolicy::ISelector;

namespace {

constexpr int64_t DEFAULT_TIMEOUT_MS = 3000;

int32_t customSelectMode() {
    static int32_t const mode = property_get_int32("vendor.debug.camera.zsl.custom.select", 0);
    return mode;
}

bool dumpsAlways() {
    static bool const dumps = property_get_bool("vendor.debug.camera.zsl.dumpfbm", 0) != 0;
    return dumps;
}

ULogPrinter printerAt(ULog::LogLevel level) {
    return {ULog::MOD_PIPELINE_MODEL_ZSL, log::TAG, level};
}

void dumpProvider(IHistoryBufferProvider const* provider, ULog::LogLevel level) {
    if (provider != nullptr) {
        ULogPrinter printer = printerAt(level);
        provider->dump(printer);
    }
}

}  // namespace

ISelector const* ZslProcessor::getSelector(ISelector const* pSelector) const {
    int32_t const mode = customSelectMode();
    if (pSelector != nullptr) {
        return mpCustomSelector != nullptr && mode == 1 ? mpCustomSelector : pSelector;
    }
    if (mpCustomSelector != nullptr && mode != -1) {
        return mpCustomSelector;
    }
    return mpDefaultSelector.get();
}

ZslProcessor::SelectorChoice ZslProcessor::chooseSelector(ZslReqObject const& req) const {
    SelectorChoice choice{req.pSelector.get(), DEFAULT_TIMEOUT_MS};
    if (choice.pSelector == nullptr && req.pPolicyParams != nullptr) {
        if (req.pPolicyParams->policy == ZslPolicy::POLICY_CONTINUOUS_SHOT) {
            choice.pSelector = mpCShotSelector.get();
        } else if ((req.pPolicyParams->policy & ZslPolicy::POLICY_MULTIFRAME_BIT) != 0) {
            choice = {mpMultiframeSelector.get(), req.pPolicyParams->timeoutMs};
        }
    }
    choice.pSelector = getSelector(choice.pSelector);
    return choice;
}

/// A selector that cannot even tell its name is not asked for more.
std::string ZslProcessor::nameOf(ISelector const*& pSelector) {
    if (pSelector == nullptr) {
        return {};
    }
    try {
        char const* const name = pSelector->getName();
        return name != nullptr ? name : "";
    } catch (...) {
        noteFailure();
        pSelector = nullptr;
        return {};
    }
}

ISelector::SelectOutputParams ZslProcessor::runSelector(Selection const& selection,
                                                        ISelector const* pSelector) {
    ISelector::SelectOutputParams output;
    if (pSelector == nullptr) {
        ZSL_LOGE_AS("selectBuf_Locked", "no selector for requestNo:%u", selection.req.requestNo);
    } else {
        try {
            output = select(selection.req, *pSelector, selection.history, selection.locked,
                            selection.inflight);
        } catch (...) {
            noteFailure();
        }
    }
    ZSL_LOGI_AS("selectBuf_Locked", "selectOut: %s", ZslPolicy::toString(output).c_str());
    if (!selection.history.empty()) {
        int64_t const newest = selection.history.back().timestamp;
        ZSL_LOGD_AS("selectBuf_Locked", "Debug1: update fakeShutter: %ld->%ld", mFakeShutterNs,
                    newest);
        mFakeShutterNs = newest;
    }
    return output;
}

/// Brings back what was decided while the chosen sets were in flight.
void ZslProcessor::mergeInflight(ZslReqObject const& req, ISelector::SelectOutputParams& output) {
    ZSL_LOGD_AS("selectBuf_Locked", "pre-selectOut: %s",
                model::toString(req.vInflightSelected, req.vInflightOps).c_str());
    output.selected.merge(req.vInflightSelected);
    output.ops.merge(req.vInflightOps);
    req.vFrameObj.merge(req.vPreselectFrameObj);
    if (!req.vPreselectFrameObj.empty()) {
        ZSL_LOGE_AS("selectBuf_Locked", "duplicate selection!");
        req.vPreselectFrameObj.clear();
    }
}

void ZslProcessor::lockBuffersForSelector(Selection const& selection, OpMap const& ops) {
    for (auto const& [frameNo, op] : ops) {
        if (op != ISelector::SelectOutputParams::LOCK) {
            continue;
        }
        if (selection.isInFlight(frameNo)) {
            selection.req.vInflightOps[frameNo] = op;
            ZSL_LOGI("inflight hbs[F%u] to lock", frameNo);
        } else if (auto const set = findSet(selection.history, frameNo);
                   set != selection.history.end()) {
            selection.locked.splice(selection.locked.end(), selection.history, set);
        } else {
            ZSL_LOGE("cannot find hbs[F%u] to lock", frameNo);
        }
    }
}

void ZslProcessor::unlockBuffersForSelector(Selection const& selection, OpMap const& ops) {
    for (auto const& [frameNo, op] : ops) {
        if (op != ISelector::SelectOutputParams::UNLOCK) {
            continue;
        }
        if (selection.isInFlight(frameNo)) {
            selection.req.vInflightOps[frameNo] = op;
            ZSL_LOGI("inflight hbs[F%u] to unlock", frameNo);
        } else if (auto const set = findSet(selection.locked, frameNo);
                   set != selection.locked.end() &&
                   selection.req.pHistoryBufferProvider != nullptr) {
            selection.history.splice(selection.history.begin(), selection.locked, set);
        } else {
            ZSL_LOGE("cannot find hbs[F%u] to unlock", frameNo);
        }
    }
}

void ZslProcessor::releaseBuffersForSelector(Selection const& selection, OpMap const& ops) {
    for (auto const& [frameNo, op] : ops) {
        if (op != ISelector::SelectOutputParams::RELEASE) {
            continue;
        }
        if (selection.isInFlight(frameNo)) {
            selection.req.vInflightOps[frameNo] = op;
            ZSL_LOGI("inflight hbs[F%u] to release", frameNo);
            continue;
        }
        BufferSets* sets = &selection.history;
        auto set = findSet(*sets, frameNo);
        if (set == sets->end()) {
            sets = &selection.locked;
            set = findSet(*sets, frameNo);
        }
        if (set == sets->end() || selection.req.pHistoryBufferProvider == nullptr) {
            ZSL_LOGE("cannot find hbs[F%u] to release", frameNo);
            continue;
        }
        IHistoryBufferProvider::ReturnedBufferSet released{&*set, false};
        selection.req.pHistoryBufferProvider->returnBufferSet(released);
        sets->erase(set);
    }
}

/// Serves everything that is left once the capture has waited too long.
void ZslProcessor::serveTimedout(Selection const& selection, int64_t timeoutMs,
                                 std::vector<BuildFrameParams>& out) {
    ZslReqObject const& req = selection.req;
    if (req.isServed() || req.ageMs() <= timeoutMs) {
        return;
    }
    dumpProvider(req.pHistoryBufferProvider.get(), ULog::LOG_LEVEL_WARNING);
    req.vFrameObj.merge(req.vPreselectFrameObj);
    prepareTimedoutParams(req.vFrameObj, selection.history, out);
}

std::vector<ZslProcessor::BuildFrameParams> ZslProcessor::selectBuf_Locked(
    ZslReqObject const& req) {
    TraceSection const trace("selectBuf_Locked");
    ZSL_LOGI("IN:%s", toString(req).c_str());

    HistoryLease history(req.pHistoryBufferProvider, req.checkPureRaw);
    auto [pSelector, timeoutMs] = chooseSelector(req);
    std::string const name = nameOf(pSelector);
    BufferSets& locked = mLockedBuffersMap[name];
    if (mpHistoryBufferProvider == nullptr) {
        mpHistoryBufferProvider = req.pHistoryBufferProvider;
    }
    InFlightInfos inflight;
    if (req.pHistoryBufferProvider != nullptr) {
        inflight = req.pHistoryBufferProvider->getInFlightInfos();
    }
    ZSL_LOGI("selector(%s) historyBuffers(#%zu) lockedBuffers(#%zu)", name.c_str(),
             history.sets().size(), locked.size());

    Selection const selection{req, history.sets(), locked, inflight};
    ISelector::SelectOutputParams output;
    if (!req.vFrameObj.empty()) {
        output = runSelector(selection, pSelector);
    } else {
        ZSL_LOGI("selectOut: no need to trigger selector to select, pre-select only");
    }
    mergeInflight(req, output);

    std::vector<BuildFrameParams> out;
    prepareSelectedParams(selection, output.selected, out);
    lockBuffersForSelector(selection, output.ops);
    unlockBuffersForSelector(selection, output.ops);
    releaseBuffersForSelector(selection, output.ops);
    serveTimedout(selection, timeoutMs, out);
    history.giveBack();
    logSelection(req, out);
    return out;
}

void ZslProcessor::logSelection(ZslReqObject const& req,
                                std::vector<BuildFrameParams> const& out) const {
    constexpr char FUNCTION[] = "selectBuf_Locked";
    if (!req.isServed() || dumpsAlways()) {
        dumpProvider(req.pHistoryBufferProvider.get(), ULog::LOG_LEVEL_INFO);
    }
    ZSL_LOGI_AS(FUNCTION, "OUT(#%zu):", out.size());
    for (BuildFrameParams const& params : out) {
        ZSL_LOGI_AS(FUNCTION, "%s", toString(params).c_str());
    }
    ZSL_LOGI_AS(FUNCTION, "Inflight(Sel#%zu, Op#%zu): %s", req.vInflightSelected.size(),
                req.vInflightOps.size(),
                model::toString(req.vInflightSelected, req.vInflightOps).c_str());
    ULogPrinter printer = printerAt(ULog::LOG_LEVEL_INFO);
    dumpLockedMap(printer);
}

}  // namespace NSCam::v3::pipeline::model
