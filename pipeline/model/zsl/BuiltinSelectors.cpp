#include "BuiltinSelectors.h"

#include <algorithm>
#include <vector>

#include "FrameCriteria.h"
#include "Log.h"

namespace NSCam::v3::pipeline::model {

namespace {

/// The history by position, oldest first.
using Frames = std::vector<ISelector::HistoryFrame const*>;

/// Function name of the lines that give a reason: log readers' filters know them under it.
constexpr char JUDGE[] = "operator()";

// Every criterion logs under its selector's name, so that each selector has a judge of its own.

bool defaultAccepts(ISelector::SelectInputParams const& in, ISelector::HistoryFrame const& hf,
                    ISelector::ZslFrameInfo const& info) {
    if (hf.timestamp < in.zsdTs) {
        // The text has the sign the wrong way round; log readers search for it as it is.
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

bool cshotAccepts(ISelector::HistoryFrame const& hf, ISelector::ZslFrameInfo const& info) {
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

bool multiframeAccepts(ISelector::SelectInputParams const& in, ISelector::HistoryFrame const& hf,
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

/// For each frame asked for, in order, the oldest frame after the one before it that `isAccepted`.
template <typename Judge>
std::map<uint64_t, ISelector::ZslFrameResult> firstThatPass(ISelector::SelectInputParams const& in,
                                                            Judge isAccepted) {
    std::map<uint64_t, ISelector::ZslFrameResult> selected;
    auto requested = in.frameInfos.begin();
    for (auto const& [frameNo, hf] : in.historyFrames) {
        if (requested == in.frameInfos.end()) {
            break;
        }
        if (isAccepted(hf, requested->second)) {
            // The next one is asked of the rest of the history: no set serves two.
            selected.emplace(requested->first, ISelector::ZslFrameResult{hf.frameNo, false, {}});
            ++requested;
        }
    }
    return selected;
}

/// Position of the first frame from the capture's instant on; the newest when all are older. The
/// history's timestamps ascend with its frame numbers.
size_t findZsdFrame(Frames const& frames, int64_t zsdTs) {
    auto const found =
        std::lower_bound(frames.begin(), frames.end(), zsdTs,
                         [](auto const* hf, int64_t ts) { return hf->timestamp < ts; });
    if (found == frames.end()) {
        // The press is ahead of the sensor: its latest frame comes nearest.
        ZSL_LOGW_AS("select", "[MultiframeSelector] future ts, use latest");
        return frames.size() - 1;
    }
    return static_cast<size_t>(found - frames.begin());
}

/// Position at which a run of `frameSize` frames starts so that it ends at the zsd frame, or as
/// near to it as the history reaches back.
size_t findStart(ISelector::SelectInputParams const& in, Frames const& frames, size_t frameSize) {
    size_t const zsdIdx = findZsdFrame(frames, in.zsdTs);
    // Where the history is too short, the run ends after the press instead.
    size_t const startIdx = zsdIdx - std::min(frameSize - 1, zsdIdx);
    ZSL_LOGD_AS("select",
                "[MultiframeSelector] zslReqNo(%u) frameSize(%zu) zsdIdx(%zu)/shutterDelay(%ldms) "
                "startIdx(%zu)/shutterDelay(%ldms)",
                in.requestNo, frameSize, zsdIdx, shutterDelayMs(*frames[zsdIdx], in.zsdTs),
                startIdx, shutterDelayMs(*frames[startIdx], in.zsdTs));
    return startIdx;
}

/// Frames without a gap, one for each frame asked for, that all pass; fewer at the history's end.
std::map<uint64_t, ISelector::ZslFrameResult> findRun(ISelector::SelectInputParams const& in,
                                                      Frames const& frames) {
    size_t const frameSize = in.frameInfos.size();
    std::map<uint64_t, ISelector::ZslFrameResult> run;
    auto requested = in.frameInfos.begin();
    for (size_t i = findStart(in, frames, frameSize); i < frames.size() && run.size() < frameSize;
         ++i) {
        ISelector::HistoryFrame const& hf = *frames[i];
        if (multiframeAccepts(in, hf, requested->second)) {
            run.emplace(requested->first, ISelector::ZslFrameResult{hf.frameNo, false, {}});
            ++requested;
            ZSL_LOGI_AS("select", "[MultiframeSelector] zslReqNo(%u) hbs[F%u] O => select",
                        in.requestNo, hf.frameNo);
        } else {
            // Blending needs neighbours: a gap makes what was found so far useless.
            run.clear();
            requested = in.frameInfos.begin();
            ZSL_LOGW_AS(
                "select",
                "[MultiframeSelector] zslReqNo(%u) hbs[F%u] X => break continuous, start over",
                in.requestNo, hf.frameNo);
        }
    }
    return run;
}

}  // namespace

ISelector::SelectOutputParams ZslProcessor::DefaultSelector::select(
    SelectInputParams const& in) const {
    SelectOutputParams out;
    out.selected = firstThatPass(in, [&](HistoryFrame const& hf, ZslFrameInfo const& info) {
        bool const isAccepted = defaultAccepts(in, hf, info);
        if (isAccepted) {
            ZSL_LOGI_AS("select", "[DefaultSelector] zslReqNo(%u) hbs[F%u] O => select",
                        in.requestNo, hf.frameNo);
        } else {
            ZSL_LOGW_AS("select", "[DefaultSelector] zslReqNo(%u) hbs[F%u] X", in.requestNo,
                        hf.frameNo);
        }
        return isAccepted;
    });
    ZSL_LOGD("[DefaultSelector] zslReqNo(%u) durationMs(%ld) #select(%zu/%zu)", in.requestNo,
             in.durationMs, out.selected.size(), in.frameInfos.size());
    return out;
}

ISelector::SelectOutputParams ZslProcessor::CShotSelector::select(
    SelectInputParams const& in) const {
    SelectOutputParams out;
    out.selected = firstThatPass(in, [&](HistoryFrame const& hf, ZslFrameInfo const& info) {
        bool const isAccepted = cshotAccepts(hf, info);
        if (isAccepted) {
            // At warning level, unlike the others' choices: log readers know it there.
            ZSL_LOGW_AS("select", "[CShotSelector] zslReqNo(%u) hbs[F%u] O => select", in.requestNo,
                        hf.frameNo);
        } else {
            ZSL_LOGW_AS("select", "[CShotSelector] zslReqNo(%u) hbs[F%u] X", in.requestNo,
                        hf.frameNo);
        }
        return isAccepted;
    });
    ZSL_LOGD("[CShotSelector] zslReqNo(%u) durationMs(%ld) #select(%zu/%zu)", in.requestNo,
             in.durationMs, out.selected.size(), in.frameInfos.size());
    return out;
}

ISelector::SelectOutputParams ZslProcessor::MultiframeSelector::select(
    SelectInputParams const& in) const {
    SelectOutputParams out;
    size_t const frameSize = in.frameInfos.size();
    // The arithmetic below needs a frame on either side. The processor asks for at least one.
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
    out.selected = findRun(in, frames);
    if (out.selected.size() < frameSize) {
        // Nothing rather than a part, so that the run may still be found when more frames are here.
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
