#include "run/DeviceBuffers.h"

#include <host/ImageStreamBuffer.h>
#include <metadata/MetadataTags.h>

#include <algorithm>
#include <array>
#include <functional>
#include <new>
#include <numeric>

#include "pipeline/MetadataAccess.h"

namespace zebcam::tool::run {

using NSCam::v3::pipeline::IPipelineBufferSetFrameControl;
using NSCam::v3::pipeline::policy::ParsedStreamInfo_P1;
using NSCam::v3::pipeline::policy::ParsedStreamInfoMap_P1;
using HistoryBufferSet = DeviceBuffers::HistoryBufferSet;

namespace {

/// Stream infos in the order of `streams`. A policy meets metadata in the order of its stream
/// infos' addresses, and what it decides may depend on that, so they lie in memory in the same
/// order as the device's.
template <typename Info>
std::vector<android::sp<Info>> inOrderOfAddresses(
    std::vector<device::DeviceStream> const& streams) {
    auto free = [](void* block) { ::operator delete(block); };
    std::vector<size_t> order(streams.size());
    std::iota(order.begin(), order.end(), size_t{0});
    std::stable_sort(order.begin(), order.end(),
                     [&](size_t a, size_t b) { return streams[a].address < streams[b].address; });
    std::vector<std::unique_ptr<void, decltype(free)>> blocks(streams.size());
    for (auto& block : blocks) {
        block.reset(::operator new(sizeof(Info)));
    }
    std::sort(blocks.begin(), blocks.end(),
              [](auto const& a, auto const& b) { return std::less<void*>()(a.get(), b.get()); });
    std::vector<android::sp<Info>> infos(streams.size());
    for (size_t rank = 0; rank < order.size(); ++rank) {
        device::DeviceStream const& stream = streams[order[rank]];
        // The last reference deletes the info, and with it the block.
        infos[order[rank]] = new (blocks[rank].get()) Info(stream.id, stream.name);
        static_cast<void>(blocks[rank].release());
    }
    return infos;
}

/// Calls `visit` with each buffer of a set; all are the host's.
template <typename Visit>
void forEachBuffer(HistoryBufferSet const& set, Visit visit) {
    for (auto const& image : set.halImage) {
        if (auto* const buffer = dynamic_cast<host::ImageStreamBuffer*>(image.get())) {
            visit(*buffer);
        }
    }
    for (auto const* const metas : {&set.halMeta, &set.appMeta}) {
        for (auto const& meta : *metas) {
            if (auto* const buffer = dynamic_cast<host::MetaStreamBuffer*>(meta.get())) {
                visit(*buffer);
            }
        }
    }
}

size_t buffersOf(HistoryBufferSet const& set) {
    size_t buffers = 0;
    forEachBuffer(set, [&](auto const&) { ++buffers; });
    return buffers;
}

/// Its metadata changes during a selection, so that its buffers are not the same afterwards.
bool hasUnlockable(device::DeviceFrame const& frame) {
    auto const isUnlockable = [](device::DeviceMeta const& meta) { return !meta.isLockable; };
    return std::any_of(frame.halMetas.begin(), frame.halMetas.end(), isUnlockable) ||
           std::any_of(frame.appMetas.begin(), frame.appMetas.end(), isUnlockable);
}

}  // namespace

DeviceBuffers::DeviceBuffers(device::DeviceRecording const& recording)
    : mRecording(recording),
      mImages(inOrderOfAddresses<host::ImageStreamInfo>(recording.streams)),
      mMetas(inOrderOfAddresses<host::MetaStreamInfo>(recording.streams)) {
}

DeviceBuffers::Metas DeviceBuffers::metas(std::vector<device::DeviceMeta> const& metas) {
    Metas buffers;
    for (device::DeviceMeta const& meta : metas) {
        if (!meta.stream) {
            continue;
        }
        android::sp<host::MetaStreamBuffer> const buffer =
            new host::MetaStreamBuffer(mMetas.at(*meta.stream), meta.metadata);
        buffer->setError(meta.hasError);
        if (!meta.isLockable) {
            buffer->setLockable(false);
            mUnlockable.push_back(buffer);
        }
        buffers.emplace_back(buffer);
    }
    return buffers;
}

ParsedStreamInfo_P1 DeviceBuffers::streamsOf(device::DeviceSensor const& sensor) const {
    ParsedStreamInfo_P1 parsed;
    std::array const metas{&parsed.pHalMeta_Control, &parsed.pHalMeta_DynamicP1,
                           &parsed.pAppMeta_DynamicP1};
    std::array const images{&parsed.pHalImage_FullRaw,      &parsed.pHalImage_ResizedRaw,
                            &parsed.pHalImage_ScaledYuv,    &parsed.pHalImage_FaceYuv,
                            &parsed.pHalImage_ShadingStats, &parsed.pHalImage_MotionStats,
                            &parsed.pHalImage_DepthStats,   &parsed.pHalImage_FlickerStats};
    static_assert(metas.size() + images.size() == decltype(sensor.streams)().size());
    for (size_t i = 0; i < sensor.streams.size(); ++i) {
        if (!sensor.streams.at(i)) {
            continue;
        }
        if (i < metas.size()) {
            *metas.at(i) = mMetas.at(*sensor.streams.at(i));
        } else {
            *images.at(i - metas.size()) = mImages.at(*sensor.streams.at(i));
        }
    }
    return parsed;
}

ParsedStreamInfoMap_P1 DeviceBuffers::sensors(
    std::vector<device::DeviceSensor> const& recorded) const {
    ParsedStreamInfoMap_P1 sensors;
    // The map puts what comes last first, as a rule; where it does not, the first sensor's streams
    // are all that the processor looks at.
    for (auto sensor = recorded.rbegin(); sensor != recorded.rend(); ++sensor) {
        sensors.insert_or_assign(sensor->id, streamsOf(*sensor));
    }
    if (!recorded.empty() && sensors.begin()->first != recorded.front().id) {
        sensors.clear();
        sensors.emplace(recorded.front().id, streamsOf(recorded.front()));
    }
    return sensors;
}

std::shared_ptr<host::FrameBuilder> DeviceBuffers::builder(uint32_t requestNo,
                                                           device::RequestedFrame const& frame) {
    if (!frame.frameType) {
        return nullptr;
    }
    auto builder = std::make_shared<host::FrameBuilder>(requestNo, *frame.frameType);
    for (auto const& buffer : metas(frame.appControls)) {
        builder->setAppMetaStreamBuffer(buffer->getStreamInfo()->getStreamId(), buffer);
    }
    for (auto const& buffer : metas(frame.halControls)) {
        builder->setHalMetaStreamBuffer(buffer->getStreamInfo()->getStreamId(), buffer);
    }
    return builder;
}

IPipelineBufferSetFrameControl::IAppCallback::Result DeviceBuffers::result(
    device::ResultCall const& call) const {
    IPipelineBufferSetFrameControl::IAppCallback::Result result;
    result.requestNo = call.resultRequestNo;
    result.nAppOutMetaLeft = call.appMetasLeft;
    result.nHalOutMetaLeft = call.halMetasLeft;
    result.isFrameEnd = call.isFrameEnd;
    for (device::ResultMeta const& meta : call.appMetas) {
        NSCam::IMetadata metadata;
        pipeline::put(metadata, NSCam::ZEB_SENSOR_TIMESTAMP, meta.timestampNs);
        result.outputAppMetas.push_back(new host::MetaStreamBuffer(
            meta.stream ? mMetas.at(*meta.stream) : nullptr, std::move(metadata)));
    }
    return result;
}

HistoryBufferSet DeviceBuffers::make(size_t frame) {
    device::DeviceFrame const& content = mRecording.frames.at(frame);
    HistoryBufferSet set;
    set.frameNo = content.frameNo;
    set.requestNo = content.requestNo;
    set.timestamp = content.timestampNs;
    for (device::DeviceImage const& image : content.images) {
        if (image.stream) {
            android::sp<host::ImageStreamBuffer> const buffer =
                new host::ImageStreamBuffer(mImages.at(*image.stream));
            buffer->setError(image.hasError);
            set.halImage.emplace_back(buffer);
        }
    }
    set.halMeta = metas(content.halMetas);
    set.appMeta = metas(content.appMetas);
    return set;
}

void DeviceBuffers::handOut(HistoryBufferSet const& set, size_t frame, uint32_t forRequestNo,
                            bool isClone) {
    auto const entry = mLedger->open({.frameNo = set.frameNo,
                                      .exposedNs = set.timestamp,
                                      .forRequestNo = forRequestNo,
                                      .isClone = isClone},
                                     set.halImage.size());
    forEachBuffer(set, [&](auto& buffer) { buffer.setLedgerEntry(entry); });
    mOut.insert_or_assign(entry.get(), std::pair(frame, buffersOf(set)));
}

std::list<HistoryBufferSet> DeviceBuffers::offer(std::vector<size_t> const& frames,
                                                 uint32_t forRequestNo) {
    // What this offer leaves out is as new when it is offered next, for a recorder too.
    auto home = std::exchange(mHome, {});
    std::list<HistoryBufferSet> sets;
    for (size_t const frame : frames) {
        auto const kept = home.find(frame);
        sets.push_back(kept != home.end() ? std::move(kept->second) : make(frame));
        handOut(sets.back(), frame, forRequestNo, false);
    }
    return sets;
}

HistoryBufferSet DeviceBuffers::clone(size_t frame, uint32_t forRequestNo) {
    HistoryBufferSet set = make(frame);
    handOut(set, frame, forRequestNo, true);
    return set;
}

void DeviceBuffers::takeBack(HistoryBufferSet& set, bool isUnused) {
    HistoryBufferSet taken = std::exchange(set, {});
    std::shared_ptr<host::LedgerEntry> entry;
    forEachBuffer(taken, [&](auto& buffer) {
        entry = entry != nullptr ? entry : buffer.ledgerEntry();
        buffer.setLedgerEntry(nullptr);
    });
    if (entry == nullptr) {
        return;
    }
    entry->setEnded(isUnused ? host::BufferHolder::Returned : host::BufferHolder::Released);
    auto const [frame, buffers] = mOut.at(entry.get());
    if (isUnused && !entry->isClone() && buffersOf(taken) == buffers &&
        !hasUnlockable(mRecording.frames.at(frame))) {
        mHome.insert_or_assign(frame, std::move(taken));
    }
}

void DeviceBuffers::unlockAll() {
    for (auto const& buffer : mUnlockable) {
        buffer->setLockable(true);
    }
    mUnlockable.clear();
}

}  // namespace zebcam::tool::run
