#include "SampleMetadata.h"

#include <array>

using NSCam::IMetadata;
using NSCam::Type2Type;

namespace zebcam::bench {

namespace {

constexpr size_t HISTOGRAM_ITEMS = 1024;       // 256 bins of four channels
constexpr size_t SHADING_ITEMS = 17 * 17 * 4;  // a gain for each of four channels
constexpr size_t TONE_MAP_ITEMS = 3 * 64 * 2;  // three curves of 64 points

template <typename T>
IMetadata::IEntry fill(IMetadata::Tag tag, size_t items, T item) {
    IMetadata::IEntry entry(tag);
    for (size_t i = 0; i < items; ++i) {
        entry.push_back(item, Type2Type<T>());
    }
    return entry;
}

/// One of the small entries, which repeat in groups of twenty.
IMetadata::IEntry makeSmall(IMetadata::Tag tag, size_t index) {
    auto const value = static_cast<int32_t>(index);
    switch (index % 20) {
        case 9:
        case 10:
        case 11:
            return fill<int32_t>(tag, 1, value);
        case 12:
        case 13:
            return fill<int64_t>(tag, 1, value);
        case 14:
            return fill<float>(tag, 1, 0.5F);
        case 15:
            return fill<float>(tag, 4, 1.5F);
        case 16:
            return fill<NSCam::Rational>(tag, 3, {value, 1000});
        case 17:
            return fill<int32_t>(tag, 5, value);
        case 18:
            return fill<int64_t>(tag, 2, value);
        default:
            return fill<uint8_t>(tag, 1, static_cast<uint8_t>(index));
    }
}

/// Tags in sections of twelve, as Android numbers them.
IMetadata::Tag tagAt(size_t index) {
    return static_cast<IMetadata::Tag>((index / 12) << 16 | (index % 12));
}

void set(IMetadata& metadata, IMetadata::IEntry const& entry) {
    metadata.update(entry.tag(), entry);
}

}  // namespace

IMetadata makeSample(size_t entries, SampleKind kind) {
    IMetadata metadata;
    bool const isResult = kind == SampleKind::Result;
    for (size_t i = 0; i < entries; ++i) {
        size_t const index = isResult ? i : 3 * i;
        IMetadata::Tag const tag = tagAt(index);
        if (entries >= 8 && i == entries / 2) {
            set(metadata, fill<float>(tag, TONE_MAP_ITEMS, 0.25F));
        } else if (entries >= 8 && isResult && i == entries / 4) {
            set(metadata, fill<int32_t>(tag, HISTOGRAM_ITEMS, 7));
        } else if (entries >= 8 && isResult && i == 3 * entries / 4) {
            set(metadata, fill<float>(tag, SHADING_ITEMS, 1.0F));
        } else {
            set(metadata, makeSmall(tag, index));
        }
    }
    return metadata;
}

void addFocusTags(IMetadata& metadata) {
    set(metadata,
        fill<uint8_t>(NSCam::ANDROID_CONTROL_AF_MODE, 1, NSCam::AF_MODE_CONTINUOUS_PICTURE));
    set(metadata,
        fill<uint8_t>(NSCam::ANDROID_CONTROL_AF_STATE, 1, NSCam::AF_STATE_PASSIVE_FOCUSED));
    set(metadata, fill<uint8_t>(NSCam::ANDROID_LENS_STATE, 1, NSCam::LENS_STATE_STATIONARY));
}

void addSensorTags(IMetadata& metadata, bool isExposureStable) {
    set(metadata, fill<int32_t>(NSCam::ZEB_HAL_REQUEST_SENSOR_ID, 1, 0));
    set(metadata, fill<int32_t>(NSCam::ZEB_P1NODE_SENSOR_MODE, 1, 1));
    set(metadata, fill<int32_t>(NSCam::ZEB_3A_AE_SOFT_STABLE, 1, isExposureStable ? 1 : 0));
    set(metadata, fill<int64_t>(NSCam::ZEB_FRAME_SYNC_RESULT, 1, 0));
    set(metadata, fill<int32_t>(NSCam::ZEB_P1NODE_PURE_RAW, 1, 0));
}

size_t storedBytes(IMetadata const& metadata) {
    constexpr std::array<size_t, 6> ITEM_BYTES{1, 4, 4, 8, 8, 8};
    size_t bytes = 0;
    for (size_t i = 0; i < metadata.count(); ++i) {
        auto const entry = metadata.entryAt(i);
        size_t const items = entry.count() * ITEM_BYTES[static_cast<size_t>(entry.type())];
        bytes += 16 + (items > 8 ? (items + 7) / 8 * 8 : 0);
    }
    return bytes;
}

}  // namespace zebcam::bench
