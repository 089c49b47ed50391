#include <algorithm>

#include "Log.h"
#include "ZslProcessor.h"

namespace NSCam::v3::pipeline::model {

bool ZslProcessor::Selection::isInFlight(uint32_t frameNo) const {
    return std::any_of(inflight.begin(), inflight.end(),
                       [&](auto const& info) { return info.frameNo == frameNo; });
}

std::shared_ptr<HistoryBufferSet> ZslProcessor::takeSelected(
    Selection const& selection, FrameObject const& frame, ISelector::ZslFrameResult const& result) {
    // A set that no frame builder can take over stays where it is.
    if (result.frameNo == ISelector::ZslFrameResult::NO_FRAME || frame.pFB == nullptr) {
        return nullptr;
    }
    return result.needClone ? getClonedHbs(result.frameNo, selection.history, selection.locked,
                                           *frame.required, selection.req.pHistoryBufferProvider)
                            : getSelectedHbs(result.frameNo, selection.history, selection.locked,
                                             *frame.required);
}

void ZslProcessor::prepareSelectedParams(Selection const& selection, SelectedMap const& selected,
                                         std::vector<BuildFrameParams>& out) {
    FrameObjectMap& vFrameObj = selection.req.vFrameObj;
    auto s = selected.begin();
    auto o = vFrameObj.begin();
    while (s != selected.end()) {
        if (o == vFrameObj.end()) {
            ZSL_LOGE("select redundant#%d", static_cast<int>(std::distance(s, selected.end())));
            return;
        }
        if (o->first > s->first) {
            ZSL_FATAL("wrong frameIdx! objIdx=%zu, selIdx=%zu", o->first, s->first);
        }
        if (o->first < s->first) {
            ++o;
            continue;
        }
        auto const& [index, result] = *s;
        FrameObject const& frame = o->second;
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

void ZslProcessor::prepareTimedoutParams(FrameObjectMap& vFrameObj, BufferSets& history,
                                         std::vector<BuildFrameParams>& out) {
    for (auto const& [index, frame] : vFrameObj) {
        auto set = frame.pFB != nullptr ? getTimedoutHbs(history, *frame.required) : nullptr;
        out.push_back({std::move(set), frame.pFB, {}});
    }
    vFrameObj.clear();
    ZSL_LOGW("ZSL TIMED_OUT!");
}

}  // namespace NSCam::v3::pipeline::model
