#pragma once

#include <metadata/IMetadata.h>
#include <policy/zsl/ZslTypes.h>
#include <streamutils/IStreamInfo.h>

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

namespace NSCam::ZslPolicy {

/**
 * A selection policy: decides which history frames serve a capture's frames.
 *
 * The processor owns the mechanics (reading the history, locking metadata, moving buffer sets,
 * building frames). A policy reads a snapshot and answers with a decision, and nothing else.
 *
 * `select` runs with the processor's lock held, one call at a time per processor: it must return
 * quickly and must not call back into the processor. It is constant; one instance may serve several
 * processors. A policy in a plug-in library exports `extern "C" ISelector* create()`.
 */
class ISelector {
public:
    struct HistoryFrame;
    struct ZslFrameInfo;
    struct ZslFrameResult;
    struct SelectInputParams;
    struct SelectOutputParams;

    /// Metadata of a frame, by the stream info of the buffer that holds it. A value may be null:
    /// the buffer could not be locked.
    using MetaMap = std::map<v3::IMetaStreamInfo const*, IMetadata const*>;

    /// Metadata to add to a built frame, by the id of the stream it goes to.
    using AdditionalMetas = std::map<v3::StreamId_T, std::shared_ptr<IMetadata>>;

    virtual ~ISelector() = default;

    /// Name of the policy: shown in log lines, and the key of the list of buffer sets that the
    /// policy keeps locked; policies of one name share one list. Zero-terminated, valid as long as
    /// the policy lives.
    virtual char const* getName() const = 0;

    /**
     * Chooses history frames for the frames in `in`.
     *
     * Everything reachable from `in` is valid only during the call. A frame that is not in the
     * answer waits and is asked about again, with a fresh snapshot, on a later call. Name only
     * frame indices that occur in `in.frameInfos`. Any other that is below one of the capture's
     * frames still to serve is a broken invariant that ends the process; one beyond the last of
     * them is ignored, with an error line.
     *
     * What it throws, or getName() does, costs an error line and counts as an empty answer.
     */
    virtual SelectOutputParams select(SelectInputParams const& in) const = 0;
};

/// One frame of the history.
struct ISelector::HistoryFrame {
    uint32_t frameNo = 0;
    uint32_t requestNo = 0;  ///< pipeline request that produced the frame
    int64_t timestamp = 0;   ///< sensor timestamp, ns
    std::set<v3::IImageStreamInfo const*> halImages;
    MetaMap halMetas;       ///< HAL results, locked for reading
    MetaMap appMetas;       ///< application results, locked for reading
    bool isLocked = false;  ///< kept by an earlier decision of this policy
};

/// One requested frame of the capture.
struct ISelector::ZslFrameInfo {
    std::shared_ptr<RequiredStreams const> requiredStreams;  ///< never null
    MetaMap ctrlMetas;  ///< the requested frame's own settings, locked for reading
    /// Sensor mode that each sensor must have been in, by sensor id; never null.
    std::shared_ptr<std::unordered_map<uint32_t, uint32_t> const> requiredSensorModes;
};

/// Everything that a policy may read.
struct ISelector::SelectInputParams {
    uint32_t requestNo = 0;
    std::map<uint64_t, ZslFrameInfo> frameInfos;  ///< frames still to serve, by frame index
    int64_t durationMs = 0;                       ///< age of the capture, ms
    int64_t zsdTs = 0;           ///< the instant that the capture stands for, sensor time, ns
    bool needFrameSync = false;  ///< wants frames with confirmed multi-sensor synchronisation
    std::map<uint32_t, HistoryFrame> historyFrames;  ///< by frame number, oldest first
    std::vector<InFlightInfo> inflightInfos;
};

/// The decision for one requested frame.
struct ISelector::ZslFrameResult {
    uint32_t frameNo = 0;    ///< the chosen history frame, or NO_FRAME
    bool needClone = false;  ///< serve from a copy and leave the buffer set where it is
    AdditionalMetas additionalMetas;

    /// As `frameNo`: build the frame without a history frame.
    static constexpr uint32_t NO_FRAME = 0xFFFFFFFF;
};

/// A policy's answer.
struct ISelector::SelectOutputParams {
    /// What to do with a history frame. An order on a frame in flight is remembered and carried
    /// out once the frame has arrived.
    enum OpT : uint32_t {
        LOCK = 0,     ///< keep the buffer set, in this policy's locked list
        UNLOCK = 1,   ///< give a kept buffer set back to the history
        RELEASE = 2,  ///< let a buffer set go for good
    };

    std::map<uint64_t, ZslFrameResult> selected;  ///< by frame index
    std::map<uint32_t, OpT> ops;                  ///< by frame number
};

/// One line, for instance `{ selected={ 0-[F105 addMeta(#0)] } ops={ F103(0) }}`; -1 stands for
/// NO_FRAME. Inline, so that a policy needs no library for it.
inline std::string toString(ISelector::SelectOutputParams const& output) {
    std::string text = "{ selected={ ";
    for (auto const& [index, result] : output.selected) {
        text.append(std::to_string(index)).append("-[F");
        text.append(std::to_string(static_cast<int32_t>(result.frameNo))).append(" addMeta(#");
        text.append(std::to_string(result.additionalMetas.size())).append(")] ");
    }
    text.append("} ops={ ");
    for (auto const& [frameNo, op] : output.ops) {
        text.append("F").append(std::to_string(frameNo)).append("(");
        text.append(std::to_string(static_cast<int32_t>(op))).append(") ");
    }
    return text.append("}}");
}

}  // namespace NSCam::ZslPolicy
