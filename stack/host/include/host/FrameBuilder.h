#pragma once

#include <pipeline/IFrameBuilder.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace zebcam::host {

class LedgerEntry;

/// A frame builder that records what it was given, for inspection and for a simulated pipeline. A
/// null buffer takes away what the stream had.
class FrameBuilder final : public NSCam::v3::pipeline::NSPipelineContext::IFrameBuilder {
public:
    using MetaBuffers = std::vector<android::sp<NSCam::v3::IMetaStreamBuffer>>;

    FrameBuilder(uint32_t requestNo, uint32_t frameType);

    uint32_t getFrameType() const override { return mFrameType; }
    void getAppMetaStreamBuffers(MetaBuffers& out) const override;
    void getHalMetaStreamBuffers(MetaBuffers& out) const override;
    void setHalImageStreamBuffer(NSCam::v3::StreamId_T streamId,
                                 android::sp<NSCam::v3::IImageStreamBuffer> const& buffer) override;
    void setHalMetaStreamBuffer(NSCam::v3::StreamId_T streamId,
                                android::sp<NSCam::v3::IMetaStreamBuffer> const& buffer) override;
    void setAppMetaStreamBuffer(NSCam::v3::StreamId_T streamId,
                                android::sp<NSCam::v3::IMetaStreamBuffer> const& buffer) override;
    void setFrameTimestamp(int64_t ns) override { mTimestamp = ns; }
    void setBuiltFromHistory(bool builtFromHistory) override { mFromHistory = builtFromHistory; }

    uint32_t requestNo() const { return mRequestNo; }
    std::optional<int64_t> timestamp() const { return mTimestamp; }        ///< ns, once it was set
    std::optional<bool> builtFromHistory() const { return mFromHistory; }  ///< once it was set
    std::map<NSCam::v3::StreamId_T, android::sp<NSCam::v3::IImageStreamBuffer>> const& halImages()
        const {
        return mHalImages;
    }
    /// The HAL (application) metadata buffer of a stream; null when there is none.
    android::sp<NSCam::v3::IMetaStreamBuffer> halMeta(NSCam::v3::StreamId_T streamId) const;
    android::sp<NSCam::v3::IMetaStreamBuffer> appMeta(NSCam::v3::StreamId_T streamId) const;

    /// The hand-out of the history frame that the images are of. Null when there are none or they
    /// are of no ledger: the metadata are copies and do not tell.
    std::shared_ptr<LedgerEntry> historyEntry() const;

    /// The frame is done: drops every buffer, which ends the hand-out of the set it was built from.
    void finish();

private:
    /// Buffers with the ids of their streams, in the order in which the streams were first set.
    using MetaSlots =
        std::vector<std::pair<NSCam::v3::StreamId_T, android::sp<NSCam::v3::IMetaStreamBuffer>>>;

    uint32_t const mRequestNo;
    uint32_t const mFrameType;
    MetaSlots mAppMetas;
    MetaSlots mHalMetas;
    std::map<NSCam::v3::StreamId_T, android::sp<NSCam::v3::IImageStreamBuffer>> mHalImages;
    std::optional<int64_t> mTimestamp;
    std::optional<bool> mFromHistory;
};

}  // namespace zebcam::host
