#include "BuiltinSelectors.h"
#include "FrameCriteria.h"
#include "Log.h"

namespace NSCam::v3::pipeline::model {

namespace {

constexpr char JUDGE[] = "operator()";  ///< function name of the lines that give a reason

bool isAcceptable(ISelector::HistoryFrame const& hf, ISelector::ZslFrameInfo const& info) {
    if (!containsRequiredStreamBuffer(hf, *info.requiredStreams)) {
        ZSL_LOGW_AS(JUDGE, "[CShotSelector] hbs[F%u] containsRequiredStreamBuffer X", hf.frameNo);
        return false;
    }
    if (!containRequiredSensorMode(hf, *info.requiredSensorModes)) {
        // Log readers know this line under the default selector's name.
        ZSL_LOGW_AS(JUDGE, "[DefaultSelector] hbs[F%u] containRequiredSensorMode X", hf.frameNo);
        return false;
    }
    return true;
}

}  // namespace

ISelector::SelectOutputParams ZslProcessor::CShotSelector::select(
    SelectInputParams const& in) const {
    SelectOutputParams out;
    auto requested = in.frameInfos.begin();
    for (auto const& [frameNo, hf] : in.historyFrames) {
        if (requested == in.frameInfos.end()) {
            break;
        }
        if (!isAcceptable(hf, requested->second)) {
            ZSL_LOGW("[CShotSelector] zslReqNo(%u) hbs[F%u] X", in.requestNo, hf.frameNo);
            continue;
        }
        ZSL_LOGW("[CShotSelector] zslReqNo(%u) hbs[F%u] O => select", in.requestNo, hf.frameNo);
        out.selected.emplace(requested->first, ZslFrameResult{hf.frameNo, false, {}});
        ++requested;
    }
    ZSL_LOGD("[CShotSelector] zslReqNo(%u) durationMs(%ld) #select(%zu/%zu)", in.requestNo,
             in.durationMs, out.selected.size(), in.frameInfos.size());
    return out;
}

}  // namespace NSCam::v3::pipeline::model
