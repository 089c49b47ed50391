#pragma once

#include <pipelinemodel_utils/ParsedStreamInfo_P1.h>
#include <policy/zsl/ZslTypes.h>
#include <streamutils/IStreamInfo.h>

#include <cstdint>

namespace zebcam::tool {

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

}  // namespace zebcam::tool
