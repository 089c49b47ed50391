#include <algorithm>
#include <vector>

#include "BuiltinSelectors.h"
#include "FrameCriteria.h"
#include "Log.h"

namespace NSCam::v3::pipeline::model {

namespace {

constexpr char JUDGE[] = "operator()";  ///< function name of the lines that give a reason

/// The history by position, oldest first.
using Frames = std::vector<ISelector::HistoryFrame const*>;

bool isAcceptable(ISelector::SelectInputParams const& in, ISelector::HistoryFrame const& hf,
                  ISelector::ZslFrameInfo const& info) {
    if (!containsRequiredStreamBuffer(hf, *info.requiredStreams)) {
        ZSL_LOGW_AS(JUDGE, "[MultiframeSelector] hbs[F%u] containsRequiredStreamBuffer X",
                    hf.frameNo);
        return false;
    }
    if (!containRequiredSensorMode(hf, *info.requiredSensorModes)) {
        // Log readers know this line under the default selector's name.
        ZSL_LOGW_AS(JUDGE, "[DefaultSelector] hbs[F%u] containRequiredSensorMode X", hf.frameNo);
        return false;
    }
    if (!isAFStable(hf, *info.requiredStreams)) {
        ZSL_LOGW_AS(JUDGE, "[MultiframeSelector] hbs[F%u] isAFStable X", hf.frameNo);
        return false;
    }
    if (!isAESoftStable(hf, *info.requiredStreams)) {
        ZSL_LOGW_AS(JUDGE, "[MultiframeSelector] hbs[F%u] isAESoftStable X", hf.frameNo);
        return false;
    }
    if (in.needFrameSync && !isFameSync(hf, *info.requiredStreams)) {
        ZSL_LOGW_AS(JUDGE, "[MultiframeSelector] hbs[F%u] isFameSync X", hf.frameNo);
        return false;
    }
    return true;
}

/// Position of the first frame from the capture's instant on; the newest when all are older. The
/// history's timestamps ascend with its frame numbers.
size_t findZsdFrame(Frames const& frames, int64_t zsdTs) {
    auto const found =
        std::lower_bound(frames.begin(), frames.end(), zsdTs,
                         [](auto const* hf, int64_t ts) { return hf->timestamp < ts; });
    if (found == frames.end()) {
        ZSL_LOGW_AS("select", "[MultiframeSelector] future ts, use latest");
        return frames.size() - 1;
    }
    return static_cast<size_t>(found - frames.begin());
}

/// Position at which a run of `frameSize` frames starts so that it ends at the zsd frame, or as
/// near to it as the history reaches back.
size_t findStart(ISelector::SelectInputParams const& in, Frames const& frames, size_t frameSize) {
    size_t const zsdIdx = findZsdFrame(frames, in.zsdTs);
    size_t const startIdx = zsdIdx - std::min(frameSize - 1, zsdIdx);
    ZSL_LOGD_AS("select",
                "[MultiframeSelector] zslReqNo(%u) frameSize(%zu) zsdIdx(%zu)/shutterDelay(%ldms) "
                "startIdx(%zu)/shutterDelay(%ldms)",
                in.requestNo, frameSize, zsdIdx, shutterDelayMs(*frames[zsdIdx], in.zsdTs),
                startIdx, shutterDelayMs(*frames[startIdx], in.zsdTs));
    return startIdx;
}

}  // namespace

ISelector::SelectOutputParams ZslProcessor::MultiframeSelector::select(
    SelectInputParams const& in) const {
    SelectOutputParams out;
    size_t const frameSize = in.frameInfos.size();
    if (in.historyFrames.empty() || frameSize == 0) {
        ZSL_LOGW(
            "[MultiframeSelector] zslReqNo(%u) durationMs(%ld) hfs(%zu)/frameSize(%zu) "
            "=> PENDING",
            in.requestNo, in.durationMs, in.historyFrames.size(), frameSize);
        return out;
    }
    Frames frames;
    frames.reserve(in.historyFrames.size());
    for (auto const& [frameNo, hf] : in.historyFrames) {
        frames.push_back(&hf);
    }
    auto requested = in.frameInfos.begin();
    for (size_t i = findStart(in, frames, frameSize);
         i < frames.size() && out.selected.size() < frameSize; ++i) {
        ISelector::HistoryFrame const& hf = *frames[i];
        if (isAcceptable(in, hf, requested->second)) {
            out.selected.emplace(requested->first, ZslFrameResult{hf.frameNo, false, {}});
            ++requested;
            ZSL_LOGI("[MultiframeSelector] zslReqNo(%u) hbs[F%u] O => select", in.requestNo,
                     hf.frameNo);
        } else {
            out.selected.clear();
            requested = in.frameInfos.begin();
            ZSL_LOGW("[MultiframeSelector] zslReqNo(%u) hbs[F%u] X => break continuous, start over",
                     in.requestNo, hf.frameNo);
        }
    }
    if (out.selected.size() < frameSize) {
        ZSL_LOGD("[MultiframeSelector] zslReqNo(%u) durationMs(%ld) #select(%zu/%zu) => PENDING",
                 in.requestNo, in.durationMs, out.selected.size(), frameSize);
        out.selected.clear();
    } else {
        ZSL_LOGI("[MultiframeSelector] zslReqNo(%u) durationMs(%ld) #select(%zu/%zu) => SUCCESS",
                 in.requestNo, in.durationMs, frameSize, frameSize);
    }
    return out;
}

}  // namespace NSCam::v3::pipeline::model
