#pragma once

#include <streamutils/IStreamBuffer.h>

#include <memory>
#include <mutex>

namespace zebcam::host {

class LedgerEntry;

/// An image stream buffer without pixels: it has a stream, users, an error status, and tells the
/// ledger entry of the buffer set that it belongs to (if any) what becomes of it.
class ImageStreamBuffer final : public NSCam::v3::IImageStreamBuffer {
public:
    explicit ImageStreamBuffer(android::sp<NSCam::v3::IImageStreamInfo> pStreamInfo);
    ~ImageStreamBuffer() override;

    NSCam::v3::IImageStreamInfo* getStreamInfo() const override { return mpStreamInfo.get(); }
    bool hasError() const override;
    void reset() override;
    void setUsersManager(android::sp<NSCam::v3::Utils::UsersManager> const& manager) override;
    void releaseBuffer() override;

    /// A frame builder has the buffer from now on; tells the ledger.
    void enterFrameBuilder();

    void setError(bool error);  ///< survives reset(): it is the content that is bad
    bool isReleased() const;
    unsigned resetCount() const;
    android::sp<NSCam::v3::Utils::UsersManager> usersManager() const;

    /// The set's entry in the ledger; kept for the life of the buffer or until replaced.
    void setLedgerEntry(std::shared_ptr<LedgerEntry> entry);
    std::shared_ptr<LedgerEntry> ledgerEntry() const;

private:
    android::sp<NSCam::v3::IImageStreamInfo> const mpStreamInfo;
    mutable std::mutex mLock;
    android::sp<NSCam::v3::Utils::UsersManager> mpUsersManager;
    std::shared_ptr<LedgerEntry> mLedgerEntry;
    bool mHasError = false;
    bool mIsReleased = false;
    bool mIsAccounted = false;  ///< the ledger entry knows what became of this image
    unsigned mResetCount = 0;
};

}  // namespace zebcam::host
