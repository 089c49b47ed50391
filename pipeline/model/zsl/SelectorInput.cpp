#include "ZslProcessor.h"

namespace NSCam::v3::pipeline::model {

namespace {

using ZslPolicy::ISelector;

/// Read-locks the buffers, notes each in `locked`, and maps stream info to what the lock gave. The
/// first buffer of a stream wins.
ISelector::MetaMap getMetaInfoMap(std::vector<android::sp<IMetaStreamBuffer>> const& buffers,
                                  LockedMetadata& locked) {
    ISelector::MetaMap metas;
    for (auto const& buffer : buffers) {
        if (buffer == nullptr) {
            continue;
        }
        IMetadata* const metadata = buffer->tryReadLock(log::TAG);
        locked.emplace_back(buffer, metadata);
        if (IMetaStreamInfo const* const info = buffer->getStreamInfo()) {
            metas.emplace(info, metadata);
        }
    }
    return metas;
}

ISelector::HistoryFrame makeHistoryFrame(HistoryBufferSet const& set, bool isLocked,
                                         LockedMetadata& locked) {
    ISelector::HistoryFrame frame;
    frame.frameNo = set.frameNo;
    frame.requestNo = set.requestNo;
    frame.timestamp = set.timestamp;
    for (auto const& image : set.halImage) {
        if (image != nullptr && image->getStreamInfo() != nullptr) {
            frame.halImages.insert(image->getStreamInfo());
        }
    }
    frame.halMetas = getMetaInfoMap(set.halMeta, locked);
    frame.appMetas = getMetaInfoMap(set.appMeta, locked);
    frame.isLocked = isLocked;
    return frame;
}

/// History sets come first, so that of two sets with one frame number the history's stays.
void generateHistoryFrames(BufferSets const& history, BufferSets const& lockedSets,
                           LockedMetadata& locked,
                           std::map<uint32_t, ISelector::HistoryFrame>& frames) {
    for (BufferSets const* const sets : {&history, &lockedSets}) {
        for (HistoryBufferSet const& set : *sets) {
            auto const next = frames.lower_bound(set.frameNo);
            if (next == frames.end() || next->first != set.frameNo) {
                frames.emplace_hint(next, set.frameNo,
                                    makeHistoryFrame(set, sets == &lockedSets, locked));
            }
        }
    }
}

}  // namespace

std::map<uint64_t, ISelector::ZslFrameInfo> ZslProcessor::generateZslFrameInfos(
    FrameObjectMap const& vFrameObj, LockedMetadata& locked) {
    std::map<uint64_t, ISelector::ZslFrameInfo> infos;
    for (auto const& [index, frame] : vFrameObj) {
        std::vector<android::sp<IMetaStreamBuffer>> controls;
        if (frame.pFB != nullptr) {
            frame.pFB->getAppMetaStreamBuffers(controls);
            frame.pFB->getHalMetaStreamBuffers(controls);
        }
        infos.emplace_hint(infos.end(), index,
                           ISelector::ZslFrameInfo{frame.required, getMetaInfoMap(controls, locked),
                                                   frame.pSensorModeMap});
    }
    return infos;
}

ISelector::SelectInputParams ZslProcessor::generateZslRequestInfo(ZslReqObject const& req,
                                                                  LockedMetadata& locked) {
    ISelector::SelectInputParams in;
    in.requestNo = req.requestNo;
    in.frameInfos = generateZslFrameInfos(req.vFrameObj, locked);
    in.needFrameSync = req.needFrameSync;
    in.durationMs = req.ageMs();
    in.zsdTs = req.zsdTimestamp;
    return in;
}

ISelector::SelectOutputParams ZslProcessor::select(ZslReqObject const& req,
                                                   ISelector const& selector,
                                                   BufferSets const& history,
                                                   BufferSets const& lockedSets,
                                                   InFlightInfos const& inflight) {
    LockedMetadata locked;
    locked.reserve(2 * (req.vFrameObj.size() + history.size() + lockedSets.size()));
    MetadataUnlocker const unlocker(locked);
    ISelector::SelectInputParams in = generateZslRequestInfo(req, locked);
    generateHistoryFrames(history, lockedSets, locked, in.historyFrames);
    in.inflightInfos = inflight;
    return selector.select(in);
}

}  // namespace NSCam::v3::pipeline::model
