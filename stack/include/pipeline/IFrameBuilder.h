#pragma once

#include <streamutils/IStreamBuffer.h>

#include <cstdint>
#include <vector>

namespace NSCam::v3::pipeline::NSPipelineContext {

/// Role of a frame within a capture.
enum FrameType : uint32_t {
    FRAME_TYPE_MAIN = 0,
    FRAME_TYPE_SUB = 1,
    FRAME_TYPE_PRESUB = 2,
    FRAME_TYPE_PREDUMMY = 3,
    FRAME_TYPE_POSTDUMMY = 4,
};

/// Collects what a pipeline frame is made of, before it is submitted. Held through std::shared_ptr
/// and used by one thread at a time.
class IFrameBuilder {
public:
    virtual ~IFrameBuilder() = default;

    virtual uint32_t getFrameType() const = 0;

    /// Append the request's application (HAL) metadata buffers to `out`.
    virtual void getAppMetaStreamBuffers(
        std::vector<android::sp<IMetaStreamBuffer>>& out) const = 0;
    virtual void getHalMetaStreamBuffers(
        std::vector<android::sp<IMetaStreamBuffer>>& out) const = 0;

    /// Give the frame a buffer for a stream, replacing any earlier one. The builder shares it.
    virtual void setHalImageStreamBuffer(StreamId_T streamId,
                                         android::sp<IImageStreamBuffer> const& buffer) = 0;
    virtual void setHalMetaStreamBuffer(StreamId_T streamId,
                                        android::sp<IMetaStreamBuffer> const& buffer) = 0;
    virtual void setAppMetaStreamBuffer(StreamId_T streamId,
                                        android::sp<IMetaStreamBuffer> const& buffer) = 0;

    /// Shutter time that the frame reports, ns; 0: the pipeline's own.
    virtual void setFrameTimestamp(int64_t ns) = 0;

    /// True: the frame reprocesses a history frame; false: an ordinary capture.
    virtual void setBuiltFromHistory(bool builtFromHistory) = 0;
};

}  // namespace NSCam::v3::pipeline::NSPipelineContext
