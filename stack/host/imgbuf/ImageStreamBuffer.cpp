#include <host/BufferLedger.h>
#include <host/ImageStreamBuffer.h>

#include <utility>

namespace zebcam::host {

ImageStreamBuffer::ImageStreamBuffer(android::sp<NSCam::v3::IImageStreamInfo> pStreamInfo)
    : mpStreamInfo(std::move(pStreamInfo)) {
}

ImageStreamBuffer::~ImageStreamBuffer() = default;

bool ImageStreamBuffer::hasError() const {
    LockGuard const lock(mLock);
    return mHasError;
}

void ImageStreamBuffer::reset() {
    LockGuard const lock(mLock);
    mpUsersManager = nullptr;  // those of the frame before
    ++mResetCount;
}

void ImageStreamBuffer::setUsersManager(
    android::sp<NSCam::v3::Utils::UsersManager> const& manager) {
    LockGuard const lock(mLock);
    mpUsersManager = manager;
}

void ImageStreamBuffer::releaseBuffer() {
    std::shared_ptr<ImageContent const> content;  // destroyed outside the lock
    LockGuard const lock(mLock);
    mIsReleased = true;
    mContent.swap(content);
    // Once for each hand-out: an image that was released, or built with, is accounted for.
    if (mLedgerEntry && !std::exchange(mIsAccounted, true)) {
        mLedgerEntry->imageReleased();
    }
}

void ImageStreamBuffer::enterFrameBuilder() {
    LockGuard const lock(mLock);
    if (mLedgerEntry && !std::exchange(mIsAccounted, true)) {
        mLedgerEntry->imageInFrameBuilder();
    }
}

void ImageStreamBuffer::setContent(std::shared_ptr<ImageContent const> content) {
    LockGuard const lock(mLock);
    mContent.swap(content);  // the one before goes with the parameter, outside the lock
}

std::shared_ptr<ImageContent const> ImageStreamBuffer::content() const {
    LockGuard const lock(mLock);
    return mContent;
}

void ImageStreamBuffer::setError(bool error) {
    LockGuard const lock(mLock);
    mHasError = error;
}

bool ImageStreamBuffer::isReleased() const {
    LockGuard const lock(mLock);
    return mIsReleased;
}

unsigned ImageStreamBuffer::resetCount() const {
    LockGuard const lock(mLock);
    return mResetCount;
}

android::sp<NSCam::v3::Utils::UsersManager> ImageStreamBuffer::usersManager() const {
    LockGuard const lock(mLock);
    return mpUsersManager;
}

void ImageStreamBuffer::setLedgerEntry(std::shared_ptr<LedgerEntry> entry) {
    // Swapped, so that the last reference to the old entry, whose end updates the ledger, goes
    // with the parameter: after the lock.
    LockGuard const lock(mLock);
    mLedgerEntry.swap(entry);
    mIsAccounted = false;
}

std::shared_ptr<LedgerEntry> ImageStreamBuffer::ledgerEntry() const {
    LockGuard const lock(mLock);
    return mLedgerEntry;
}

}  // namespace zebcam::host
