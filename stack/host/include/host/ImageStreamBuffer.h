#pragma once

#include <streamutils/IStreamBuffer.h>
#include <zebcam/ThreadSafety.h>

#include <memory>

namespace zebcam::host {

class LedgerEntry;

/// What an image shows, for those who made it and who look at it: the stack only keeps it as long
/// as the image. It never changes, for clones share it.
class ImageContent {
public:
    ImageContent() = default;
    ImageContent(ImageContent const&) = delete;
    ImageContent& operator=(ImageContent const&) = delete;
    virtual ~ImageContent() = default;
};

/// An image stream buffer: it has a stream, users, an error status, perhaps a content, and tells
/// the ledger entry of the buffer set that it belongs to (if any) what becomes of it.
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

    void setContent(std::shared_ptr<ImageContent const> content);
    /// Null once the buffer is released: its memory is another frame's then.
    std::shared_ptr<ImageContent const> content() const;

    void setError(bool error);  ///< survives reset(): it is the content that is bad
    bool isReleased() const;
    unsigned resetCount() const;
    android::sp<NSCam::v3::Utils::UsersManager> usersManager() const;

    /// The set's entry in the ledger; kept for the life of the buffer or until replaced.
    void setLedgerEntry(std::shared_ptr<LedgerEntry> entry);
    std::shared_ptr<LedgerEntry> ledgerEntry() const;

private:
    android::sp<NSCam::v3::IImageStreamInfo> const mpStreamInfo;
    mutable Mutex mLock;  ///< taken before the ledger entry's
    android::sp<NSCam::v3::Utils::UsersManager> mpUsersManager GUARDED_BY(mLock);
    std::shared_ptr<LedgerEntry> mLedgerEntry GUARDED_BY(mLock);
    std::shared_ptr<ImageContent const> mContent GUARDED_BY(mLock);
    bool mHasError GUARDED_BY(mLock) = false;
    bool mIsReleased GUARDED_BY(mLock) = false;
    bool mIsAccounted GUARDED_BY(mLock) = false;  ///< the entry knows what became of this image
    unsigned mResetCount GUARDED_BY(mLock) = 0;
};

}  // namespace zebcam::host
