#pragma once

#include <host/HistoryProvider.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "pipeline/CaptureRecord.h"
#include "pipeline/FaultInjector.h"

namespace zebcam::tool::pipeline {

/// The frames that were handed out earlier and are still with the processor: policies lock them.
std::vector<uint32_t> lockedFrames(host::BufferLedger const& ledger);

/**
 * A history provider as one capture sees it. Each time the processor tries the capture it asks for
 * the history; just before it gets it, the observer hears what it is about to get, and later that
 * the try is over. The buffer sets are booked to the capture. The observer's faults strike here: a
 * history that is not there, and the time that a slow policy takes, which passes once everything
 * that the policy decides on has been read.
 */
class ObservedProvider final
    : public NSCam::v3::pipeline::NSPipelineContext::IHistoryBufferProvider {
public:
    /// All are called with the processor's lock held. The first and the last may be empty.
    struct Observer {
        std::function<TryFaults()> faults;      ///< what strikes the try that is about to begin
        std::function<void(TryRecord)> begin;   ///< a try begins; told are the frames only
        std::function<void()> end;              ///< it is over; may be repeated
        std::function<void(int64_t ns)> pause;  ///< lets time pass
    };

    ObservedProvider(std::shared_ptr<host::HistoryProvider> provider, uint32_t requestNo,
                     Observer observer);

    std::string getName() const override { return mProvider->getName(); }
    void dump(android::Printer& printer) const override { mProvider->dump(printer); }
    void beginSelect() override { mProvider->beginSelect(); }
    std::optional<std::list<HistoryBufferSet>> getHistoryBufferSets() override;
    void endSelect() override {
        mProvider->endSelect();
        mObserver.end();
    }
    void returnBufferSet(ReturnedBufferSet& returned) override {
        mProvider->returnBufferSet(returned);
    }
    std::vector<NSCam::ZslPolicy::InFlightInfo> getInFlightInfos() const override;
    HistoryBufferSet cloneBufferSet(HistoryBufferSet const& original) override {
        return mProvider->cloneBufferSet(original);
    }

private:
    TryRecord offer() const;

    std::shared_ptr<host::HistoryProvider> const mProvider;
    uint32_t const mRequestNo;
    Observer const mObserver;
    mutable int64_t mPauseNs = 0;  ///< still to pass in this try
};

}  // namespace zebcam::tool::pipeline
