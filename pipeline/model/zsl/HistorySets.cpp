#include "HistorySets.h"

#include <metadata/MetadataTags.h>

#include <algorithm>

#include "FrameCriteria.h"
#include "Log.h"
#include "MetadataLocks.h"
#include "Streams.h"

namespace NSCam::v3::pipeline::model {

using NSPipelineContext::IHistoryBufferProvider;
using ZslPolicy::RequiredStreams;

namespace {

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
        IStreamInfo const* const info = streamInfoOf(buffer);
        return info != nullptr && streamIds.count(info->getStreamId()) != 0;
    };
    // The order of what stays is the order in which it is built.
    auto const unrequired = std::stable_partition(buffers.begin(), buffers.end(), isRequired);
    for (auto buffer = unrequired; buffer != buffers.end(); ++buffer) {
        releaseBuffer(*buffer);
    }
    buffers.erase(unrequired, buffers.end());
}

template <typename Buffer>
char const* streamNameOf(Buffer const& buffer) {
    IStreamInfo const* const info = streamInfoOf(buffer);
    return info != nullptr ? info->getStreamName() : "?";
}

bool isPureRaw(android::sp<IMetaStreamBuffer> const& buffer) {
    // A frame that cannot be read now is not known to be unusable, so it stays.
    auto const metadata = MetadataLock::forReading(buffer);
    return isMatched<int32_t>(metadata.get(), ZEB_P1NODE_PURE_RAW, 1, "isPDPureRaw", false);
}

/// The name of the stream because of which the set cannot be used; null for a sound set.
char const* problemOf(HistoryBufferSet const& set, bool checkPureRaw) {
    // Images first: asking them costs less than reading metadata.
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
    // Trimmed at once: the camera waits for the images that nobody needs.
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
        // Released, so that the next try does not meet it again.
        IHistoryBufferProvider::ReturnedBufferSet released{&set, false};
        provider->returnBufferSet(released);
        return true;
    });
    return true;
}

bool containsRequiredStreamBuffer(HistoryBufferSet const& set, RequiredStreams const& required) {
    return haveRequired(set.halImage, set.halMeta, set.appMeta, required);
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
            // The locked list may have the frame as an earlier capture found it.
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
        // The clone is what is looked at and trimmed: it may have less than its original, which
        // keeps all that it has.
        auto clone = std::make_shared<HistoryBufferSet>(provider->cloneBufferSet(*set));
        if (!containsRequiredStreamBuffer(*clone, required)) {
            // Only dropped: a provider that knows its sets by frame number would take it for the
            // set itself, and let that go.
            ZSL_LOGE("hbs[F%u] does not contain all required streams", frameNo);
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
    // The oldest rather than the best: it is the next that the history would lose.
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
    // Only an exception on its way out leaves anything to do here, and a second one ends the
    // process.
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
    mIsOver = true;  // also if the provider throws below: it is not told twice
    for (HistoryBufferSet& set : mSets) {
        IHistoryBufferProvider::ReturnedBufferSet unused{&set, true};
        mProvider->returnBufferSet(unused);
    }
    // Twice: the selection is over once the sets are back, and once more when nothing of them is
    // left here, so that a provider may count on either.
    mProvider->endSelect();
    mSets.clear();
    mProvider->endSelect();
}

}  // namespace NSCam::v3::pipeline::model
