#include <host/BufferLedger.h>
#include <host/MetaStreamBuffer.h>

#include <algorithm>
#include <unordered_set>
#include <utility>

namespace zebcam::host {

namespace {

/// Every buffer that lives, and the misuses of their locks. Its lock is taken before a buffer's.
struct Registry {
    Mutex lock;
    std::unordered_set<MetaStreamBuffer const*> buffers GUARDED_BY(lock);
    std::vector<std::string> errors GUARDED_BY(lock);

    void addError(std::string error) EXCLUDES(lock) {
        LockGuard const guard(lock);
        errors.push_back(std::move(error));
    }
};

/// Never destroyed: buffers of static objects outlive everything else here.
Registry& registry() {
    static Registry& instance = *new Registry;
    return instance;
}

}  // namespace

MetaStreamBuffer::MetaStreamBuffer(android::sp<NSCam::v3::IMetaStreamInfo> pStreamInfo,
                                   NSCam::IMetadata metadata)
    : mpStreamInfo(std::move(pStreamInfo)), mMetadata(std::move(metadata)) {
    LockGuard const lock(registry().lock);
    registry().buffers.insert(this);
}

MetaStreamBuffer::~MetaStreamBuffer() {
    LockGuard const lock(registry().lock);
    registry().buffers.erase(this);
    // Without its own lock: whoever still used the buffer now would use freed memory anyway.
    for (auto const& hold : mHolds) {
        registry().errors.push_back(describe(hold.userName) + " (buffer is gone)");
    }
}

bool MetaStreamBuffer::hasError() const {
    LockGuard const lock(mLock);
    return mHasError;
}

NSCam::IMetadata* MetaStreamBuffer::tryReadLock(char const* userName) {
    return tryLock(userName, false);
}

NSCam::IMetadata* MetaStreamBuffer::tryWriteLock(char const* userName) {
    return tryLock(userName, true);
}

NSCam::IMetadata* MetaStreamBuffer::tryLock(char const* userName, bool isWriter) {
    LockGuard const lock(mLock);
    // Never waits, not for the caller's own lock either: the camera's lock is not recursive.
    // Readers share; one writer would be the only hold, so that the first tells.
    bool const isShared = !isWriter && (mHolds.empty() || !mHolds.front().isWriter);
    if (!mIsLockable || (!mHolds.empty() && !isShared)) {
        return nullptr;
    }
    // A holder without a name is a holder too: the report of what is locked must not lack it.
    mHolds.push_back({userName ? userName : "", isWriter});
    return &mMetadata;
}

void MetaStreamBuffer::unlock(char const* userName, NSCam::IMetadata* pMetadata) {
    if (!pMetadata) {  // of a try that failed; there is nothing to give back
        return;
    }
    std::string const name = userName ? userName : "";
    {
        LockGuard const lock(mLock);
        // By name and not by thread: a lock may be given back by another one.
        auto const it = std::find_if(mHolds.begin(), mHolds.end(),
                                     [&](Hold const& hold) { return hold.userName == name; });
        if (pMetadata == &mMetadata && it != mHolds.end()) {
            mHolds.erase(it);
            return;
        }
    }
    // Outside mLock, because the list's lock comes first.
    registry().addError(describe(name) + " (not held)");
}

void MetaStreamBuffer::finishUserSetup() {
    LockGuard const lock(mLock);
    mIsFinished = true;
}

void MetaStreamBuffer::setError(bool error) {
    LockGuard const lock(mLock);
    mHasError = error;
}

void MetaStreamBuffer::setLockable(bool lockable) {
    LockGuard const lock(mLock);
    mIsLockable = lockable;
}

bool MetaStreamBuffer::isFinished() const {
    LockGuard const lock(mLock);
    return mIsFinished;
}

NSCam::IMetadata MetaStreamBuffer::snapshot() const {
    return mMetadata;
}

void MetaStreamBuffer::setLedgerEntry(std::shared_ptr<LedgerEntry> entry) {
    LockGuard const lock(mLock);
    // Swapped: the old entry, whose end updates the ledger, goes with the parameter, unlocked.
    mpLedgerEntry.swap(entry);
}

std::shared_ptr<LedgerEntry> MetaStreamBuffer::ledgerEntry() const {
    LockGuard const lock(mLock);
    return mpLedgerEntry;
}

std::string MetaStreamBuffer::describe(std::string const& userName) const {
    char const* const streamName = mpStreamInfo != nullptr ? mpStreamInfo->getStreamName() : "?";
    return std::string(streamName) + ": " + userName;
}

std::vector<std::string> MetaStreamBuffer::outstandingLocks() {
    Registry& all = registry();
    LockGuard const allLock(all.lock);  // no buffer ends meanwhile
    std::vector<std::string> locks;
    for (auto const* buffer : all.buffers) {
        LockGuard const lock(buffer->mLock);
        for (auto const& hold : buffer->mHolds) {
            locks.push_back(buffer->describe(hold.userName));
        }
    }
    locks.insert(locks.end(), all.errors.begin(), all.errors.end());
    // The buffers come in the order of a hash: reports must not differ from run to run.
    std::sort(locks.begin(), locks.end());
    return locks;
}

void MetaStreamBuffer::forgetLockErrors() {
    Registry& all = registry();
    LockGuard const lock(all.lock);
    all.errors.clear();
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
    // A buffer without a stream could be delivered to nobody.
    if (mpStreamInfo == nullptr) {
        return nullptr;
    }
    return new zebcam::host::MetaStreamBuffer(mpStreamInfo, std::move(metadata));
}

}  // namespace NSCam::v3::Utils
