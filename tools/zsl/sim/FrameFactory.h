#pragma once

#include <host/FrameBuilder.h>
#include <pipeline/IHistoryBufferProvider.h>

#include <cstdint>
#include <memory>
#include <optional>

#include "recording/Recording.h"
#include "sim/SensorStreams.h"

namespace zebcam::tool {

/// Makes what the camera's hardware would: the buffers of a sensor frame, and the frame builders of
/// a capture with their settings. Results are as large as a phone's.
class FrameFactory {
public:
    FrameFactory();

    /// A history buffer set of `frame`. States that the frame lacks are missing from its metadata.
    NSCam::v3::pipeline::NSPipelineContext::HistoryBufferSet sensorFrame(
        SensorFrame const& frame) const;

    /// A frame builder with the settings of a still capture. The first frame of a capture is its
    /// main one.
    std::shared_ptr<host::FrameBuilder> captureFrame(uint32_t requestNo, size_t index) const;

    SensorStreams const& streams() const { return mStreams; }

private:
    SensorStreams const mStreams;
    NSCam::IMetadata mAppResult;  ///< what all frames have in common
    NSCam::IMetadata mHalResult;
    NSCam::IMetadata mAppControl;
    NSCam::IMetadata mHalControl;
};

/// What an application result says of its sensor frame.
struct FrameIdentity {
    std::optional<uint32_t> frameNo;
    std::optional<int64_t> timestampNs;
};

FrameIdentity identityOf(NSCam::IMetadata const& appResult);

}  // namespace zebcam::tool
