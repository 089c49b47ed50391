#pragma once

#include <host/HistoryProvider.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace zebcam::tool {

/// What a provider offers at one moment, as frame numbers.
struct Offer {
    std::vector<uint32_t> history;
    std::vector<uint32_t> inFlight;
    std::vector<uint32_t> locked;  ///< handed out earlier and kept by policies
};

/**
 * A history provider as one capture sees it. Each time the processor tries the capture it asks for
 * the history; just before it gets it, the observer hears what it is about to get, and later that
 * the try is over. The buffer sets are booked to the capture.
 */
class ObservedProvider final
    : public NSCam::v3::pipeline::NSPipelineContext::IHistoryBufferProvider {
public:
    /// Both are called with the processor's lock held.
    struct Observer {
        std::function<void(Offer)> begin;  ///< a try begins
        std::function<void()> end;         ///< it is over; may be repeated
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
    std::vector<NSCam::ZslPolicy::InFlightInfo> getInFlightInfos() const override {
        return mProvider->getInFlightInfos();
    }
    HistoryBufferSet cloneBufferSet(HistoryBufferSet const& original) override {
        return mProvider->cloneBufferSet(original);
    }

private:
    Offer offer() const;

    std::shared_ptr<host::HistoryProvider> const mProvider;
    uint32_t const mRequestNo;
    Observer const mObserver;
};

}  // namespace zebcam::tool
