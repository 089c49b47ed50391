#pragma once

#include <streamutils/IStreamBuffer.h>

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

}  // namespace zebcam::tool
