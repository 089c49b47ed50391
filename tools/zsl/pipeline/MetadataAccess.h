#pragma once

#include <metadata/IMetadata.h>
#include <metadata/MetadataTags.h>
#include <streamutils/IStreamBuffer.h>

#include <cstddef>
#include <cstdint>
#include <optional>

namespace zebcam::tool::pipeline {

/// Tags of Android's camera metadata documentation (section << 16 | index) that a sensor reports
/// and that the processor does not name itself.
namespace tags {

constexpr uint32_t COLOR_CORRECTION_MODE = 0x00000;
constexpr uint32_t COLOR_CORRECTION_TRANSFORM = 0x00001;
constexpr uint32_t COLOR_CORRECTION_GAINS = 0x00002;
constexpr uint32_t CONTROL_AE_MODE = 0x10003;
constexpr uint32_t CONTROL_AE_TARGET_FPS_RANGE = 0x10005;
constexpr uint32_t CONTROL_AWB_MODE = 0x1000b;
constexpr uint32_t CONTROL_CAPTURE_INTENT = 0x1000d;
constexpr uint32_t CONTROL_MODE = 0x1000f;
constexpr uint32_t CONTROL_AE_STATE = 0x1001f;
constexpr uint32_t CONTROL_AWB_STATE = 0x10022;
constexpr uint32_t EDGE_MODE = 0x30000;
constexpr uint32_t FLASH_MODE = 0x40002;
constexpr uint32_t FLASH_STATE = 0x40005;
constexpr uint32_t HOT_PIXEL_MODE = 0x60000;
constexpr uint32_t JPEG_ORIENTATION = 0x70003;
constexpr uint32_t JPEG_QUALITY = 0x70004;
constexpr uint32_t LENS_APERTURE = 0x80000;
constexpr uint32_t LENS_FOCAL_LENGTH = 0x80002;
constexpr uint32_t LENS_FOCUS_DISTANCE = 0x80003;
constexpr uint32_t LENS_OPTICAL_STABILIZATION_MODE = 0x80004;
constexpr uint32_t NOISE_REDUCTION_MODE = 0xa0000;
constexpr uint32_t REQUEST_FRAME_COUNT = 0xc0000;
constexpr uint32_t REQUEST_PIPELINE_DEPTH = 0xc0009;
constexpr uint32_t SCALER_CROP_REGION = 0xd0000;
constexpr uint32_t SENSOR_EXPOSURE_TIME = 0xe0000;
constexpr uint32_t SENSOR_FRAME_DURATION = 0xe0001;
constexpr uint32_t SENSOR_SENSITIVITY = 0xe0002;
constexpr uint32_t SENSOR_NOISE_PROFILE = 0xe0013;
constexpr uint32_t SENSOR_ROLLING_SHUTTER_SKEW = 0xe001a;
constexpr uint32_t SHADING_MODE = 0x100000;
constexpr uint32_t STATISTICS_FACE_DETECT_MODE = 0x110000;
constexpr uint32_t STATISTICS_HISTOGRAM = 0x110008;
constexpr uint32_t STATISTICS_LENS_SHADING_MAP = 0x11000b;
constexpr uint32_t STATISTICS_SCENE_FLICKER = 0x11000e;
constexpr uint32_t TONEMAP_CURVE_BLUE = 0x130000;
constexpr uint32_t TONEMAP_CURVE_GREEN = 0x130001;
constexpr uint32_t TONEMAP_CURVE_RED = 0x130002;
constexpr uint32_t TONEMAP_MODE = 0x130003;

/// Where the simulated vendor's plain entries begin, in the application's result and in the HAL's.
constexpr uint32_t VENDOR_APP_FIRST = 0x80600000;
constexpr uint32_t VENDOR_HAL_FIRST = 0xc0100000;

}  // namespace tags

/// Sets the entry of `tag` to one item.
template <typename T>
void put(NSCam::IMetadata& metadata, NSCam::IMetadata::Tag tag, T value) {
    NSCam::IMetadata::IEntry entry(tag);
    entry.push_back(value, NSCam::Type2Type<T>());
    metadata.update(tag, entry);
}

/// The same, if there is a value.
template <typename T>
void put(NSCam::IMetadata& metadata, NSCam::IMetadata::Tag tag, std::optional<T> const& value) {
    if (value) {
        put(metadata, tag, *value);
    }
}

/// Sets the entry of `tag` to `count` items that rise from `first` in steps of `step`.
template <typename T>
void putSeries(NSCam::IMetadata& metadata, NSCam::IMetadata::Tag tag, size_t count, T first,
               T step) {
    NSCam::IMetadata::IEntry entry(tag);
    T value = first;
    for (size_t i = 0; i < count; ++i) {
        entry.push_back(value, NSCam::Type2Type<T>());
        value = static_cast<T>(value + step);
    }
    metadata.update(tag, entry);
}

/// The first item of `tag`, if there is one.
template <typename T>
std::optional<T> itemOf(NSCam::IMetadata const& metadata, NSCam::IMetadata::Tag tag) {
    NSCam::IMetadata::IEntry const entry = metadata.entryFor(tag);
    return entry.isEmpty() ? std::nullopt
                           : std::optional<T>(entry.itemAt(0, NSCam::Type2Type<T>()));
}

/// What `read` finds in a buffer's metadata; an empty answer when there is no buffer or its lock
/// is not to be had.
template <typename Answer>
Answer readMetadata(android::sp<NSCam::v3::IMetaStreamBuffer> const& buffer,
                    Answer (*read)(NSCam::IMetadata const&)) {
    constexpr char kUser[] = "zsl";
    NSCam::IMetadata* const metadata = buffer != nullptr ? buffer->tryReadLock(kUser) : nullptr;
    if (metadata == nullptr) {
        return {};
    }
    Answer answer = read(*metadata);
    buffer->unlock(kUser, metadata);
    return answer;
}

/// The sensor timestamp in a buffer's metadata, ns, where there is one to be read.
inline std::optional<int64_t> readSensorTimestamp(
    android::sp<NSCam::v3::IMetaStreamBuffer> const& buffer) {
    return readMetadata<std::optional<int64_t>>(buffer, [](NSCam::IMetadata const& metadata) {
        return itemOf<int64_t>(metadata, NSCam::ZEB_SENSOR_TIMESTAMP);
    });
}

}  // namespace zebcam::tool::pipeline
