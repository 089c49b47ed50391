#include "BuiltinSelectors.h"
#include "FrameCriteria.h"
#include "Log.h"

namespace NSCam::v3::pipeline::model {

namespace {

constexpr char JUDGE[] = "operator()";  ///< function name of the lines that give a reason

bool isAcceptable(ISelector::SelectInputParams const& in, ISelector::HistoryFrame const& hf,
                  ISelector::ZslFrameInfo const& info) {
    if (hf.timestamp < in.zsdTs) {
        ZSL_LOGW_AS(JUDGE, "[DefaultSelector] hbs[F%u] Ts(%ld) > zsd(%ld), shutterDelay=%ldms X",
                    hf.frameNo, hf.timestamp, in.zsdTs, shutterDelayMs(hf, in.zsdTs));
        return false;
    }
    if (!containsRequiredStreamBuffer(hf, *info.requiredStreams)) {
        ZSL_LOGW_AS(JUDGE, "[DefaultSelector] hbs[F%u] containsRequiredStreamBuffer X", hf.frameNo);
        return false;
    }
    if (!containRequiredSensorMode(hf, *info.requiredSensorModes)) {
        ZSL_LOGW_AS(JUDGE, "[DefaultSelector] hbs[F%u] containRequiredSensorMode X", hf.frameNo);
        return false;
    }
    if (!isAFStable(hf, *info.requiredStreams)) {
        ZSL_LOGW_AS(JUDGE, "[DefaultSelector] hbs[F%u] isAFStable X", hf.frameNo);
        return false;
    }
    if (!isAESoftStable(hf, *info.requiredStreams)) {
        ZSL_LOGW_AS(JUDGE, "[DefaultSelector] hbs[F%u] isAESoftStable X", hf.frameNo);
        return false;
    }
    if (in.needFrameSync && !isFameSync(hf, *info.requiredStreams)) {
        ZSL_LOGW_AS(JUDGE, "[DefaultSelector] hbs[F%u] isFameSync X", hf.frameNo);
        return false;
    }
    return true;
}

}  // namespace

ISelector::SelectOutputParams ZslProcessor::DefaultSelector::select(
    SelectInputParams const& in) const {
    SelectOutputParams out;
    auto requested = in.frameInfos.begin();
    for (auto const& [frameNo, hf] : in.historyFrames) {
        if (requested == in.frameInfos.end()) {
            break;
        }
        if (!isAcceptable(in, hf, requested->second)) {
            ZSL_LOGW("[DefaultSelector] zslReqNo(%u) hbs[F%u] X", in.requestNo, hf.frameNo);
            continue;
        }
        ZSL_LOGI("[DefaultSelector] zslReqNo(%u) hbs[F%u] O => select", in.requestNo, hf.frameNo);
        out.selected.emplace(requested->first, ZslFrameResult{hf.frameNo, false, {}});
        ++requested;
    }
    ZSL_LOGD("[DefaultSelector] zslReqNo(%u) durationMs(%ld) #select(%zu/%zu)", in.requestNo,
             in.durationMs, out.selected.size(), in.frameInfos.size());
    return out;
}

}  // namespace NSCam::v3::pipeline::model
