#include <host/BufferLedger.h>
#include <host/ImageStreamBuffer.h>

#include <utility>

namespace zebcam::host {

ImageStreamBuffer::ImageStreamBuffer(android::sp<NSCam::v3::IImageStreamInfo> pStreamInfo)
    : mpStreamInfo(std::move(pStreamInfo)) {
}

ImageStreamBuffer::~ImageStreamBuffer() = default;

bool ImageStreamBuffer::hasError() const {
    std::lock_guard lock(mLock);
    return mHasError;
}

void ImageStreamBuffer::reset() {
    std::lock_guard lock(mLock);
    mpUsersManager = nullptr;
    ++mResetCount;
}

void ImageStreamBuffer::setUsersManager(
    android::sp<NSCam::v3::Utils::UsersManager> const& manager) {
    std::lock_guard lock(mLock);
    mpUsersManager = manager;
}

void ImageStreamBuffer::releaseBuffer() {
    std::lock_guard lock(mLock);
    mIsReleased = true;
    if (mLedgerEntry && !std::exchange(mIsAccounted, true)) {
        mLedgerEntry->imageReleased();
    }
}

void ImageStreamBuffer::enterFrameBuilder() {
    std::lock_guard lock(mLock);
    if (mLedgerEntry && !std::exchange(mIsAccounted, true)) {
        mLedgerEntry->imageInFrameBuilder();
    }
}

void ImageStreamBuffer::setError(bool error) {
    std::lock_guard lock(mLock);
    mHasError = error;
}

bool ImageStreamBuffer::isReleased() const {
    std::lock_guard lock(mLock);
    return mIsReleased;
}

unsigned ImageStreamBuffer::resetCount() const {
    std::lock_guard lock(mLock);
    return mResetCount;
}

android::sp<NSCam::v3::Utils::UsersManager> ImageStreamBuffer::usersManager() const {
    std::lock_guard lock(mLock);
    return mpUsersManager;
}

void ImageStreamBuffer::setLedgerEntry(std::shared_ptr<LedgerEntry> entry) {
    std::lock_guard lock(mLock);
    mLedgerEntry.swap(entry);
    mIsAccounted = false;
}

std::shared_ptr<LedgerEntry> ImageStreamBuffer::ledgerEntry() const {
    std::lock_guard lock(mLock);
    return mLedgerEntry;
}

}  // namespace zebcam::host
