#pragma once

#include <metadata/IMetadata.h>

#include <cstddef>
#include <optional>

namespace zebcam::tool {

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

}  // namespace zebcam::tool
