#pragma once

#include <zebcam/ThreadSafety.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <vector>

namespace zebcam::host {

class BufferLedger;

/// With whom a buffer set that left the provider is.
enum class BufferHolder {
    Processor,     ///< handed out and not heard of since (history list, locked list, parameter)
    FrameBuilder,  ///< at least one image was given to a frame builder
    Returned,      ///< given back unused
    Released,      ///< given back for good; or a clone that was dropped unused
    Consumed,      ///< used up: every image was in a frame builder or released by name
    Lost,          ///< gone without any of the above: a leak of the camera's buffers
};

char const* toString(BufferHolder holder);

/// What the ledger knows of one hand-out of one buffer set.
struct LedgerLine {
    uint64_t id = 0;  ///< number of the hand-out, ascending
    uint32_t frameNo = 0;
    int64_t exposedNs = 0;      ///< sensor timestamp: start of exposure
    uint32_t forRequestNo = 0;  ///< capture on whose behalf it was handed out
    int64_t sinceNs = 0;        ///< boot time of the hand-out
    int64_t untilNs = 0;        ///< boot time of its end; 0 while it is out
    bool isClone = false;
    BufferHolder holder = BufferHolder::Processor;
};

/**
 * One hand-out of one buffer set. The set's images and metadata buffers share it; when the last of
 * them lets go, the set was used up if every image is accounted for, and lost otherwise; a clone is
 * released then. A set without images holds no memory of the camera's and therefore cannot be lost.
 * Thread-safe.
 */
class LedgerEntry {
public:
    LedgerEntry(std::shared_ptr<BufferLedger> ledger, LedgerLine const& line, size_t images);
    ~LedgerEntry();
    LedgerEntry(LedgerEntry const&) = delete;
    LedgerEntry& operator=(LedgerEntry const&) = delete;

    /// An image of the set was given to a frame builder, or was released by name. To be told once
    /// for each image; says nothing any more once the hand-out has ended.
    void imageInFrameBuilder();
    void imageReleased();

    /// Ends the hand-out: Returned or Released. Only the first call counts.
    void setEnded(BufferHolder how);

    uint32_t frameNo() const { return mFrameNo; }
    int64_t exposedNs() const { return mExposedNs; }
    bool isClone() const { return mIsClone; }
    bool isIn(BufferLedger const& ledger) const { return mLedger.get() == &ledger; }

private:
    void account(bool inFrameBuilder) EXCLUDES(mLock);

    std::shared_ptr<BufferLedger> const mLedger;
    uint64_t const mId;
    uint32_t const mFrameNo;
    int64_t const mExposedNs;
    bool const mIsClone;
    Mutex mLock;  ///< taken before the ledger's
    size_t mImagesUnaccounted GUARDED_BY(mLock);
    bool mEnded GUARDED_BY(mLock) = false;
};

/// The book of every buffer set that a provider handed out. Held through std::shared_ptr, because
/// a set may outlive its provider. Thread-safe.
class BufferLedger : public std::enable_shared_from_this<BufferLedger> {
public:
    struct Totals {
        uint64_t handedOut = 0;
        uint64_t returned = 0;
        uint64_t released = 0;
        uint64_t consumed = 0;
        uint64_t lost = 0;
        uint64_t withProcessor = 0;
        uint64_t withFrameBuilder = 0;

        /// Nothing is out and nothing was lost.
        bool balances() const { return lost == 0 && withProcessor == 0 && withFrameBuilder == 0; }
    };

    /// Begins a hand-out of a set with that many images. `line` tells the frame and for whom; the
    /// ledger fills in the rest.
    std::shared_ptr<LedgerEntry> open(LedgerLine line, size_t images);

    Totals totals() const;

    /// The sets that are out now, then those that were lost, in the order of their hand-out.
    std::vector<LedgerLine> unsettled() const;

    /// The longest time that any hand-out lasted (until now for one that lasts), ns.
    int64_t longestHeldNs() const;

private:
    friend class LedgerEntry;
    void update(uint64_t id, BufferHolder holder) EXCLUDES(mLock);

    mutable Mutex mLock;
    uint64_t mNextId GUARDED_BY(mLock) = 1;
    int64_t mLongestHeldNs GUARDED_BY(mLock) = 0;
    Totals mTotals GUARDED_BY(mLock);                         ///< without what is out
    std::map<uint64_t, LedgerLine> mLines GUARDED_BY(mLock);  ///< out or lost, by id
};

}  // namespace zebcam::host
