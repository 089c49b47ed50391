#include "device/DeviceBuffers.h"

#include <host/ImageStreamBuffer.h>

#include <utility>

namespace zebcam::tool {
namespace {

using HistoryBufferSet = DeviceBuffers::HistoryBufferSet;

/// Calls `visit` with each buffer of a set that this file made: all of them.
template <typename Visit>
void forEachBuffer(HistoryBufferSet const& set, Visit visit) {
    for (auto const& image : set.halImage) {
        if (auto* const buffer = dynamic_cast<host::ImageStreamBuffer*>(image.get())) {
            visit(*buffer);
        }
    }
    for (auto const* const metas : {&set.halMeta, &set.appMeta}) {
        for (auto const& meta : *metas) {
            if (auto* const buffer = dynamic_cast<host::MetaStreamBuffer*>(meta.get())) {
                visit(*buffer);
            }
        }
    }
}

}  // namespace

DeviceBuffers::Metas DeviceBuffers::metas(std::vector<DeviceMeta> const& metas) {
    Metas buffers;
    for (DeviceMeta const& meta : metas) {
        if (!meta.stream) {
            continue;
        }
        android::sp<host::MetaStreamBuffer> const buffer =
            new host::MetaStreamBuffer(mStreams.meta(*meta.stream), meta.metadata);
        buffer->setError(meta.hasError);
        if (!meta.isLockable) {
            buffer->setLockable(false);
            mUnlockable.push_back(buffer);
        }
        buffers.emplace_back(buffer);
    }
    return buffers;
}

HistoryBufferSet DeviceBuffers::handOut(size_t frame, uint32_t forRequestNo, bool isClone) {
    DeviceFrame const& content = mRecording.frames.at(frame);
    HistoryBufferSet set;
    set.frameNo = content.frameNo;
    set.requestNo = content.requestNo;
    set.timestamp = content.timestampNs;
    for (DeviceImage const& image : content.images) {
        if (image.stream) {
            android::sp<host::ImageStreamBuffer> const buffer =
                new host::ImageStreamBuffer(mStreams.image(*image.stream));
            buffer->setError(image.hasError);
            set.halImage.emplace_back(buffer);
        }
    }
    set.halMeta = metas(content.halMetas);
    set.appMeta = metas(content.appMetas);
    auto const entry = mLedger->open(content.frameNo, forRequestNo, set.halImage.size(), isClone);
    forEachBuffer(set, [&](auto& buffer) { buffer.setLedgerEntry(entry); });
    return set;
}

bool DeviceBuffers::takeBack(HistoryBufferSet& set, bool isUnused) {
    HistoryBufferSet const taken = std::exchange(set, {});
    bool isClone = false;
    forEachBuffer(taken, [&](auto& buffer) {
        if (auto const entry = buffer.ledgerEntry()) {
            isClone = isClone || entry->isClone();
            entry->setEnded(isUnused ? host::BufferHolder::Returned : host::BufferHolder::Released);
        }
    });
    forEachBuffer(taken, [](auto& buffer) { buffer.setLedgerEntry(nullptr); });
    return isClone;
}

void DeviceBuffers::unlockAll() {
    for (auto const& buffer : mUnlockable) {
        buffer->setLockable(true);
    }
    mUnlockable.clear();
}

}  // namespace zebcam::tool
