#include <host/HistoryProvider.h>
#include <host/ImageStreamBuffer.h>
#include <host/MetaStreamBuffer.h>

#include <algorithm>
#include <utility>

namespace zebcam::host {

using NSCam::v3::IImageStreamBuffer;
using NSCam::v3::IMetaStreamBuffer;
using NSCam::v3::pipeline::NSPipelineContext::HistoryBufferSet;

namespace {

constexpr int64_t NS_PER_MS = 1'000'000;

/// Calls `visit` with each buffer of this host in the set; others cannot carry a ledger entry.
template <typename Visit>
void forEachHostBuffer(HistoryBufferSet const& set, Visit const& visit) {
    for (auto const& image : set.halImage) {
        if (auto* const buffer = dynamic_cast<ImageStreamBuffer*>(image.get())) {
            visit(*buffer);
        }
    }
    // A set may have been trimmed down to its metadata, by which it must still be known.
    for (auto const* metas : {&set.halMeta, &set.appMeta}) {
        for (auto const& meta : *metas) {
            if (auto* const buffer = dynamic_cast<MetaStreamBuffer*>(meta.get())) {
                visit(*buffer);
            }
        }
    }
}

void setLedgerEntry(HistoryBufferSet const& set, std::shared_ptr<LedgerEntry> const& entry) {
    forEachHostBuffer(set, [&entry](auto& buffer) { buffer.setLedgerEntry(entry); });
}

/// The hand-out that the set stands for: that of the first buffer that is left of it.
std::shared_ptr<LedgerEntry> ledgerEntryOf(HistoryBufferSet const& set) {
    std::shared_ptr<LedgerEntry> entry;
    forEachHostBuffer(set, [&entry](auto const& buffer) {
        if (!entry) {
            entry = buffer.ledgerEntry();
        }
    });
    return entry;
}

android::sp<IImageStreamBuffer> copyOf(IImageStreamBuffer const& original) {
    android::sp<ImageStreamBuffer> copy = new ImageStreamBuffer(original.getStreamInfo());
    copy->setError(original.hasError());
    if (auto const* const hostBuffer = dynamic_cast<ImageStreamBuffer const*>(&original)) {
        copy->setContent(hostBuffer->content());
    }
    return copy;
}

android::sp<IMetaStreamBuffer> copyOf(IMetaStreamBuffer& original) {
    constexpr char USER[] = "HistoryProvider";
    NSCam::IMetadata* const locked = original.tryReadLock(USER);
    android::sp<MetaStreamBuffer> copy =
        new MetaStreamBuffer(original.getStreamInfo(), locked ? *locked : NSCam::IMetadata());
    original.unlock(USER, locked);
    // Without the lock the content is unknown: nobody may take the copy for good.
    copy->setError(original.hasError() || !locked);
    return copy;
}

template <typename Buffers>
Buffers copiesOf(Buffers const& originals) {
    Buffers copies;
    copies.reserve(originals.size());
    for (auto const& original : originals) {
        if (original != nullptr) {  // a broken pipeline's set has holes, its clone has none
            copies.push_back(copyOf(*original));
        }
    }
    return copies;
}

std::string listOf(std::vector<uint32_t> const& frameNos) {
    std::string text;
    for (uint32_t const frameNo : frameNos) {
        text += " F" + std::to_string(frameNo);
    }
    return text.empty() ? " none" : text;
}

}  // namespace

HistoryProvider::HistoryProvider(size_t capacity, std::string name)
    : mName(std::move(name)), mCapacity(capacity), mLedger(std::make_shared<BufferLedger>()) {
}

HistoryProvider::~HistoryProvider() = default;

void HistoryProvider::dump(android::Printer& printer) const {
    std::string here;
    std::string inFlight;
    uint64_t dropped = 0;
    {
        LockGuard const lock(mLock);
        for (auto const& [frameNo, set] : mHistory) {
            here += " F" + std::to_string(frameNo);
        }
        inFlight = listOf(mInFlight);
        dropped = mDropped;
    }
    // A printer may log, and the sink of a log may come back to this provider: not under the lock.
    printer.printFormatLine("%s: capacity %zu, dropped %llu", mName.c_str(), mCapacity,
                            static_cast<unsigned long long>(dropped));
    printer.printFormatLine("  here:%s", here.empty() ? " none" : here.c_str());
    printer.printFormatLine("  in flight:%s", inFlight.c_str());
    for (auto const& line : mLedger->unsettled()) {
        printer.printFormatLine("  %s: F%u%s for R%u since %lld ms",
                                line.holder == BufferHolder::Lost ? "lost" : "out", line.frameNo,
                                line.isClone ? " (clone)" : "", line.forRequestNo,
                                static_cast<long long>(line.sinceNs / NS_PER_MS));
    }
}

void HistoryProvider::beginSelect() {
    // A hand-out begins with getHistoryBufferSets; this call announces nothing that counts.
}

std::optional<std::list<HistoryBufferSet>> HistoryProvider::getHistoryBufferSets() {
    LockGuard const lock(mLock);
    if (!mHasHistory) {
        return std::nullopt;
    }
    std::list<HistoryBufferSet> sets;
    // All of it leaves: what the processor does not take comes back with returnBufferSet.
    for (auto& [frameNo, set] : mHistory) {
        handOut(set, false);
        sets.push_back(std::move(set));
    }
    mHistory.clear();
    return sets;
}

void HistoryProvider::handOut(HistoryBufferSet const& set, bool isClone) const {
    // Only images that can tell the ledger what becomes of them are waited for.
    size_t images = 0;
    for (auto const& image : set.halImage) {
        images += dynamic_cast<ImageStreamBuffer*>(image.get()) != nullptr;
    }
    setLedgerEntry(set, mLedger->open({.frameNo = set.frameNo,
                                       .exposedNs = set.timestamp,
                                       .forRequestNo = mCurrentRequestNo,
                                       .isClone = isClone},
                                      images));
}

void HistoryProvider::endSelect() {
    LockGuard const lock(mLock);
    ++mEndSelectCalls;
}

void HistoryProvider::returnBufferSet(ReturnedBufferSet& returned) {
    std::shared_ptr<LedgerEntry> const entry =
        returned.pSet ? ledgerEntryOf(*returned.pSet) : nullptr;
    // Judged before anything is moved: what is refused stays the caller's, whole.
    if (!entry || !entry->isIn(*mLedger)) {
        LockGuard const lock(mLock);
        ++mStrayReturns;
        return;
    }
    HistoryBufferSet set = std::move(*returned.pSet);
    entry->setEnded(returned.isUnused ? BufferHolder::Returned : BufferHolder::Released);
    setLedgerEntry(set, nullptr);
    // A clone is a second buffer of a frame that the history has, or had, already.
    if (!returned.isUnused || entry->isClone()) {
        return;
    }
    std::vector<HistoryBufferSet> dropped;  // destroyed outside the lock
    LockGuard const lock(mLock);
    uint32_t const frameNo = set.frameNo;
    // The sensor may have delivered the frame again meanwhile; then that one is the newer.
    if (!mHistory.try_emplace(frameNo, std::move(set)).second) {
        ++mDropped;
    }
    trim(dropped);
}

std::vector<NSCam::ZslPolicy::InFlightInfo> HistoryProvider::getInFlightInfos() const {
    LockGuard const lock(mLock);
    std::vector<NSCam::ZslPolicy::InFlightInfo> infos;
    infos.reserve(mInFlight.size());
    for (uint32_t const frameNo : mInFlight) {
        infos.push_back({frameNo, nullptr});
    }
    return infos;
}

HistoryBufferSet HistoryProvider::cloneBufferSet(HistoryBufferSet const& original) {
    // Copied without the lock: the original is the caller's, and metadata may be large.
    HistoryBufferSet clone;
    clone.frameNo = original.frameNo;
    clone.requestNo = original.requestNo;
    clone.timestamp = original.timestamp;
    clone.halImage = copiesOf(original.halImage);
    clone.halMeta = copiesOf(original.halMeta);
    clone.appMeta = copiesOf(original.appMeta);
    LockGuard const lock(mLock);
    handOut(clone, true);
    return clone;
}

void HistoryProvider::announce(uint32_t frameNo) {
    LockGuard const lock(mLock);
    if (std::find(mInFlight.begin(), mInFlight.end(), frameNo) == mInFlight.end()) {
        mInFlight.push_back(frameNo);
    }
}

void HistoryProvider::cancel(uint32_t frameNo) {
    LockGuard const lock(mLock);
    std::erase(mInFlight, frameNo);
}

void HistoryProvider::arrive(HistoryBufferSet set) {
    std::vector<HistoryBufferSet> dropped;  // destroyed outside the lock
    LockGuard const lock(mLock);
    uint32_t const frameNo = set.frameNo;
    std::erase(mInFlight, frameNo);
    auto const [place, isNew] = mHistory.try_emplace(frameNo);
    std::swap(place->second, set);  // a replaced namesake goes with `set`, outside the lock
    mDropped += isNew ? 0 : 1;
    trim(dropped);
}

void HistoryProvider::trim(std::vector<HistoryBufferSet>& dropped) {
    // By number and not by arrival: numbers are the order of exposure.
    while (mHistory.size() > mCapacity) {
        dropped.push_back(std::move(mHistory.begin()->second));
        mHistory.erase(mHistory.begin());
        ++mDropped;
    }
}

void HistoryProvider::setCurrentRequest(uint32_t requestNo) {
    LockGuard const lock(mLock);
    mCurrentRequestNo = requestNo;
}

void HistoryProvider::setHasHistory(bool hasHistory) {
    LockGuard const lock(mLock);
    mHasHistory = hasHistory;
}

std::vector<uint32_t> HistoryProvider::frameNumbers() const {
    LockGuard const lock(mLock);
    std::vector<uint32_t> numbers;
    numbers.reserve(mHistory.size());
    for (auto const& [frameNo, set] : mHistory) {
        numbers.push_back(frameNo);
    }
    return numbers;
}

uint64_t HistoryProvider::droppedFrames() const {
    LockGuard const lock(mLock);
    return mDropped;
}

uint64_t HistoryProvider::strayReturns() const {
    LockGuard const lock(mLock);
    return mStrayReturns;
}

unsigned HistoryProvider::takeEndSelectCalls() {
    LockGuard const lock(mLock);
    return std::exchange(mEndSelectCalls, 0U);
}

}  // namespace zebcam::host
