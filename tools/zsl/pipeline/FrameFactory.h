#pragma once

#include <host/FrameBuilder.h>
#include <host/ImageStreamBuffer.h>
#include <pipeline/IHistoryBufferProvider.h>
#include <pipelinemodel_utils/ParsedStreamInfo_P1.h>
#include <policy/zsl/ZslTypes.h>
#include <streamutils/IStreamInfo.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "recording/Recording.h"

namespace zebcam::tool::pipeline {

constexpr NSCam::v3::StreamId_T STREAM_ID_FULL_RAW = 0x100000000;

/// The streams of the simulated sensor and those of the requests to it. Copies share them.
struct SensorStreams {
    SensorStreams();

    android::sp<NSCam::v3::IImageStreamInfo> pFullRaw;
    android::sp<NSCam::v3::IMetaStreamInfo> pHalResult;
    android::sp<NSCam::v3::IMetaStreamInfo> pAppResult;
    android::sp<NSCam::v3::IMetaStreamInfo> pHalControl;
    android::sp<NSCam::v3::IMetaStreamInfo> pAppControl;

    /// The sensor's description for the processor.
    NSCam::v3::pipeline::policy::ParsedStreamInfoMap_P1 describe(uint32_t sensorId) const;

    /// What a frame of a capture reads from a history frame: image and both results.
    NSCam::ZslPolicy::RequiredStreams required() const;
};

/// Makes what the camera's hardware would: the buffers of a sensor frame, and the frame builders of
/// a capture with their settings. Results are as large as a phone's.
class FrameFactory {
public:
    FrameFactory();

    /// A history buffer set of `frame`, whose image shows `content` (null: nothing). States that
    /// the frame lacks are missing from its metadata. From one thread at a time.
    NSCam::v3::pipeline::NSPipelineContext::HistoryBufferSet sensorFrame(
        recording::SensorFrame const& frame,
        std::shared_ptr<host::ImageContent const> content = nullptr);

    /// A frame builder with the settings of a still capture. The first frame of a capture is its
    /// main one.
    std::shared_ptr<host::FrameBuilder> captureFrame(uint32_t requestNo, size_t index) const;

    SensorStreams const& streams() const { return mStreams; }

private:
    SensorStreams const mStreams;
    // The results of the latest frame, from which the next ones differ in few entries.
    NSCam::IMetadata mAppResult;
    NSCam::IMetadata mHalResult;
    std::vector<recording::DataValue> mData;  ///< those that are in mAppResult
    NSCam::IMetadata mAppControl;
    NSCam::IMetadata mHalControl;
};

}  // namespace zebcam::tool::pipeline
