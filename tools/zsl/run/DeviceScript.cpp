#include "run/DeviceScript.h"

#include <fmt/format.h>
#include <host/ImageStreamBuffer.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <new>
#include <numeric>
#include <stdexcept>
#include <utility>

namespace zebcam::tool::run {

namespace {

struct FreeBlock {
    void operator()(void* block) const { ::operator delete(block); }
};

template <typename Info>
std::vector<android::sp<Info>> inOrderOfAddresses(
    std::vector<device::DeviceStream> const& streams) {
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
        device::DeviceStream const& stream = streams[order[rank]];
        // The last reference deletes the info, and with it the block.
        infos[order[rank]] = new (blocks[rank].get()) Info(stream.id, stream.name);
        static_cast<void>(blocks[rank].release());
    }
    return infos;
}

}  // namespace

DeviceStreams::DeviceStreams(std::vector<device::DeviceStream> const& streams)
    : mImages(inOrderOfAddresses<host::ImageStreamInfo>(streams)),
      mMetas(inOrderOfAddresses<host::MetaStreamInfo>(streams)) {
}

namespace {

using HistoryBufferSet = DeviceBuffers::HistoryBufferSet;

/// Calls `visit` with each buffer of a set that this file made: all of them.
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

}  // namespace

DeviceBuffers::Metas DeviceBuffers::metas(std::vector<device::DeviceMeta> const& metas) {
    Metas buffers;
    for (device::DeviceMeta const& meta : metas) {
        if (!meta.stream) {
            continue;
        }
        android::sp<host::MetaStreamBuffer> const buffer =
            new host::MetaStreamBuffer(mStreams.meta(*meta.stream), meta.metadata);
        buffer->setError(meta.hasError);
        if (!meta.isLockable) {
            buffer->setLockable(false);
            mUnlockable.push_back(buffer);
        }
        buffers.emplace_back(buffer);
    }
    return buffers;
}

HistoryBufferSet DeviceBuffers::handOut(size_t frame, uint32_t forRequestNo, bool isClone) {
    device::DeviceFrame const& content = mRecording.frames.at(frame);
    HistoryBufferSet set;
    set.frameNo = content.frameNo;
    set.requestNo = content.requestNo;
    set.timestamp = content.timestampNs;
    for (device::DeviceImage const& image : content.images) {
        if (image.stream) {
            android::sp<host::ImageStreamBuffer> const buffer =
                new host::ImageStreamBuffer(mStreams.image(*image.stream));
            buffer->setError(image.hasError);
            set.halImage.emplace_back(buffer);
        }
    }
    set.halMeta = metas(content.halMetas);
    set.appMeta = metas(content.appMetas);
    auto const entry = mLedger->open({.frameNo = content.frameNo,
                                      .exposedNs = content.timestampNs,
                                      .forRequestNo = forRequestNo,
                                      .isClone = isClone},
                                     set.halImage.size());
    forEachBuffer(set, [&](auto& buffer) { buffer.setLedgerEntry(entry); });
    return set;
}

bool DeviceBuffers::takeBack(HistoryBufferSet& set, bool isUnused) {
    HistoryBufferSet const taken = std::exchange(set, {});
    bool isClone = false;
    forEachBuffer(taken, [&](auto& buffer) {
        if (auto const entry = buffer.ledgerEntry()) {
            isClone = isClone || entry->isClone();
            entry->setEnded(isUnused ? host::BufferHolder::Returned : host::BufferHolder::Released);
        }
    });
    forEachBuffer(taken, [](auto& buffer) { buffer.setLedgerEntry(nullptr); });
    return isClone;
}

void DeviceBuffers::unlockAll() {
    for (auto const& buffer : mUnlockable) {
        buffer->setLockable(true);
    }
    mUnlockable.clear();
}

void DeviceScript::begin(size_t operation) {
    mPosition = operation;
    bool const isRecorded = operation < mRecording.operations.size();
    mpOperation = isRecorded ? &mRecording.operations[operation] : &mNothing;
    mTriesDone.assign(this->operation().tries.size(), false);
    mAnswersGiven.assign(this->operation().answers.size(), false);
    mClones = 0;
    mCalls = {};
    mSteps.clear();
    mProblems.clear();
    if (isRecorded) {
        set(mpOperation->begun);
    }
}

void DeviceScript::set(record::ClockReading const& now) {
    mClock.set({.bootTimeNs = now.bootNs, .monotonicNs = now.monotonicNs, .wallNs = now.wallNs});
}

void DeviceScript::passOrFail(record::ProviderCall call) {
    uint64_t const count = ++mCalls.at(static_cast<size_t>(call));
    for (device::DeviceFault const& fault : operation().faults) {
        if (fault.call == call && fault.count == count) {
            throw std::runtime_error(fault.text);
        }
    }
}

device::DeviceTry const* DeviceScript::nextTry(uint64_t provider) {
    auto const& tries = operation().tries;
    for (size_t i = 0; i < tries.size(); ++i) {
        if (!mTriesDone[i] && tries[i].provider == provider) {
            mTriesDone[i] = true;
            set(tries[i].offered);
            return &tries[i];
        }
    }
    problem("the processor asked for the history, which it did not on the device");
    return nullptr;
}

void DeviceScript::enterSelection(device::DeviceTry const& attempt,
                                  DeviceSubmission const& submission) {
    // Whether the capture had waited too long was decided between these two readings. If it had,
    // or if nothing was left to wait for, the latest possible age leads to the same end; if not,
    // the earliest does.
    record::ClockReading now = attempt.asked.value_or(attempt.offered);
    bool const isServed = submission.servedIn == mPosition;
    if (isServed) {
        now.wallNs = attempt.ended.value_or(operation().ended).wallNs;
    }
    int64_t const limit = isServed ? submission.earliest.wallNs : submission.latest.wallNs;
    now.wallNs += submission.assumed.wallNs - limit;
    set(now);
}

std::optional<size_t> DeviceScript::nextClone(uint64_t provider) {
    auto const& clones = operation().clones;
    while (mClones < clones.size()) {
        device::DeviceClone const& clone = clones[mClones++];
        if (clone.provider == provider) {
            return clone.frame;
        }
    }
    problem("the processor cloned a set, which it did not on the device");
    return std::nullopt;
}

device::DeviceAnswer const* DeviceScript::nextAnswer(uint32_t requestNo) {
    auto const& answers = operation().answers;
    for (size_t i = 0; i < answers.size(); ++i) {
        if (!mAnswersGiven[i] && answers[i].requestNo == requestNo) {
            mAnswersGiven[i] = true;
            return &answers[i];
        }
    }
    problem(fmt::format("the policy of request {} was asked, which it was not on the device",
                        requestNo));
    return nullptr;
}

size_t DeviceScript::leftTries() const {
    return static_cast<size_t>(std::count(mTriesDone.begin(), mTriesDone.end(), false));
}

}  // namespace zebcam::tool::run
