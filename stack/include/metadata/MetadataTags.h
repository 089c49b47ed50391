#pragma once

#include <cstdint>

/**
 * Metadata tags that the ZSL processor reads or writes, and those that a sensor's results and a
 * still capture's settings mostly have (docs/recordings.md says which of them tell something in a
 * replay).
 *
 * ANDROID_* follow Android's camera metadata documentation (section << 16 | index). The others
 * are the camera stack's: ZEB_* application tags share Android's numbering where they mean the
 * same thing, tags with bit 31 set are vendor tags, tags from 0xc0000000 are HAL-internal.
 */
namespace NSCam {

enum MetadataTag : uint32_t {
    ANDROID_COLOR_CORRECTION_MODE = 0x00000000,            ///< uint8
    ANDROID_COLOR_CORRECTION_TRANSFORM = 0x00000001,       ///< float x 9
    ANDROID_COLOR_CORRECTION_GAINS = 0x00000002,           ///< float x 4
    ANDROID_CONTROL_AE_MODE = 0x00010003,                  ///< uint8
    ANDROID_CONTROL_AE_TARGET_FPS_RANGE = 0x00010005,      ///< int32 x 2
    ANDROID_CONTROL_AF_MODE = 0x00010007,                  ///< uint8, see AfMode
    ANDROID_CONTROL_AWB_MODE = 0x0001000b,                 ///< uint8
    ANDROID_CONTROL_CAPTURE_INTENT = 0x0001000d,           ///< uint8
    ANDROID_CONTROL_MODE = 0x0001000f,                     ///< uint8
    ANDROID_CONTROL_AE_STATE = 0x0001001f,                 ///< uint8
    ANDROID_CONTROL_AF_STATE = 0x00010020,                 ///< uint8, see AfState
    ANDROID_CONTROL_AWB_STATE = 0x00010022,                ///< uint8
    ANDROID_EDGE_MODE = 0x00030000,                        ///< uint8
    ANDROID_FLASH_MODE = 0x00040002,                       ///< uint8
    ANDROID_FLASH_STATE = 0x00040005,                      ///< uint8
    ANDROID_HOT_PIXEL_MODE = 0x00060000,                   ///< uint8
    ANDROID_JPEG_ORIENTATION = 0x00070003,                 ///< int32
    ANDROID_JPEG_QUALITY = 0x00070004,                     ///< uint8
    ANDROID_LENS_APERTURE = 0x00080000,                    ///< float
    ANDROID_LENS_FOCAL_LENGTH = 0x00080002,                ///< float, mm
    ANDROID_LENS_FOCUS_DISTANCE = 0x00080003,              ///< float, diopters
    ANDROID_LENS_OPTICAL_STABILIZATION_MODE = 0x00080004,  ///< uint8
    ANDROID_LENS_STATE = 0x00080009,                       ///< uint8, see LensState
    ANDROID_NOISE_REDUCTION_MODE = 0x000a0000,             ///< uint8
    ANDROID_REQUEST_FRAME_COUNT = 0x000c0000,              ///< int32, the frame number
    ANDROID_REQUEST_PIPELINE_DEPTH = 0x000c0009,           ///< uint8
    ANDROID_SCALER_CROP_REGION = 0x000d0000,               ///< int32 x 4
    ANDROID_SENSOR_EXPOSURE_TIME = 0x000e0000,             ///< int64, ns
    ANDROID_SENSOR_FRAME_DURATION = 0x000e0001,            ///< int64, ns
    ANDROID_SENSOR_SENSITIVITY = 0x000e0002,               ///< int32, ISO
    ANDROID_SENSOR_NOISE_PROFILE = 0x000e0013,             ///< double x 8
    ANDROID_SENSOR_ROLLING_SHUTTER_SKEW = 0x000e001a,      ///< int64, ns, readout of a frame
    ANDROID_SHADING_MODE = 0x00100000,                     ///< uint8
    ANDROID_STATISTICS_HISTOGRAM = 0x00110008,             ///< int32
    ANDROID_STATISTICS_LENS_SHADING_MAP = 0x0011000b,      ///< float
    ANDROID_STATISTICS_SCENE_FLICKER = 0x0011000e,         ///< uint8
    ANDROID_TONEMAP_CURVE_BLUE = 0x00130000,               ///< float
    ANDROID_TONEMAP_CURVE_GREEN = 0x00130001,              ///< float
    ANDROID_TONEMAP_CURVE_RED = 0x00130002,                ///< float
    ANDROID_TONEMAP_MODE = 0x00130003,                     ///< uint8

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
