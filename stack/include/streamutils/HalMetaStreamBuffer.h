#pragma once

#include <streamutils/IStreamBuffer.h>

namespace NSCam::v3::Utils {

/// A metadata stream buffer that is not bound to a request's buffer pool.
class HalMetaStreamBuffer : public IMetaStreamBuffer {
public:
    class Allocator;

    /// The maker of the buffer has written what it wanted to; from now on the buffer can be
    /// delivered to its consumers.
    virtual void finishUserSetup() = 0;
};

/// Makes metadata stream buffers of one stream.
class HalMetaStreamBuffer::Allocator {
public:
    explicit Allocator(android::sp<IMetaStreamInfo> pStreamInfo);

    /// An empty buffer without a pool; null when it cannot be made.
    android::sp<HalMetaStreamBuffer> operator()() const;

    /// A buffer that takes over `metadata`; null when it cannot be made.
    android::sp<HalMetaStreamBuffer> operator()(IMetadata metadata) const;

private:
    android::sp<IMetaStreamInfo> mpStreamInfo;
};

}  // namespace NSCam::v3::Utils
