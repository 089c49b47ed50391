#include <host/BufferLedger.h>
#include <host/MetaStreamBuffer.h>

#include <algorithm>
#include <unordered_set>
#include <utility>

namespace zebcam::host {

namespace {

/// Every buffer that lives, and the misuses of their locks. Its lock is taken before a buffer's.
struct Registry {
    std::mutex lock;
    std::unordered_set<MetaStreamBuffer const*> buffers;
    std::vector<std::string> errors;

    void addError(std::string error) {
        std::lock_guard guard(lock);
        errors.push_back(std::move(error));
    }
};

Registry& registry() {
    static Registry& instance = *new Registry;
    return instance;
}

}  // namespace

MetaStreamBuffer::MetaStreamBuffer(android::sp<NSCam::v3::IMetaStreamInfo> pStreamInfo,
                                   NSCam::IMetadata metadata)
    : mpStreamInfo(std::move(pStreamInfo)), mMetadata(std::move(metadata)) {
    std::lock_guard lock(registry().lock);
    registry().buffers.insert(this);
}

MetaStreamBuffer::~MetaStreamBuffer() {
    std::lock_guard lock(registry().lock);
    registry().buffers.erase(this);
    for (auto const& hold : mHolds) {
        registry().errors.push_back(describe(hold.userName) + " (buffer is gone)");
    }
}

bool MetaStreamBuffer::hasError() const {
    std::lock_guard lock(mLock);
    return mHasError;
}

NSCam::IMetadata* MetaStreamBuffer::tryReadLock(char const* userName) {
    return tryLock(userName, false);
}

NSCam::IMetadata* MetaStreamBuffer::tryWriteLock(char const* userName) {
    return tryLock(userName, true);
}

NSCam::IMetadata* MetaStreamBuffer::tryLock(char const* userName, bool isWriter) {
    std::lock_guard lock(mLock);
    bool const isShared = !isWriter && (mHolds.empty() || !mHolds.front().isWriter);
    if (!mIsLockable || (!mHolds.empty() && !isShared)) {
        return nullptr;
    }
    mHolds.push_back({userName ? userName : "", isWriter});
    return &mMetadata;
}

void MetaStreamBuffer::unlock(char const* userName, NSCam::IMetadata* pMetadata) {
    if (!pMetadata) {
        return;
    }
    std::string const name = userName ? userName : "";
    {
        std::lock_guard lock(mLock);
        auto const it = std::find_if(mHolds.begin(), mHolds.end(),
                                     [&](Hold const& hold) { return hold.userName == name; });
        if (pMetadata == &mMetadata && it != mHolds.end()) {
            mHolds.erase(it);
            return;
        }
    }
    registry().addError(describe(name) + " (not held)");
}

void MetaStreamBuffer::finishUserSetup() {
    std::lock_guard lock(mLock);
    mIsFinished = true;
}

void MetaStreamBuffer::setError(bool error) {
    std::lock_guard lock(mLock);
    mHasError = error;
}

void MetaStreamBuffer::setLockable(bool lockable) {
    std::lock_guard lock(mLock);
    mIsLockable = lockable;
}

bool MetaStreamBuffer::isFinished() const {
    std::lock_guard lock(mLock);
    return mIsFinished;
}

NSCam::IMetadata MetaStreamBuffer::snapshot() const {
    return mMetadata;
}

void MetaStreamBuffer::setLedgerEntry(std::shared_ptr<LedgerEntry> entry) {
    std::lock_guard lock(mLock);
    mpLedgerEntry.swap(entry);
}

std::shared_ptr<LedgerEntry> MetaStreamBuffer::ledgerEntry() const {
    std::lock_guard lock(mLock);
    return mpLedgerEntry;
}

std::string MetaStreamBuffer::describe(std::string const& userName) const {
    char const* const streamName = mpStreamInfo != nullptr ? mpStreamInfo->getStreamName() : "?";
    return std::string(streamName) + ": " + userName;
}

std::vector<std::string> MetaStreamBuffer::outstandingLocks() {
    std::lock_guard registryLock(registry().lock);
    std::vector<std::string> locks;
    for (auto const* buffer : registry().buffers) {
        std::lock_guard lock(buffer->mLock);
        for (auto const& hold : buffer->mHolds) {
            locks.push_back(buffer->describe(hold.userName));
        }
    }
    locks.insert(locks.end(), registry().errors.begin(), registry().errors.end());
    std::sort(locks.begin(), locks.end());
    return locks;
}

void MetaStreamBuffer::forgetLockErrors() {
    std::lock_guard lock(registry().lock);
    registry().errors.clear();
}

}  // namespace zebcam::host

namespace NSCam::v3::Utils {

HalMetaStreamBuffer::Allocator::Allocator(android::sp<IMetaStreamInfo> pStreamInfo)
    : mpStreamInfo(std::move(pStreamInfo)) {
}

android::sp<HalMetaStreamBuffer> HalMetaStreamBuffer::Allocator::operator()() const {
    return (*this)(IMetadata());
}

android::sp<HalMetaStreamBuffer> HalMetaStreamBuffer::Allocator::operator()(
    IMetadata metadata) const {
    if (mpStreamInfo == nullptr) {
        return nullptr;
    }
    return new zebcam::host::MetaStreamBuffer(mpStreamInfo, std::move(metadata));
}

}  // namespace NSCam::v3::Utils
