#pragma once

#include <streamutils/IStreamInfo.h>

#include <cstdint>
#include <unordered_map>

namespace NSCam::v3::pipeline::policy {

/// The streams of one sensor's P1 output. A stream that is not configured is null. Copies share
/// the stream infos.
struct ParsedStreamInfo_P1 {
    android::sp<IMetaStreamInfo> pHalMeta_Control;    ///< HAL request settings
    android::sp<IMetaStreamInfo> pHalMeta_DynamicP1;  ///< HAL result
    android::sp<IMetaStreamInfo> pAppMeta_DynamicP1;  ///< application result
    android::sp<IImageStreamInfo> pHalImage_FullRaw;
    android::sp<IImageStreamInfo> pHalImage_ResizedRaw;
    android::sp<IImageStreamInfo> pHalImage_ScaledYuv;
    android::sp<IImageStreamInfo> pHalImage_FaceYuv;
    android::sp<IImageStreamInfo> pHalImage_ShadingStats;
    android::sp<IImageStreamInfo> pHalImage_MotionStats;
    android::sp<IImageStreamInfo> pHalImage_DepthStats;
    android::sp<IImageStreamInfo> pHalImage_FlickerStats;
};

/// By sensor id.
using ParsedStreamInfoMap_P1 = std::unordered_map<uint32_t, ParsedStreamInfo_P1>;

}  // namespace NSCam::v3::pipeline::policy
