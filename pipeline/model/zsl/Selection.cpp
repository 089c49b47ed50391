#include "Selection.h"

#include <cutils/properties.h>
#include <ulog/ULogPrinter.h>

#include <algorithm>

#include "Log.h"
#include "PluginCall.h"
#include "TextForms.h"
#include "TraceSection.h"

/// One try of a capture: a selector is asked, its choices become frames to build, its orders move
/// sets, and the history goes back.
namespace NSCam::v3::pipeline::model {

using BuildFrames = std::vector<ZslProcessor::BuildFrameParams>;
using NSPipelineContext::IHistoryBufferProvider;
using ZslPolicy::ISelector;
using OpMap = std::map<uint32_t, ISelector::SelectOutputParams::OpT>;
using SelectedMap = std::map<uint64_t, ISelector::ZslFrameResult>;
using ULog::ULogPrinter;

namespace {

constexpr char DRIVER[] = "selectBuf_Locked";  ///< under which the steps of a selection log

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

std::vector<ZslPolicy::InFlightInfo> inFlightOf(IHistoryBufferProvider const* provider) {
    return provider != nullptr ? provider->getInFlightInfos()
                               : std::vector<ZslPolicy::InFlightInfo>();
}

std::string inflightText(ZslProcessor::ZslReqObject const& req) {
    return ZslPolicy::toString(
        ISelector::SelectOutputParams{req.vInflightSelected, req.vInflightOps});
}

/// None if the selector throws: one that cannot even tell its name is not asked for more.
std::optional<std::string> nameOf(ISelector const* pSelector, uint32_t requestNo) {
    std::optional<std::string> name = "";
    bool const isTold =
        pSelector == nullptr || callPlugin(DRIVER, requestNo, "a selector's getName", [&] {
            if (char const* const text = pSelector->getName()) {
                name = text;
            }
        });
    return isTold ? name : std::nullopt;
}

/// Brings back what was decided while the chosen sets were in flight. What the selector says now
/// wins over what it said then.
void mergeInflight(ZslProcessor::ZslReqObject const& req, ISelector::SelectOutputParams& output) {
    ZSL_LOGD_AS(DRIVER, "pre-selectOut: %s", inflightText(req).c_str());
    output.selected.merge(req.vInflightSelected);
    output.ops.merge(req.vInflightOps);
    req.vFrameObj.merge(req.vPreselectFrameObj);
    if (!req.vPreselectFrameObj.empty()) {
        // Cannot happen: a frame leaves one map when it enters the other.
        ZSL_LOGE_AS(DRIVER, "duplicate selection!");
        req.vPreselectFrameObj.clear();
    }
}

std::shared_ptr<HistoryBufferSet> takeSelected(Selection const& selection,
                                               ZslProcessor::FrameObject const& frame,
                                               ISelector::ZslFrameResult const& result) {
    // A set that no frame builder can take over stays where it is.
    if (result.frameNo == ISelector::ZslFrameResult::NO_FRAME || frame.pFB == nullptr) {
        return nullptr;
    }
    return result.needClone ? getClonedHbs(result.frameNo, selection.history, selection.locked,
                                           *frame.required, selection.req.pHistoryBufferProvider)
                            : getSelectedHbs(result.frameNo, selection.history, selection.locked,
                                             *frame.required);
}

/// Moves each chosen frame of the capture to `out`, or parks it if its set is in flight.
void prepareSelectedParams(Selection const& selection, SelectedMap const& selected,
                           BuildFrames& out) {
    ZslProcessor::FrameObjectMap& vFrameObj = selection.req.vFrameObj;
    auto s = selected.begin();
    auto o = vFrameObj.begin();
    while (s != selected.end()) {
        if (o == vFrameObj.end()) {
            ZSL_LOGE("select redundant#%d", static_cast<int>(std::distance(s, selected.end())));
            return;
        }
        // An index that the capture does not have, with frames behind it that would get the wrong
        // sets if the selector counts otherwise.
        if (o->first > s->first) {
            ZSL_FATAL("wrong frameIdx! objIdx=%zu, selIdx=%zu", o->first, s->first);
        }
        if (o->first < s->first) {
            ++o;  // not chosen: it waits
            continue;
        }
        auto const& [index, result] = *s;
        ZslProcessor::FrameObject const& frame = o->second;
        // In flight comes first, even if the history has the frame, too: its buffers are still
        // being written.
        if (selection.isInFlight(result.frameNo)) {
            selection.req.vPreselectFrameObj.insert(*o);
            selection.req.vInflightSelected.insert(*s);
        } else {
            out.push_back(
                {takeSelected(selection, frame, result), frame.pFB, result.additionalMetas});
        }
        o = vFrameObj.erase(o);
        ++s;
    }
}

void lockBuffersForSelector(Selection const& selection, uint32_t frameNo) {
    if (auto const set = findSet(selection.history, frameNo); set != selection.history.end()) {
        selection.locked.splice(selection.locked.end(), selection.history, set);
    } else {
        ZSL_LOGE("cannot find hbs[F%u] to lock", frameNo);
    }
}

void unlockBuffersForSelector(Selection const& selection, uint32_t frameNo) {
    auto const set = findSet(selection.locked, frameNo);
    // Without a provider the history goes nowhere, and the set would be lost with it.
    if (set != selection.locked.end() && selection.req.pHistoryBufferProvider != nullptr) {
        selection.history.splice(selection.history.begin(), selection.locked, set);
    } else {
        ZSL_LOGE("cannot find hbs[F%u] to unlock", frameNo);
    }
}

void releaseBuffersForSelector(Selection const& selection, uint32_t frameNo) {
    BufferSets* sets = &selection.history;
    auto set = findSet(*sets, frameNo);
    if (set == sets->end()) {
        sets = &selection.locked;
        set = findSet(*sets, frameNo);
    }
    if (set == sets->end() || selection.req.pHistoryBufferProvider == nullptr) {
        ZSL_LOGE("cannot find hbs[F%u] to release", frameNo);
        return;
    }
    IHistoryBufferProvider::ReturnedBufferSet released{&*set, false};
    selection.req.pHistoryBufferProvider->returnBufferSet(released);
    sets->erase(set);
}

/// Carries the orders out, those on frames in flight excepted: they are kept for a later try, with
/// lines like "inflight hbs[F%u] to lock".
void carryOutOrders(Selection const& selection, OpMap const& ops) {
    struct Pass {
        ISelector::SelectOutputParams::OpT op;
        char const* function;
        char const* verb;
        void (*carryOut)(Selection const& selection, uint32_t frameNo);
    };
    // A frame has one order, so that the passes could come either way round; log readers know them
    // in this one.
    static constexpr Pass PASSES[] = {
        {ISelector::SelectOutputParams::LOCK, "lockBuffersForSelector", "lock",
         lockBuffersForSelector},
        {ISelector::SelectOutputParams::UNLOCK, "unlockBuffersForSelector", "unlock",
         unlockBuffersForSelector},
        {ISelector::SelectOutputParams::RELEASE, "releaseBuffersForSelector", "release",
         releaseBuffersForSelector}};
    for (Pass const& pass : PASSES) {
        for (auto const& [frameNo, op] : ops) {
            if (op != pass.op) {
                continue;
            }
            if (selection.isInFlight(frameNo)) {
                selection.req.vInflightOps[frameNo] = op;
                ZSL_LOGI_AS(pass.function, "inflight hbs[F%u] to %s", frameNo, pass.verb);
            } else {
                pass.carryOut(selection, frameNo);
            }
        }
    }
}

/// Gives each frame that is left the first set of the history that fits, or none.
void prepareTimedoutParams(ZslProcessor::FrameObjectMap& vFrameObj, BufferSets& history,
                           BuildFrames& out) {
    for (auto const& [index, frame] : vFrameObj) {
        auto set = frame.pFB != nullptr ? getTimedoutHbs(history, *frame.required) : nullptr;
        out.push_back({std::move(set), frame.pFB, {}});
    }
    vFrameObj.clear();
    ZSL_LOGW("ZSL TIMED_OUT!");
}

/// Serves everything that is left once the capture has waited too long.
void serveTimedout(Selection const& selection, int64_t timeoutMs, BuildFrames& out) {
    ZslProcessor::ZslReqObject const& req = selection.req;
    if (req.isServed() || req.ageMs() <= timeoutMs) {
        return;
    }
    dumpProvider(req.pHistoryBufferProvider.get(), ULog::LOG_LEVEL_WARNING);
    // Also what is chosen and in flight: it may never arrive.
    req.vFrameObj.merge(req.vPreselectFrameObj);
    prepareTimedoutParams(req.vFrameObj, selection.history, out);
}

}  // namespace

bool Selection::isInFlight(uint32_t frameNo) const {
    return std::any_of(inflight.begin(), inflight.end(),
                       [&](auto const& info) { return info.frameNo == frameNo; });
}

ISelector::SelectOutputParams ZslProcessor::runSelector(Selection const& selection,
                                                        ISelector const* pSelector,
                                                        std::optional<std::string> const& name) {
    ISelector::SelectOutputParams output;
    if (pSelector == nullptr) {
        // No configure yet. The capture waits for one, or for its time-out.
        ZSL_LOGE_AS(DRIVER, "no selector for requestNo:%u", selection.req.requestNo);
    } else if (name) {
        output = select(selection, *pSelector, *name);
    }
    ZSL_LOGI_AS(DRIVER, "selectOut: %s", ZslPolicy::toString(output).c_str());
    // An early shutter that follows shall not be older than what the user has seen by then.
    if (!selection.history.empty()) {
        int64_t const newest = selection.history.back().timestamp;
        ZSL_LOGD_AS(DRIVER, "Debug1: update fakeShutter: %ld->%ld", mFakeShutterNs, newest);
        mFakeShutterNs = newest;
    }
    return output;
}

std::vector<ZslProcessor::BuildFrameParams> ZslProcessor::selectBuf_Locked(
    ZslReqObject const& req) {
    TraceSection const trace(DRIVER);
    ZSL_LOGI("IN:%s", toString(req).c_str());

    HistoryLease history(req.pHistoryBufferProvider, req.checkPureRaw);
    auto const [pSelector, timeoutMs] = chooseSelector(req);
    auto const name = nameOf(pSelector, req.requestNo);
    BufferSets& locked = mLockedBuffersMap[name.value_or("")];
    // The first one stays: a flush gives every locked set back to it, and knows no capture.
    if (mpHistoryBufferProvider == nullptr) {
        mpHistoryBufferProvider = req.pHistoryBufferProvider;
    }
    // After the history: a frame that arrives in between is in neither, and waits; asked the other
    // way round, it could be in both.
    auto const inflight = inFlightOf(req.pHistoryBufferProvider.get());
    ZSL_LOGI("selector(%s) historyBuffers(#%zu) lockedBuffers(#%zu)", name.value_or("").c_str(),
             history.sets().size(), locked.size());

    Selection const selection{req, history.sets(), locked, inflight};
    ISelector::SelectOutputParams output;
    if (!req.vFrameObj.empty()) {
        output = runSelector(selection, pSelector, name);
    } else {
        ZSL_LOGI("selectOut: no need to trigger selector to select, pre-select only");
    }
    mergeInflight(req, output);

    // Choices before orders: a set that is both chosen and to be released has served its frame by
    // then. The time-out comes last, when unlocked sets are back in the history.
    std::vector<BuildFrameParams> out;
    prepareSelectedParams(selection, output.selected, out);
    carryOutOrders(selection, output.ops);
    serveTimedout(selection, timeoutMs, out);
    history.giveBack();
    logSelection(req, out);
    return out;
}

void ZslProcessor::logSelection(ZslReqObject const& req,
                                std::vector<BuildFrameParams> const& out) const {
    if (!req.isServed() || dumpsAlways()) {
        dumpProvider(req.pHistoryBufferProvider.get(), ULog::LOG_LEVEL_INFO);
    }
    ZSL_LOGI_AS(DRIVER, "OUT(#%zu):", out.size());
    for (BuildFrameParams const& params : out) {
        ZSL_LOGI_AS(DRIVER, "%s", toString(params).c_str());
    }
    ZSL_LOGI_AS(DRIVER, "Inflight(Sel#%zu, Op#%zu): %s", req.vInflightSelected.size(),
                req.vInflightOps.size(), inflightText(req).c_str());
    // The printer has the same gate, but behind it every set's text would be made for nothing.
    if (log::isEnabled(log::Level::Info)) {
        ULogPrinter printer = printerAt(ULog::LOG_LEVEL_INFO);
        dumpLockedMap(printer);
    }
}

}  // namespace NSCam::v3::pipeline::model
