#pragma once

#include <streamutils/IStreamInfo.h>

#include <string>

namespace zebcam::host {

/// A stream info with a fixed id and name. `Base` is IImageStreamInfo or IMetaStreamInfo.
template <typename Base>
class StreamInfo final : public Base {
public:
    StreamInfo(NSCam::v3::StreamId_T id, std::string name) : mId(id), mName(std::move(name)) {}

    NSCam::v3::StreamId_T getStreamId() const override { return mId; }
    char const* getStreamName() const override { return mName.c_str(); }

private:
    NSCam::v3::StreamId_T const mId;
    std::string const mName;
};

using ImageStreamInfo = StreamInfo<NSCam::v3::IImageStreamInfo>;
using MetaStreamInfo = StreamInfo<NSCam::v3::IMetaStreamInfo>;

}  // namespace zebcam::host
