#include "MetadataLocks.h"
#include "PluginCall.h"
#include "Selection.h"
#include "Streams.h"

/// What a selector sees.
namespace NSCam::v3::pipeline::model {

namespace {

using ZslPolicy::ISelector;

/// Read-locks the buffers, notes each in `locked`, and maps stream info to what the lock gave. The
/// first buffer of a stream wins.
ISelector::MetaMap getMetaInfoMap(MetaBuffers const& buffers, LockedMetadata& locked) {
    ISelector::MetaMap metas;
    for (auto const& buffer : buffers) {
        if (buffer == nullptr) {
            continue;
        }
        // A lock that cannot be had is the selector's to judge: it sees the null.
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
        if (IImageStreamInfo const* const info = streamInfoOf(image)) {
            frame.halImages.insert(info);
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
            // One look-up for the test and the insertion, and no frame made that is not kept.
            auto const next = frames.lower_bound(set.frameNo);
            if (next == frames.end() || next->first != set.frameNo) {
                frames.emplace_hint(next, set.frameNo,
                                    makeHistoryFrame(set, sets == &lockedSets, locked));
            }
        }
    }
}

std::map<uint64_t, ISelector::ZslFrameInfo> generateZslFrameInfos(
    ZslProcessor::FrameObjectMap const& vFrameObj, LockedMetadata& locked) {
    std::map<uint64_t, ISelector::ZslFrameInfo> infos;
    for (auto const& [index, frame] : vFrameObj) {
        MetaBuffers controls;
        if (frame.pFB != nullptr) {
            // Application settings first: of two buffers of one stream theirs is seen.
            frame.pFB->getAppMetaStreamBuffers(controls);
            frame.pFB->getHalMetaStreamBuffers(controls);
        }
        infos.emplace_hint(infos.end(), index,
                           ISelector::ZslFrameInfo{frame.required, getMetaInfoMap(controls, locked),
                                                   frame.pSensorModeMap});
    }
    return infos;
}

ISelector::SelectInputParams generateZslRequestInfo(ZslProcessor::ZslReqObject const& req,
                                                    LockedMetadata& locked) {
    ISelector::SelectInputParams in;
    in.requestNo = req.requestNo;
    in.frameInfos = generateZslFrameInfos(req.vFrameObj, locked);
    in.needFrameSync = req.needFrameSync;
    in.durationMs = req.ageMs();
    in.zsdTs = req.zsdTimestamp;
    return in;
}

}  // namespace

ISelector::SelectOutputParams select(Selection const& selection, ISelector const& selector,
                                     std::string const& name) {
    LockedMetadata locked;
    // One allocation for the usual two metadata buffers of each frame and set.
    locked.reserve(
        2 * (selection.req.vFrameObj.size() + selection.history.size() + selection.locked.size()));
    // Unlocks after `in`, which points to the metadata, is gone.
    MetadataUnlocker const unlocker(locked);
    ISelector::SelectInputParams in = generateZslRequestInfo(selection.req, locked);
    generateHistoryFrames(selection.history, selection.locked, locked, in.historyFrames);
    in.inflightInfos = selection.inflight;
    ISelector::SelectOutputParams out;
    callPlugin("selectBuf_Locked", selection.req.requestNo, name.c_str(),
               [&] { out = selector.select(in); });
    return out;
}

}  // namespace NSCam::v3::pipeline::model
