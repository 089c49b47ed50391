#pragma once

#include <metadata/IMetadata.h>
#include <metadata/MetadataTags.h>
#include <streamutils/IStreamBuffer.h>

#include <cstddef>
#include <cstdint>
#include <optional>

namespace zebcam::tool::pipeline {

/// Where the simulated vendor's plain entries begin, in the application's result and in the HAL's.
constexpr uint32_t VENDOR_APP_FIRST = 0x80600000;
constexpr uint32_t VENDOR_HAL_FIRST = 0xc0100000;

/// Sets the entry of `tag` to one item.
template <typename T>
void put(NSCam::IMetadata& metadata, NSCam::IMetadata::Tag tag, T value) {
    NSCam::IMetadata::IEntry entry(tag);
    entry.push_back(value, NSCam::Type2Type<T>());
    metadata.update(tag, entry);
}

/// Sets it so, or removes it where there is no value.
template <typename T>
void put(NSCam::IMetadata& metadata, NSCam::IMetadata::Tag tag, std::optional<T> const& value) {
    if (value) {
        put(metadata, tag, *value);
    } else {
        metadata.remove(tag);
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
