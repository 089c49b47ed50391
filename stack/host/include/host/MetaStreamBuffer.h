#pragma once

#include <streamutils/HalMetaStreamBuffer.h>
#include <zebcam/ThreadSafety.h>

#include <memory>
#include <string>
#include <vector>

namespace zebcam::host {

class LedgerEntry;

/// A metadata stream buffer with a non-waiting reader/writer lock that knows its holders.
class MetaStreamBuffer final : public NSCam::v3::Utils::HalMetaStreamBuffer {
public:
    explicit MetaStreamBuffer(android::sp<NSCam::v3::IMetaStreamInfo> pStreamInfo,
                              NSCam::IMetadata metadata = {});
    ~MetaStreamBuffer() override;

    NSCam::v3::IMetaStreamInfo* getStreamInfo() const override { return mpStreamInfo.get(); }
    bool hasError() const override;
    NSCam::IMetadata* tryReadLock(char const* userName) override;
    NSCam::IMetadata* tryWriteLock(char const* userName) override;
    void unlock(char const* userName, NSCam::IMetadata* pMetadata) override;
    void finishUserSetup() override;

    void setError(bool error);

    /// False: every lock attempt fails. For tests of whoever must live with that.
    void setLockable(bool lockable);

    bool isFinished() const;  ///< finishUserSetup was called

    /// A copy of the content, whoever holds the lock. Only while no writer is at work.
    NSCam::IMetadata snapshot() const;

    /// The entry in the ledger of the set that the buffer belongs to, if any; kept for the life of
    /// the buffer or until replaced.
    void setLedgerEntry(std::shared_ptr<LedgerEntry> entry);
    std::shared_ptr<LedgerEntry> ledgerEntry() const;

    /// Locks that are held on any buffer of the process, as "stream name: user" texts. Empty when
    /// everything was given back. An unlock without a lock shows as "stream name: user (not
    /// held)", a lock that its buffer did not survive as "stream name: user (buffer is gone)".
    static std::vector<std::string> outstandingLocks();

    /// Forgets the errors, in parentheses, that outstandingLocks told of.
    static void forgetLockErrors();

private:
    struct Hold {
        std::string userName;
        bool isWriter;
    };

    NSCam::IMetadata* tryLock(char const* userName, bool isWriter);
    std::string describe(std::string const& userName) const;

    android::sp<NSCam::v3::IMetaStreamInfo> const mpStreamInfo;
    mutable Mutex mLock;         ///< taken after the one of the list of all buffers
    NSCam::IMetadata mMetadata;  ///< not under mLock: under the lock that this class implements
    std::vector<Hold> mHolds GUARDED_BY(mLock);  ///< any number of readers, or one writer
    std::shared_ptr<LedgerEntry> mpLedgerEntry GUARDED_BY(mLock);
    bool mHasError GUARDED_BY(mLock) = false;
    bool mIsLockable GUARDED_BY(mLock) = true;
    bool mIsFinished GUARDED_BY(mLock) = false;
};

}  // namespace zebcam::host
