#pragma once

#include <pipeline/IHistoryBufferProvider.h>
#include <streamutils/IStreamBuffer.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "Encoder.h"

namespace NSCam::v3::pipeline::model::record {

using MetaBuffers = std::vector<android::sp<IMetaStreamBuffer>>;
using NSPipelineContext::HistoryBufferSet;

/// The sensor timestamp of an application result, ns; false when the metadata has none or cannot
/// be locked.
bool readSensorTimestamp(android::sp<IMetaStreamBuffer> const& buffer, int64_t& ns);

/// Writes down streams, metadata and history frames, streams and frames in full only when they are
/// new: a frame whose buffers and their states are those of the history before is a reference.
class BufferEncoder {
public:
    explicit BufferEncoder(size_t largestEntryBytes) : mLargestEntryBytes(largestEntryBytes) {}

    /// A stream, or that there is none.
    void optionalStream(Encoder& out, IStreamInfo const* info);
    void metaBuffers(Encoder& out, MetaBuffers const& buffers);
    void metadata(Encoder& out, IMetadata const& metadata) const;

    /// A history is described, frame by frame.
    void beginHistory();
    void historyFrame(Encoder& out, HistoryBufferSet const& set);
    /// A set outside a history.
    void looseFrame(Encoder& out, HistoryBufferSet const& set);

private:
    struct KnownStream {
        uint64_t number = 0;
        StreamId_T id = 0;
        std::string name;
    };
    /// What tells whether a buffer is the one that was described.
    struct Part {
        void const* buffer = nullptr;
        uint64_t flags = 0;
        size_t entries = 0;
        bool operator==(Part const&) const = default;
    };
    struct KnownFrame {
        uint64_t number = 0;
        uint32_t frameNo = 0;
        uint32_t requestNo = 0;
        int64_t timestamp = 0;
        std::vector<Part> parts;
    };

    void stream(Encoder& out, IStreamInfo const& info);
    void newFrame(Encoder& out, HistoryBufferSet const& set);
    void gatherParts(HistoryBufferSet const& set);

    size_t const mLargestEntryBytes;
    std::unordered_map<IStreamInfo const*, KnownStream> mStreams;
    uint64_t mNextStream = 0;
    std::vector<KnownFrame> mEarlier;  ///< of the history before
    std::vector<KnownFrame> mCurrent;
    uint64_t mNextFrame = 0;
    int64_t mLastTimestamp = 0;
    std::vector<Part> mParts;  ///< of the set in hand
};

}  // namespace NSCam::v3::pipeline::model::record
