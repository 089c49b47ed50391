#pragma once

#include <host/BufferLedger.h>
#include <host/FrameBuilder.h>
#include <host/MetaStreamBuffer.h>
#include <host/StreamInfos.h>
#include <pipeline/IHistoryBufferProvider.h>
#include <pipeline/IPipelineBufferSetFrameControl.h>
#include <pipelinemodel_utils/ParsedStreamInfo_P1.h>

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

#include "device/DeviceRecording.h"

namespace zebcam::tool::run {

/**
 * The host's streams and buffers that stand for a device's during one replay, and what is made of
 * them. What had no buffer or no stream on the device is left out. Borrows the recording.
 *
 * A frame that came back whole is offered again with the same buffers, as on the device: a recorder
 * then names it by its number instead of describing it anew.
 */
class DeviceBuffers {
public:
    using Metas = std::vector<android::sp<NSCam::v3::IMetaStreamBuffer>>;
    using HistoryBufferSet = NSCam::v3::pipeline::NSPipelineContext::HistoryBufferSet;

    explicit DeviceBuffers(device::DeviceRecording const& recording);

    host::BufferLedger const& ledger() const { return *mLedger; }

    /// Metadata that could not be locked on the device cannot be locked here, until unlockAll().
    Metas metas(std::vector<device::DeviceMeta> const& metas);

    /// The first of the device's sensors comes first: its streams carry the early shutter.
    NSCam::v3::pipeline::policy::ParsedStreamInfoMap_P1 sensors(
        std::vector<device::DeviceSensor> const& recorded) const;

    /// A builder with the request's own settings; null where the device had none.
    std::shared_ptr<host::FrameBuilder> builder(uint32_t requestNo,
                                                device::RequestedFrame const& frame);

    /// A result with the sensor timestamps that its metadata had.
    NSCam::v3::pipeline::IPipelineBufferSetFrameControl::IAppCallback::Result result(
        device::ResultCall const& call) const;

    /// Hands out sets of the frames at these positions on behalf of a request.
    std::list<HistoryBufferSet> offer(std::vector<size_t> const& frames, uint32_t forRequestNo);
    HistoryBufferSet clone(size_t frame, uint32_t forRequestNo);
    /// Ends the hand-out of what is left of a set.
    void takeBack(HistoryBufferSet& set, bool isUnused);

    /// From now on every metadata made so far can be locked: a processor that builds a frame from
    /// metadata waits for ever for one that cannot.
    void unlockAll();

private:
    HistoryBufferSet make(size_t frame);
    void handOut(HistoryBufferSet const& set, size_t frame, uint32_t forRequestNo, bool isClone);
    NSCam::v3::pipeline::policy::ParsedStreamInfo_P1 streamsOf(
        device::DeviceSensor const& sensor) const;

    device::DeviceRecording const& mRecording;
    std::vector<android::sp<host::ImageStreamInfo>> mImages;  ///< by stream, as one of images
    std::vector<android::sp<host::MetaStreamInfo>> mMetas;    ///< by stream, as one of metadata
    std::shared_ptr<host::BufferLedger> const mLedger = std::make_shared<host::BufferLedger>();
    /// The frame of a hand-out, and the number of its buffers. An entry that is gone is replaced
    /// when its address comes again.
    std::unordered_map<host::LedgerEntry const*, std::pair<size_t, size_t>> mOut;
    std::map<size_t, HistoryBufferSet> mHome;  ///< by frame: came back whole since the last offer
    std::vector<android::sp<host::MetaStreamBuffer>> mUnlockable;
};

}  // namespace zebcam::tool::run
