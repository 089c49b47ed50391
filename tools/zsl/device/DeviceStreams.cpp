#include "device/DeviceStreams.h"

#include <algorithm>
#include <functional>
#include <memory>
#include <new>
#include <numeric>

namespace zebcam::tool {
namespace {

struct FreeBlock {
    void operator()(void* block) const { ::operator delete(block); }
};

template <typename Info>
std::vector<android::sp<Info>> inOrderOfAddresses(std::vector<DeviceStream> const& streams) {
    std::vector<size_t> order(streams.size());
    std::iota(order.begin(), order.end(), size_t{0});
    std::stable_sort(order.begin(), order.end(),
                     [&](size_t a, size_t b) { return streams[a].address < streams[b].address; });
    std::vector<std::unique_ptr<void, FreeBlock>> blocks(streams.size());
    for (auto& block : blocks) {
        block.reset(::operator new(sizeof(Info)));
    }
    std::sort(blocks.begin(), blocks.end(),
              [](auto const& a, auto const& b) { return std::less<void*>()(a.get(), b.get()); });
    std::vector<android::sp<Info>> infos(streams.size());
    for (size_t rank = 0; rank < order.size(); ++rank) {
        DeviceStream const& stream = streams[order[rank]];
        // The last reference deletes the info, and with it the block.
        infos[order[rank]] = new (blocks[rank].get()) Info(stream.id, stream.name);
        static_cast<void>(blocks[rank].release());
    }
    return infos;
}

}  // namespace

DeviceStreams::DeviceStreams(std::vector<DeviceStream> const& streams)
    : mImages(inOrderOfAddresses<host::ImageStreamInfo>(streams)),
      mMetas(inOrderOfAddresses<host::MetaStreamInfo>(streams)) {
}

}  // namespace zebcam::tool
