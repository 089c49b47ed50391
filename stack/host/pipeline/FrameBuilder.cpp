#include <host/FrameBuilder.h>
#include <host/ImageStreamBuffer.h>

#include <algorithm>

namespace zebcam::host {

using NSCam::v3::IImageStreamBuffer;
using NSCam::v3::IMetaStreamBuffer;
using NSCam::v3::StreamId_T;

namespace {

// Vectors, for a frame has a handful of streams, and the order in which they were set counts.
template <typename Slots>
auto findSlot(Slots& slots, StreamId_T streamId) {
    return std::find_if(slots.begin(), slots.end(),
                        [streamId](auto const& slot) { return slot.first == streamId; });
}

template <typename Slots>
void setSlot(Slots& slots, StreamId_T streamId, android::sp<IMetaStreamBuffer> const& buffer) {
    auto const it = findSlot(slots, streamId);
    // As with images, nothing in the place of a buffer takes it out.
    if (buffer == nullptr) {
        if (it != slots.end()) {
            slots.erase(it);
        }
    } else if (it != slots.end()) {
        it->second = buffer;
    } else {
        slots.emplace_back(streamId, buffer);
    }
}

template <typename Slots>
void appendBuffers(Slots const& slots, FrameBuilder::MetaBuffers& out) {
    for (auto const& slot : slots) {
        out.push_back(slot.second);
    }
}

}  // namespace

FrameBuilder::FrameBuilder(uint32_t requestNo, uint32_t frameType)
    : mRequestNo(requestNo), mFrameType(frameType) {
}

void FrameBuilder::getAppMetaStreamBuffers(MetaBuffers& out) const {
    appendBuffers(mAppMetas, out);
}

void FrameBuilder::getHalMetaStreamBuffers(MetaBuffers& out) const {
    appendBuffers(mHalMetas, out);
}

void FrameBuilder::setHalImageStreamBuffer(StreamId_T streamId,
                                           android::sp<IImageStreamBuffer> const& buffer) {
    // What the ledger heard of an image stands: it left the history for good when it was set.
    if (buffer == nullptr) {
        mHalImages.erase(streamId);
        return;
    }
    if (auto* const hostBuffer = dynamic_cast<ImageStreamBuffer*>(buffer.get())) {
        hostBuffer->enterFrameBuilder();
    }
    mHalImages.insert_or_assign(streamId, buffer);
}

void FrameBuilder::setHalMetaStreamBuffer(StreamId_T streamId,
                                          android::sp<IMetaStreamBuffer> const& buffer) {
    setSlot(mHalMetas, streamId, buffer);
}

void FrameBuilder::setAppMetaStreamBuffer(StreamId_T streamId,
                                          android::sp<IMetaStreamBuffer> const& buffer) {
    setSlot(mAppMetas, streamId, buffer);
}

android::sp<IMetaStreamBuffer> FrameBuilder::halMeta(StreamId_T streamId) const {
    auto const it = findSlot(mHalMetas, streamId);
    return it == mHalMetas.end() ? nullptr : it->second;
}

android::sp<IMetaStreamBuffer> FrameBuilder::appMeta(StreamId_T streamId) const {
    auto const it = findSlot(mAppMetas, streamId);
    return it == mAppMetas.end() ? nullptr : it->second;
}

std::shared_ptr<LedgerEntry> FrameBuilder::historyEntry() const {
    // A frame is built from one set, so that the first image that knows its own will do.
    for (auto const& [streamId, image] : mHalImages) {
        auto const* const hostBuffer = dynamic_cast<ImageStreamBuffer const*>(image.get());
        if (auto entry = hostBuffer != nullptr ? hostBuffer->ledgerEntry() : nullptr) {
            return entry;
        }
    }
    return nullptr;
}

void FrameBuilder::finish() {
    mHalImages.clear();
    mHalMetas.clear();
    mAppMetas.clear();
}

}  // namespace zebcam::host
