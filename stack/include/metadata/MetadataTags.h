#pragma once

#include <cstdint>

/**
 * Metadata tags that the ZSL processor reads or writes.
 *
 * ANDROID_* follow Android's camera metadata documentation (section << 16 | index). The others
 * are the camera stack's: ZEB_* application tags share Android's numbering where they mean the
 * same thing, tags with bit 31 set are vendor tags, tags from 0xc0000000 are HAL-internal.
 */
namespace NSCam {

enum MetadataTag : uint32_t {
    ANDROID_CONTROL_AF_MODE = 0x00010007,   ///< uint8, see AfMode
    ANDROID_CONTROL_AF_STATE = 0x00010020,  ///< uint8, see AfState
    ANDROID_LENS_STATE = 0x00080009,        ///< uint8, see LensState

    ZEB_SENSOR_TIMESTAMP = 0x000e0010,              ///< int64, ns, start of exposure
    ZEB_SENSOR_INFO_TIMESTAMP_SOURCE = 0x000f0008,  ///< uint8, static: 0 UNKNOWN, 1 REALTIME
    ZEB_STATISTICS_FACE_DETECT_MODE = 0x00110000,   ///< uint8

    ZEB_HAL_REQUEST_SENSOR_ID = 0xc0000005,  ///< int32
    ZEB_P1NODE_PURE_RAW = 0xc0010011,        ///< int32, 1: image is pure raw
    ZEB_P1NODE_SENSOR_MODE = 0xc0010016,     ///< int32
    ZEB_3A_AE_SOFT_STABLE = 0xc0030017,      ///< int32, 1: exposure soft-stable
    ZEB_FRAME_SYNC_RESULT = 0xc0080003,      ///< int64, 0: sensors synchronised
};

/// Values of ANDROID_CONTROL_AF_MODE (Android camera metadata documentation).
enum AfMode : uint8_t {
    AF_MODE_OFF = 0,
    AF_MODE_AUTO = 1,
    AF_MODE_MACRO = 2,
    AF_MODE_CONTINUOUS_VIDEO = 3,
    AF_MODE_CONTINUOUS_PICTURE = 4,
    AF_MODE_EDOF = 5,
};

/// Values of ANDROID_CONTROL_AF_STATE (Android camera metadata documentation).
enum AfState : uint8_t {
    AF_STATE_INACTIVE = 0,
    AF_STATE_PASSIVE_SCAN = 1,
    AF_STATE_PASSIVE_FOCUSED = 2,
    AF_STATE_ACTIVE_SCAN = 3,
    AF_STATE_FOCUSED_LOCKED = 4,
    AF_STATE_NOT_FOCUSED_LOCKED = 5,
    AF_STATE_PASSIVE_UNFOCUSED = 6,
};

/// Values of ANDROID_LENS_STATE (Android camera metadata documentation).
enum LensState : uint8_t {
    LENS_STATE_STATIONARY = 0,
    LENS_STATE_MOVING = 1,
};

}  // namespace NSCam
