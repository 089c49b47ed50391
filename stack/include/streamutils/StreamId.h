#pragma once

#include <cstdint>

namespace NSCam::v3 {

/// Identifies a stream within the pipeline.
using StreamId_T = int64_t;

/// The camera stack's fixed metadata stream ids, up to three sensors each.
enum : StreamId_T {
    STREAM_ID_APP_META_CONTROL = 0x80000000,     ///< the application's request settings
    STREAM_ID_HAL_META_CONTROL_0 = 0x100000018,  ///< HAL request settings, sensor 0
    STREAM_ID_HAL_META_CONTROL_1 = 0x100000019,
    STREAM_ID_HAL_META_CONTROL_2 = 0x10000001a,
    STREAM_ID_HAL_META_P1_0 = 0x10000001b,  ///< HAL result of the sensor frame, sensor 0
    STREAM_ID_HAL_META_P1_1 = 0x10000001c,
    STREAM_ID_HAL_META_P1_2 = 0x10000001d,
    STREAM_ID_APP_META_P1_0 = 0x100000024,  ///< application result, sensor 0
    STREAM_ID_APP_META_P1_1 = 0x100000025,
    STREAM_ID_APP_META_P1_2 = 0x100000026,
};

}  // namespace NSCam::v3
