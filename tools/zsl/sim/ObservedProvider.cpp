#include "sim/ObservedProvider.h"

namespace zebcam::tool {

ObservedProvider::ObservedProvider(std::shared_ptr<host::HistoryProvider> provider,
                                   uint32_t requestNo, Observer observer)
    : mProvider(std::move(provider)), mRequestNo(requestNo), mObserver(std::move(observer)) {
}

std::optional<std::list<ObservedProvider::HistoryBufferSet>>
ObservedProvider::getHistoryBufferSets() {
    mObserver.begin(offer());
    mProvider->setCurrentRequest(mRequestNo);
    return mProvider->getHistoryBufferSets();
}

Offer ObservedProvider::offer() const {
    Offer offer{mProvider->frameNumbers(), {}, {}};
    for (auto const& info : mProvider->getInFlightInfos()) {
        offer.inFlight.push_back(info.frameNo);
    }
    for (host::LedgerLine const& line : mProvider->ledger()->unsettled()) {
        if (line.holder == host::BufferHolder::Processor) {
            offer.locked.push_back(line.frameNo);
        }
    }
    return offer;
}

}  // namespace zebcam::tool
