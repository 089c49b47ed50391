#pragma once

#include <host/ImageStreamBuffer.h>
#include <host/MetaStreamBuffer.h>
#include <host/StreamInfos.h>
#include <pipeline/IHistoryBufferProvider.h>
#include <utils/Printer.h>

#include <cstdint>
#include <string>
#include <vector>

namespace zebcam::test {

using NSCam::IMetadata;
using NSCam::Type2Type;
using NSCam::v3::pipeline::NSPipelineContext::HistoryBufferSet;

constexpr uint32_t VALUE_TAG = 0x1234;

inline IMetadata metadataOf(int32_t value) {
    IMetadata metadata;
    IMetadata::IEntry entry(VALUE_TAG);
    entry.push_back(value, Type2Type<int32_t>());
    metadata.update(VALUE_TAG, entry);
    return metadata;
}

inline int32_t valueOf(IMetadata const& metadata) {
    return metadata.entryFor(VALUE_TAG).itemAt(0, Type2Type<int32_t>());
}

inline android::sp<host::MetaStreamBuffer> metaBuffer(int64_t streamId, int32_t value = 0) {
    android::sp<host::MetaStreamInfo> const info =
        new host::MetaStreamInfo(streamId, "meta" + std::to_string(streamId));
    return new host::MetaStreamBuffer(info, metadataOf(value));
}

inline android::sp<host::ImageStreamBuffer> imageBuffer(int64_t streamId) {
    android::sp<host::ImageStreamInfo> const info =
        new host::ImageStreamInfo(streamId, "image" + std::to_string(streamId));
    return new host::ImageStreamBuffer(info);
}

/// Keeps what is printed.
class Lines final : public android::Printer {
public:
    void printLine(char const* string = "") override { lines.emplace_back(string); }
    std::vector<std::string> lines;
};

/// A frame with images of the streams 1, 2, ... and metadata buffers that hold the frame number.
inline HistoryBufferSet frame(uint32_t frameNo, int images = 2) {
    HistoryBufferSet set;
    set.frameNo = frameNo;
    set.requestNo = frameNo + 1000;
    set.timestamp = frameNo * 1'000'000;
    for (int i = 1; i <= images; ++i) {
        set.halImage.push_back(imageBuffer(i));
    }
    set.halMeta.push_back(metaBuffer(11, static_cast<int32_t>(frameNo)));
    set.appMeta.push_back(metaBuffer(12, static_cast<int32_t>(frameNo)));
    return set;
}

}  // namespace zebcam::test
