#include "HistorySets.h"

#include <metadata/MetadataTags.h>

#include <algorithm>

#include "FrameCriteria.h"
#include "Log.h"
#include "MetadataLocks.h"

namespace NSCam::v3::pipeline::model {

using NSPipelineContext::IHistoryBufferProvider;
using ZslPolicy::RequiredStreams;

namespace {

template <typename Buffer>
bool isOf(android::sp<Buffer> const& buffer, StreamId_T streamId) {
    return buffer != nullptr && buffer->getStreamInfo() != nullptr &&
           buffer->getStreamInfo()->getStreamId() == streamId;
}

template <typename Buffers>
bool haveAll(Buffers const& buffers, std::set<StreamId_T> const& streamIds) {
    return std::all_of(streamIds.begin(), streamIds.end(), [&](StreamId_T id) {
        return std::any_of(buffers.begin(), buffers.end(),
                           [&](auto const& buffer) { return isOf(buffer, id); });
    });
}

void releaseBuffer(android::sp<IImageStreamBuffer>& buffer) {
    if (buffer != nullptr) {
        buffer->releaseBuffer();
    }
    buffer = nullptr;
}

void releaseBuffer(android::sp<IMetaStreamBuffer>& buffer) {
    buffer = nullptr;
}

template <typename Buffers>
void keepOnly(Buffers& buffers, std::set<StreamId_T> const& streamIds) {
    auto const isRequired = [&](auto const& buffer) {
        return buffer != nullptr && buffer->getStreamInfo() != nullptr &&
               streamIds.count(buffer->getStreamInfo()->getStreamId()) != 0;
    };
    auto const unrequired = std::stable_partition(buffers.begin(), buffers.end(), isRequired);
    for (auto buffer = unrequired; buffer != buffers.end(); ++buffer) {
        releaseBuffer(*buffer);
    }
    buffers.erase(unrequired, buffers.end());
}

template <typename Buffer>
char const* streamNameOf(Buffer const& buffer) {
    return buffer->getStreamInfo() != nullptr ? buffer->getStreamInfo()->getStreamName() : "?";
}

bool isPureRaw(android::sp<IMetaStreamBuffer> const& buffer) {
    auto const metadata = MetadataLock::forReading(buffer);
    return isMatched<int32_t>(metadata.get(), ZEB_P1NODE_PURE_RAW, 1, "isPDPureRaw", false);
}

/// The name of the stream because of which the set cannot be used; null for a sound set.
char const* problemOf(HistoryBufferSet const& set, bool checkPureRaw) {
    for (auto const& image : set.halImage) {
        if (image != nullptr && image->hasError()) {
            return streamNameOf(image);
        }
    }
    if (checkPureRaw) {
        for (auto const& meta : set.halMeta) {
            if (meta != nullptr && isPureRaw(meta)) {
                return streamNameOf(meta);
            }
        }
    }
    return nullptr;
}

std::shared_ptr<HistoryBufferSet> takeFrom(BufferSets& sets, BufferSets::iterator set,
                                           RequiredStreams const& required) {
    releaseUnrequiredStreamBuffer(*set, required);
    auto taken = std::make_shared<HistoryBufferSet>(std::move(*set));
    sets.erase(set);
    return taken;
}

}  // namespace

bool getHistoryBuffers(HistoryProviderPtr const& provider, bool checkPureRaw, BufferSets& history) {
    auto sets = provider->getHistoryBufferSets();
    if (!sets) {
        return false;
    }
    history = std::move(*sets);
    history.remove_if([&](HistoryBufferSet& set) {
        char const* const problem = problemOf(set, checkPureRaw);
        if (problem == nullptr) {
            return false;
        }
        ZSL_LOGW_AS("getHistoryBuffers", "%s: X", problem);
        ZSL_LOGI_AS("getHistoryBuffers", "hbs[F%u] is problematic, return and release",
                    set.frameNo);
        IHistoryBufferProvider::ReturnedBufferSet released{&set, false};
        provider->returnBufferSet(released);
        return true;
    });
    return true;
}

bool containsRequiredStreamBuffer(HistoryBufferSet const& set, RequiredStreams const& required) {
    return haveAll(set.halImage, required.halImages) && haveAll(set.halMeta, required.halMetas) &&
           haveAll(set.appMeta, required.appMetas);
}

void releaseUnrequiredStreamBuffer(HistoryBufferSet& set, RequiredStreams const& required) {
    keepOnly(set.halImage, required.halImages);
    keepOnly(set.halMeta, required.halMetas);
    keepOnly(set.appMeta, required.appMetas);
}

BufferSets::iterator findSet(BufferSets& sets, uint32_t frameNo) {
    return std::find_if(sets.begin(), sets.end(),
                        [&](HistoryBufferSet const& set) { return set.frameNo == frameNo; });
}

std::shared_ptr<HistoryBufferSet> getSelectedHbs(uint32_t frameNo, BufferSets& history,
                                                 BufferSets& locked,
                                                 RequiredStreams const& required) {
    for (BufferSets* const sets : {&history, &locked}) {
        auto const set = findSet(*sets, frameNo);
        if (set == sets->end()) {
            continue;
        }
        if (!containsRequiredStreamBuffer(*set, required)) {
            ZSL_LOGE("hbs[F%u] does not contain all required streams", frameNo);
            continue;
        }
        if (sets == &history) {
            ZSL_LOGD("get hbs[F%u] from history", frameNo);
        } else {
            ZSL_LOGD("get hbs[F%u] from locked", frameNo);
        }
        return takeFrom(*sets, set, required);
    }
    ZSL_LOGE("cannot get hbs[F%u]", frameNo);
    return nullptr;
}

std::shared_ptr<HistoryBufferSet> getClonedHbs(uint32_t frameNo, BufferSets& history,
                                               BufferSets& locked, RequiredStreams const& required,
                                               HistoryProviderPtr const& provider) {
    for (BufferSets* const sets : {&history, &locked}) {
        auto const set = findSet(*sets, frameNo);
        if (set == sets->end() || provider == nullptr) {
            continue;
        }
        auto clone = std::make_shared<HistoryBufferSet>(provider->cloneBufferSet(*set));
        if (!containsRequiredStreamBuffer(*clone, required)) {
            ZSL_LOGE("hbs[F%u] does not contain all required streams", frameNo);
            IHistoryBufferProvider::ReturnedBufferSet dropped{clone.get(), false};
            provider->returnBufferSet(dropped);
            continue;
        }
        if (sets == &history) {
            ZSL_LOGD("clone hbs[F%u] from history", frameNo);
        } else {
            ZSL_LOGD("clone hbs[F%u] from locked", frameNo);
        }
        releaseUnrequiredStreamBuffer(*clone, required);
        return clone;
    }
    ZSL_LOGE("cannot get hbs[F%u]", frameNo);
    return nullptr;
}

std::shared_ptr<HistoryBufferSet> getTimedoutHbs(BufferSets& history,
                                                 RequiredStreams const& required) {
    auto const set = std::find_if(history.begin(), history.end(), [&](HistoryBufferSet const& s) {
        return containsRequiredStreamBuffer(s, required);
    });
    ZSL_LOGD("TIMEDOUT: get hbs[F%d]", set != history.end() ? static_cast<int>(set->frameNo) : -1);
    return set != history.end() ? takeFrom(history, set, required) : nullptr;
}

HistoryLease::HistoryLease(HistoryProviderPtr provider, bool checkPureRaw)
    : mProvider(std::move(provider)) {
    if (mProvider == nullptr) {
        ZSL_LOGE("no history buffer provider");
        return;
    }
    getHistoryBuffers(mProvider, checkPureRaw, mSets);
}

HistoryLease::~HistoryLease() {
    try {
        giveBack();
    } catch (std::exception const& failure) {
        ZSL_LOGE("history buffer provider failed: %s", failure.what());
    } catch (...) {
        ZSL_LOGE("history buffer provider failed");
    }
}

void HistoryLease::giveBack() {
    if (mIsOver || mProvider == nullptr) {
        return;
    }
    mIsOver = true;
    for (HistoryBufferSet& set : mSets) {
        IHistoryBufferProvider::ReturnedBufferSet unused{&set, true};
        mProvider->returnBufferSet(unused);
    }
    mProvider->endSelect();
    mSets.clear();
    mProvider->endSelect();
}

}  // namespace NSCam::v3::pipeline::model
