#pragma once

#include <streamutils/IStreamBuffer.h>

#include <utility>
#include <vector>

#include "Log.h"

namespace NSCam::v3::pipeline::model {

/// Metadata buffers that were to be locked, each with what that gave (null: not obtained).
using LockedMetadata = std::vector<std::pair<android::sp<IMetaStreamBuffer>, IMetadata*>>;

/// Unlocks a list of buffers when it goes out of scope, also those whose lock was not obtained:
/// a buffer hears of every attempt's end, and takes the null.
class MetadataUnlocker {
public:
    explicit MetadataUnlocker(LockedMetadata& locked) : mLocked(locked) {}
    ~MetadataUnlocker() {
        for (auto const& [buffer, metadata] : mLocked) {
            buffer->unlock(log::TAG, metadata);
        }
    }
    MetadataUnlocker(MetadataUnlocker const&) = delete;
    MetadataUnlocker& operator=(MetadataUnlocker const&) = delete;

private:
    LockedMetadata& mLocked;
};

/// The lock of one metadata buffer, unlocked at the end if it was obtained; `get` is null when it
/// was not.
class MetadataLock {
public:
    static MetadataLock forReading(android::sp<IMetaStreamBuffer> buffer) {
        IMetadata* const metadata = buffer->tryReadLock(log::TAG);
        return {std::move(buffer), metadata};
    }
    static MetadataLock forWriting(android::sp<IMetaStreamBuffer> buffer) {
        IMetadata* const metadata = buffer->tryWriteLock(log::TAG);
        return {std::move(buffer), metadata};
    }
    ~MetadataLock() {
        if (mMetadata != nullptr) {
            mBuffer->unlock(log::TAG, mMetadata);
        }
    }
    MetadataLock(MetadataLock const&) = delete;
    MetadataLock& operator=(MetadataLock const&) = delete;

    IMetadata* get() const { return mMetadata; }
    explicit operator bool() const { return mMetadata != nullptr; }
    IMetadata& operator*() const { return *mMetadata; }
    IMetadata* operator->() const { return mMetadata; }

private:
    MetadataLock(android::sp<IMetaStreamBuffer> buffer, IMetadata* metadata)
        : mBuffer(std::move(buffer)), mMetadata(metadata) {}

    android::sp<IMetaStreamBuffer> const mBuffer;
    IMetadata* const mMetadata;
};

}  // namespace NSCam::v3::pipeline::model
