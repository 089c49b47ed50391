#pragma once

#include <policy/zsl/ZslTypes.h>
#include <streamutils/IStreamBuffer.h>

#include <algorithm>
#include <set>
#include <utility>
#include <vector>

/// Buffers by the stream that they belong to.
namespace NSCam::v3::pipeline::model {

using MetaBuffers = std::vector<android::sp<IMetaStreamBuffer>>;

/// Null for a buffer that is null itself.
template <typename Buffer>
auto streamInfoOf(android::sp<Buffer> const& buffer) {
    return buffer != nullptr ? buffer->getStreamInfo() : nullptr;
}

inline IStreamInfo const* streamInfoOf(IStreamInfo const* info) {
    return info;
}

/// Of an entry of a map by stream info.
template <typename Info, typename T>
IStreamInfo const* streamInfoOf(std::pair<Info const* const, T> const& entry) {
    return entry.first;
}

/// Whether a buffer, stream info or map entry is of that stream.
template <typename Stream>
bool isOf(Stream const& stream, StreamId_T streamId) {
    IStreamInfo const* const info = streamInfoOf(stream);
    return info != nullptr && info->getStreamId() == streamId;
}

/// Whether every required stream is in a set's or history frame's three lists.
template <typename Images, typename Metas>
bool haveRequired(Images const& halImages, Metas const& halMetas, Metas const& appMetas,
                  ZslPolicy::RequiredStreams const& required) {
    auto const haveAll = [](auto const& streams, std::set<StreamId_T> const& streamIds) {
        return std::all_of(streamIds.begin(), streamIds.end(), [&](StreamId_T id) {
            return std::any_of(streams.begin(), streams.end(),
                               [&](auto const& stream) { return isOf(stream, id); });
        });
    };
    return haveAll(halImages, required.halImages) && haveAll(halMetas, required.halMetas) &&
           haveAll(appMetas, required.appMetas);
}

/// The first buffer of a stream; null when there is none.
inline android::sp<IMetaStreamBuffer> findStream(MetaBuffers const& buffers, StreamId_T streamId) {
    auto const found = std::find_if(buffers.begin(), buffers.end(),
                                    [&](auto const& buffer) { return isOf(buffer, streamId); });
    return found != buffers.end() ? *found : nullptr;
}

}  // namespace NSCam::v3::pipeline::model
