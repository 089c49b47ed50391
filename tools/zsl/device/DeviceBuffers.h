#pragma once

#include <host/BufferLedger.h>
#include <host/MetaStreamBuffer.h>
#include <pipeline/IHistoryBufferProvider.h>

#include <memory>
#include <vector>

#include "device/DeviceRecording.h"
#include "device/DeviceStreams.h"

namespace zebcam::tool {

/// Makes buffers that stand for a device's. Metadata that could not be locked there cannot be
/// locked here either, until `unlockAll`; what had no buffer or no stream is left out.
class DeviceBuffers {
public:
    using Metas = std::vector<android::sp<NSCam::v3::IMetaStreamBuffer>>;
    using HistoryBufferSet = NSCam::v3::pipeline::NSPipelineContext::HistoryBufferSet;

    explicit DeviceBuffers(DeviceRecording const& recording)
        : mRecording(recording), mStreams(recording.streams) {}

    DeviceStreams const& streams() const { return mStreams; }
    std::shared_ptr<host::BufferLedger> const& ledger() const { return mLedger; }

    Metas metas(std::vector<DeviceMeta> const& metas);

    /// A set of the frame at a position, handed out on behalf of a request.
    HistoryBufferSet handOut(size_t frame, uint32_t forRequestNo, bool isClone);
    /// Ends the hand-out of what is left of a set. Tells whether it was a clone.
    static bool takeBack(HistoryBufferSet& set, bool isUnused);

    /// From now on every metadata made so far can be locked: a processor that builds a frame from
    /// metadata waits for ever for one that cannot.
    void unlockAll();

private:
    DeviceRecording const& mRecording;
    DeviceStreams const mStreams;
    std::shared_ptr<host::BufferLedger> const mLedger = std::make_shared<host::BufferLedger>();
    std::vector<android::sp<host::MetaStreamBuffer>> mUnlockable;
};

}  // namespace zebcam::tool
