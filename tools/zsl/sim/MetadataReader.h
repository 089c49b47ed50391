#pragma once

#include <metadata/MetadataTags.h>
#include <streamutils/IStreamBuffer.h>

#include <cstdint>
#include <optional>

#include "sim/MetadataWriter.h"

namespace zebcam::tool {

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

}  // namespace zebcam::tool
