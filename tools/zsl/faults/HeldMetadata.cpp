#include "faults/HeldMetadata.h"

#include <algorithm>

namespace zebcam::tool {

void HeldMetadata::add(NSCam::v3::pipeline::NSPipelineContext::HistoryBufferSet const& set) {
    std::lock_guard lock(mLock);
    for (auto const* buffers : {&set.halMeta, &set.appMeta}) {
        for (auto const& buffer : *buffers) {
            if (auto* const ours = dynamic_cast<host::MetaStreamBuffer*>(buffer.get())) {
                mBuffers.emplace_back(ours);
            }
        }
    }
}

void HeldMetadata::setLockable(bool isLockable) {
    // Strong for a moment, and destroyed outside the lock where they turn out to be the last.
    std::vector<android::sp<host::MetaStreamBuffer>> alive;
    std::lock_guard lock(mLock);
    std::erase_if(mBuffers, [&](android::wp<host::MetaStreamBuffer> const& buffer) {
        alive.push_back(buffer.promote());
        return alive.back() == nullptr;
    });
    for (auto const& buffer : alive) {
        if (buffer != nullptr) {
            buffer->setLockable(isLockable);
        }
    }
}

}  // namespace zebcam::tool
