#include "sim/SensorStreams.h"

#include <host/StreamInfos.h>

namespace zebcam::tool {

namespace v3 = NSCam::v3;

namespace {

android::sp<v3::IMetaStreamInfo> metaStream(v3::StreamId_T id, char const* name) {
    return new host::MetaStreamInfo(id, name);
}

}  // namespace

SensorStreams::SensorStreams()
    : pFullRaw(new host::ImageStreamInfo(STREAM_ID_FULL_RAW, "HalImage_FullRaw")),
      pHalResult(metaStream(v3::STREAM_ID_HAL_META_P1_0, "HalMeta_DynamicP1")),
      pAppResult(metaStream(v3::STREAM_ID_APP_META_P1_0, "AppMeta_DynamicP1")),
      pHalControl(metaStream(v3::STREAM_ID_HAL_META_CONTROL_0, "HalMeta_Control")),
      pAppControl(metaStream(v3::STREAM_ID_APP_META_CONTROL, "AppMeta_Control")) {
}

v3::pipeline::policy::ParsedStreamInfoMap_P1 SensorStreams::describe(uint32_t sensorId) const {
    v3::pipeline::policy::ParsedStreamInfo_P1 streams;
    streams.pHalMeta_Control = pHalControl;
    streams.pHalMeta_DynamicP1 = pHalResult;
    streams.pAppMeta_DynamicP1 = pAppResult;
    streams.pHalImage_FullRaw = pFullRaw;
    return {{sensorId, streams}};
}

NSCam::ZslPolicy::RequiredStreams SensorStreams::required() const {
    return {.halImages = {pFullRaw->getStreamId()},
            .halMetas = {pHalResult->getStreamId()},
            .appMetas = {pAppResult->getStreamId()}};
}

}  // namespace zebcam::tool
