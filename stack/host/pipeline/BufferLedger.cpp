#include <host/BufferLedger.h>
#include <utils/Timers.h>

#include <algorithm>
#include <utility>

namespace zebcam::host {

char const* toString(BufferHolder holder) {
    switch (holder) {
        case BufferHolder::Processor:
            return "processor";
        case BufferHolder::FrameBuilder:
            return "frame builder";
        case BufferHolder::Returned:
            return "returned";
        case BufferHolder::Released:
            return "released";
        case BufferHolder::Consumed:
            return "consumed";
        case BufferHolder::Lost:
            return "lost";
    }
    return "?";
}

LedgerEntry::LedgerEntry(std::shared_ptr<BufferLedger> ledger, LedgerLine const& line,
                         size_t images)
    : mLedger(std::move(ledger)),
      mId(line.id),
      mFrameNo(line.frameNo),
      mExposedNs(line.exposedNs),
      mIsClone(line.isClone),
      mImagesUnaccounted(images) {
}

LedgerEntry::~LedgerEntry() {
    // Without the lock: with the last reference gone nobody else can call.
    if (mEnded) {
        return;
    }
    // A clone's images are its own, so that dropping it costs the history nothing.
    BufferHolder const dropped = mIsClone ? BufferHolder::Released : BufferHolder::Lost;
    mLedger->update(mId, mImagesUnaccounted == 0 ? BufferHolder::Consumed : dropped);
}

void LedgerEntry::imageInFrameBuilder() {
    account(true);
}

void LedgerEntry::imageReleased() {
    account(false);
}

void LedgerEntry::account(bool inFrameBuilder) {
    LockGuard const lock(mLock);
    if (mEnded) {
        return;
    }
    if (mImagesUnaccounted > 0) {
        --mImagesUnaccounted;
    }
    if (inFrameBuilder) {
        mLedger->update(mId, BufferHolder::FrameBuilder);
    }
}

void LedgerEntry::setEnded(BufferHolder how) {
    LockGuard const lock(mLock);
    // The first end counts: what happens to the buffers of a returned set is the history's affair.
    if (!std::exchange(mEnded, true)) {
        mLedger->update(mId, how);
    }
}

std::shared_ptr<LedgerEntry> BufferLedger::open(LedgerLine line, size_t images) {
    line.sinceNs = systemTime(SYSTEM_TIME_BOOTTIME);
    {
        LockGuard const lock(mLock);
        line.id = mNextId++;
        mLines.emplace(line.id, line);
        ++mTotals.handedOut;
    }
    return std::make_shared<LedgerEntry>(shared_from_this(), line, images);
}

void BufferLedger::update(uint64_t id, BufferHolder holder) {
    LockGuard const lock(mLock);
    auto const it = mLines.find(id);
    if (it == mLines.end()) {
        return;
    }
    LedgerLine& line = it->second;
    line.holder = holder;
    if (holder == BufferHolder::Processor || holder == BufferHolder::FrameBuilder) {
        return;
    }
    line.untilNs = systemTime(SYSTEM_TIME_BOOTTIME);
    mLongestHeldNs = std::max(mLongestHeldNs, line.untilNs - line.sinceNs);
    // The line stays, so that a report can name the set.
    if (holder == BufferHolder::Lost) {
        ++mTotals.lost;
        return;
    }
    ++(holder == BufferHolder::Returned   ? mTotals.returned
       : holder == BufferHolder::Released ? mTotals.released
                                          : mTotals.consumed);
    mLines.erase(it);
}

BufferLedger::Totals BufferLedger::totals() const {
    LockGuard const lock(mLock);
    Totals totals = mTotals;
    // Counted when asked: sums that followed each move of a set could drift from the lines.
    for (auto const& [id, line] : mLines) {
        totals.withProcessor += line.holder == BufferHolder::Processor;
        totals.withFrameBuilder += line.holder == BufferHolder::FrameBuilder;
    }
    return totals;
}

std::vector<LedgerLine> BufferLedger::unsettled() const {
    LockGuard const lock(mLock);
    std::vector<LedgerLine> lines;
    lines.reserve(mLines.size());
    for (auto const& [id, line] : mLines) {
        lines.push_back(line);
    }
    // What may still come back first; both parts stay in the order of the hand-outs.
    std::stable_partition(lines.begin(), lines.end(),
                          [](LedgerLine const& line) { return line.holder != BufferHolder::Lost; });
    return lines;
}

int64_t BufferLedger::longestHeldNs() const {
    LockGuard const lock(mLock);
    int64_t longest = mLongestHeldNs;
    int64_t const now = systemTime(SYSTEM_TIME_BOOTTIME);
    for (auto const& [id, line] : mLines) {
        // What is out counts up to now; the time of a lost set ended with its loss.
        if (line.holder != BufferHolder::Lost) {
            longest = std::max(longest, now - line.sinceNs);
        }
    }
    return longest;
}

}  // namespace zebcam::host
