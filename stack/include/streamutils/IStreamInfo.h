#pragma once

#include <streamutils/StreamId.h>
#include <utils/RefBase.h>

namespace NSCam::v3 {

/// Describes a stream. Immutable, so it needs no lock.
class IStreamInfo : public virtual android::RefBase {
public:
    virtual StreamId_T getStreamId() const = 0;

    /// Zero-terminated, owned by the stream info.
    virtual char const* getStreamName() const = 0;
};

class IImageStreamInfo : public IStreamInfo {};

class IMetaStreamInfo : public IStreamInfo {};

}  // namespace NSCam::v3
