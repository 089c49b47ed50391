#include "pipeline/ObservedProvider.h"

#include <utility>

namespace zebcam::tool::pipeline {

std::vector<uint32_t> lockedFrames(host::BufferLedger const& ledger) {
    std::vector<uint32_t> locked;
    for (host::LedgerLine const& line : ledger.unsettled()) {
        if (line.holder == host::BufferHolder::Processor) {
            locked.push_back(line.frameNo);
        }
    }
    return locked;
}

ObservedProvider::ObservedProvider(std::shared_ptr<host::HistoryProvider> provider,
                                   uint32_t requestNo, Observer observer)
    : mProvider(std::move(provider)), mRequestNo(requestNo), mObserver(std::move(observer)) {
}

std::optional<std::list<ObservedProvider::HistoryBufferSet>>
ObservedProvider::getHistoryBufferSets() {
    TryFaults const faults = mObserver.faults ? mObserver.faults() : TryFaults{};
    mPauseNs = faults.policyPauseNs;
    // Before the hand-out, which moves the frames from the history to the processor.
    TryRecord offered = offer();
    if (faults.policyPauseNs > 0) {
        add(offered.faults, FaultKind::PolicySlow);
    }
    if (faults.noHistory) {
        add(offered.faults, FaultKind::NoHistory);
        // What is in flight or locked the processor learns all the same.
        offered.historyFrames.clear();
        mObserver.begin(std::move(offered));
        return std::nullopt;
    }
    mObserver.begin(std::move(offered));
    // The provider is all captures': the ledger books what is handed out next to this one.
    mProvider->setCurrentRequest(mRequestNo);
    return mProvider->getHistoryBufferSets();
}

std::vector<NSCam::ZslPolicy::InFlightInfo> ObservedProvider::getInFlightInfos() const {
    auto infos = mProvider->getInFlightInfos();
    // It is the last thing that is read before the policy is asked.
    if (int64_t const pauseNs = std::exchange(mPauseNs, 0); pauseNs > 0 && mObserver.pause) {
        mObserver.pause(pauseNs);
    }
    return infos;
}

TryRecord ObservedProvider::offer() const {
    TryRecord offer;
    offer.historyFrames = mProvider->frameNumbers();
    for (auto const& info : mProvider->getInFlightInfos()) {
        offer.inFlightFrames.push_back(info.frameNo);
    }
    offer.lockedFrames = lockedFrames(*mProvider->ledger());
    return offer;
}

}  // namespace zebcam::tool::pipeline
