#pragma once

#include <metadata/IMetadata.h>
#include <streamutils/IStreamInfo.h>
#include <streamutils/UsersManager.h>
#include <utils/RefBase.h>

namespace NSCam::v3 {

/// One buffer of an image stream. Thread-safe.
class IImageStreamBuffer : public virtual android::RefBase {
public:
    /// Owned by the buffer. Null only in a broken pipeline.
    virtual IImageStreamInfo* getStreamInfo() const = 0;

    /// True when the producer reported that the content is unusable.
    virtual bool hasError() const = 0;

    /// Forgets users and status of the frame that the buffer served so far. The content stays.
    virtual void reset() = 0;

    /// Replaces the users manager.
    virtual void setUsersManager(android::sp<Utils::UsersManager> const& pUsersManager) = 0;

    /// Gives an unused buffer back to its owner. Called at most once, before the last reference of
    /// the caller is dropped.
    virtual void releaseBuffer() = 0;
};

/**
 * One buffer of a metadata stream, behind a reader/writer lock.
 *
 * A lock is taken and given back under a user name, and may be given back on another thread. Any
 * number of readers may hold the lock, also several times under one name; a writer holds it alone.
 */
class IMetaStreamBuffer : public virtual android::RefBase {
public:
    /// Owned by the buffer. Null only in a broken pipeline.
    virtual IMetaStreamInfo* getStreamInfo() const = 0;

    /// True when the producer reported that the content is unusable.
    virtual bool hasError() const = 0;

    /// The metadata, for reading only, until `unlock`; null when the lock cannot be had now.
    /// Never waits.
    virtual IMetadata* tryReadLock(char const* userName) = 0;

    /// The metadata, for reading and writing, until `unlock`; null when the lock cannot be had
    /// now. Never waits.
    virtual IMetadata* tryWriteLock(char const* userName) = 0;

    /// Ends a lock that returned `pMetadata`. A null `pMetadata` (the lock was not obtained) is
    /// accepted and does nothing.
    virtual void unlock(char const* userName, IMetadata* pMetadata) = 0;
};

}  // namespace NSCam::v3
