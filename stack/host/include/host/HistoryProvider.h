#pragma once

#include <host/BufferLedger.h>
#include <pipeline/IHistoryBufferProvider.h>
#include <zebcam/ThreadSafety.h>

#include <list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zebcam::host {

/**
 * A history of at most `capacity` sensor frames.
 *
 * Frames are announced when the sensor starts on them (in flight) and arrive later. When a frame
 * arrives and more than `capacity` frames are here, the oldest that nobody holds is dropped.
 * A set that is out is never dropped and does not count. A set that comes back unused takes its
 * place by frame number again, as far as there is room; one that is released is gone, and so is a
 * clone. A set is known by its buffers, however many of them were trimmed away.
 */
class HistoryProvider final
    : public NSCam::v3::pipeline::NSPipelineContext::IHistoryBufferProvider {
public:
    explicit HistoryProvider(size_t capacity, std::string name = "HistoryProvider");
    ~HistoryProvider() override;

    // IHistoryBufferProvider
    std::string getName() const override { return mName; }
    void dump(android::Printer& printer) const override;
    void beginSelect() override;
    std::optional<std::list<HistoryBufferSet>> getHistoryBufferSets() override;
    void endSelect() override;
    void returnBufferSet(ReturnedBufferSet& returned) override;
    std::vector<NSCam::ZslPolicy::InFlightInfo> getInFlightInfos() const override;
    HistoryBufferSet cloneBufferSet(HistoryBufferSet const& original) override;

    // The sensor's side
    void announce(uint32_t frameNo);    ///< the frame is in flight; announcing twice is fine
    void cancel(uint32_t frameNo);      ///< the frame will never arrive
    void arrive(HistoryBufferSet set);  ///< the frame reached the history, replacing a namesake

    // The observer's side
    void setCurrentRequest(uint32_t requestNo);  ///< capture that the next hand-outs are for
    void setHasHistory(bool hasHistory);         ///< false: getHistoryBufferSets gives no value
    std::vector<uint32_t> frameNumbers() const;  ///< frames here now, ascending
    uint64_t droppedFrames() const;              ///< frames that made room for others
    /// Sets given back that were not out: returned twice, or never handed out by this provider.
    uint64_t strayReturns() const;
    /// How often endSelect was called since the last call of this function.
    unsigned takeEndSelectCalls();
    std::shared_ptr<BufferLedger> ledger() const { return mLedger; }

private:
    void handOut(HistoryBufferSet const& set, bool isClone) const REQUIRES(mLock);
    void trim(std::vector<HistoryBufferSet>& dropped) REQUIRES(mLock);

    std::string const mName;
    size_t const mCapacity;
    std::shared_ptr<BufferLedger> const mLedger;

    mutable Mutex mLock;  ///< taken before the ledger's
    std::map<uint32_t, HistoryBufferSet> mHistory GUARDED_BY(mLock);
    std::vector<uint32_t> mInFlight GUARDED_BY(mLock);
    uint32_t mCurrentRequestNo GUARDED_BY(mLock) = 0;
    bool mHasHistory GUARDED_BY(mLock) = true;
    uint64_t mDropped GUARDED_BY(mLock) = 0;
    uint64_t mStrayReturns GUARDED_BY(mLock) = 0;
    unsigned mEndSelectCalls GUARDED_BY(mLock) = 0;
};

}  // namespace zebcam::host
