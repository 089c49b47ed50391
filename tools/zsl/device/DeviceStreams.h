#pragma once

#include <host/StreamInfos.h>

#include <cstddef>
#include <vector>

#include "device/DeviceRecording.h"

namespace zebcam::tool {

/// Stream infos that stand for a device's. A policy meets metadata in the order of its stream
/// infos' addresses, and what it decides may depend on that, so they lie in memory in the same
/// order as the device's.
class DeviceStreams {
public:
    explicit DeviceStreams(std::vector<DeviceStream> const& streams);

    /// The stream at a position, as one of images or of metadata.
    android::sp<host::ImageStreamInfo> const& image(size_t stream) const {
        return mImages.at(stream);
    }
    android::sp<host::MetaStreamInfo> const& meta(size_t stream) const { return mMetas.at(stream); }

private:
    std::vector<android::sp<host::ImageStreamInfo>> mImages;
    std::vector<android::sp<host::MetaStreamInfo>> mMetas;
};

}  // namespace zebcam::tool
