#pragma once

#include <ZslRecorder.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "RecordedCallback.h"
#include "RecordedProvider.h"
#include "Tape.h"

namespace NSCam::v3::pipeline::model::record {

/// The recorder: describes each operation, replaces what goes into the processor by what records,
/// and takes the caller's own out of what comes back.
class Recorder final : public ZslRecorder {
public:
    Recorder(android::sp<IZslProcessor> processor, std::shared_ptr<Tape> tape)
        : mProcessor(std::move(processor)), mTape(std::move(tape)) {}
    ~Recorder() override { Recorder::finish(); }

    int configure(ZslConfigParams const& params) override;
    ZslFrameBuilders submitZslRequest(ZslRequestParams&& params) override;
    ZslFrameBuilders processZslPendingRequest(unsigned int requestNo) override;
    bool hasZslPendingRequest() const override { return mProcessor->hasZslPendingRequest(); }
    void onFrameUpdated(
        unsigned int requestNo,
        IPipelineBufferSetFrameControl::IAppCallback::Result const& result) override;
    ZslFrameBuilders flush() override;
    void debug(android::Printer& printer, std::vector<std::string> const& options) override {
        mProcessor->debug(printer, options);
    }

    ZslRecorderStatus finish() override;
    ZslRecorderStatus status() const override { return mTape->file().status(); }

private:
    using IHistoryBufferProvider = NSPipelineContext::IHistoryBufferProvider;

    template <typename Call>
    void carryOut(Operation operation, Call call);
    template <typename Call>
    ZslFrameBuilders build(Call call);
    void dropCallbackIfGone();
    ZslRequestParams recorded(ZslRequestParams const& params, uint64_t firstBuilder);
    std::shared_ptr<RecordedProvider> recorded(
        std::shared_ptr<IHistoryBufferProvider> const& provider);

    android::sp<IZslProcessor> const mProcessor;
    std::shared_ptr<Tape> const mTape;

    std::mutex mGate;                         ///< an operation is carried out
    android::sp<RecordedCallback> mCallback;  ///< lives as long as the caller's; null: none
    std::unordered_map<IHistoryBufferProvider*, std::weak_ptr<RecordedProvider>> mProviders;
    uint64_t mNextProvider = 0;
    uint64_t mNextBuilder = 0;
};

}  // namespace NSCam::v3::pipeline::model::record
