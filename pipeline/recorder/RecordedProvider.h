#pragma once

#include <pipeline/IHistoryBufferProvider.h>

#include <cstdint>
#include <memory>
#include <string>

#include "Tape.h"

namespace NSCam::v3::pipeline::model::record {

/// A history buffer provider that forwards to another and records what goes in and out.
class RecordedProvider final : public NSPipelineContext::IHistoryBufferProvider {
public:
    /// `number` is the provider's in the recording.
    RecordedProvider(std::shared_ptr<IHistoryBufferProvider> provider, uint64_t number,
                     std::shared_ptr<Tape> tape)
        : mProvider(std::move(provider)), mNumber(number), mTape(std::move(tape)) {}

    uint64_t number() const { return mNumber; }

    std::string getName() const override { return mProvider->getName(); }
    void dump(android::Printer& printer) const override { mProvider->dump(printer); }
    void beginSelect() override;
    std::optional<std::list<HistoryBufferSet>> getHistoryBufferSets() override;
    void endSelect() override;
    void returnBufferSet(ReturnedBufferSet& returned) override;
    std::vector<ZslPolicy::InFlightInfo> getInFlightInfos() const override;
    HistoryBufferSet cloneBufferSet(HistoryBufferSet const& original) override;

private:
    template <typename Call>
    auto forward(ProviderCall which, Call call) const;

    std::shared_ptr<IHistoryBufferProvider> const mProvider;
    uint64_t const mNumber;
    std::shared_ptr<Tape> const mTape;
};

}  // namespace NSCam::v3::pipeline::model::record
