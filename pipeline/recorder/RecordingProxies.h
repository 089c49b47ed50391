#pragma once

#include <pipeline/IFrameBuilder.h>
#include <pipeline/IHistoryBufferProvider.h>
#include <pipeline/IPipelineBufferSetFrameControl.h>
#include <policy/zsl/ISelector.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "RecordingSession.h"

/// What the processor gets in the place of the caller's objects: each passes every call on to the
/// caller's and records what goes in and out, exceptions too.
namespace NSCam::v3::pipeline::model::record {

class RecordingProvider final : public NSPipelineContext::IHistoryBufferProvider {
public:
    /// `number` is the provider's in the recording.
    RecordingProvider(std::shared_ptr<IHistoryBufferProvider> provider, uint64_t number,
                      std::shared_ptr<RecordingSession> session)
        : mProvider(std::move(provider)), mNumber(number), mSession(std::move(session)) {}

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
    std::shared_ptr<RecordingSession> const mSession;
};

class RecordingSelector final : public ZslPolicy::ISelector {
public:
    RecordingSelector(std::shared_ptr<ZslPolicy::ISelector> selector,
                      std::shared_ptr<RecordingSession> session)
        : mSelector(std::move(selector)), mSession(std::move(session)) {}

    char const* getName() const override { return mSelector->getName(); }
    SelectOutputParams select(SelectInputParams const& in) const override;

private:
    std::shared_ptr<ZslPolicy::ISelector> const mSelector;
    std::shared_ptr<RecordingSession> const mSession;
};

/// Also finds out which history frame was built.
class RecordingBuilder final : public NSPipelineContext::IFrameBuilder {
public:
    /// `number` is the builder's in the recording.
    RecordingBuilder(std::shared_ptr<IFrameBuilder> builder, uint64_t number,
                     std::shared_ptr<RecordingSession> session)
        : mBuilder(std::move(builder)), mNumber(number), mSession(std::move(session)) {}

    std::shared_ptr<IFrameBuilder> const& builder() const { return mBuilder; }
    uint64_t number() const { return mNumber; }

    uint32_t getFrameType() const override;
    void getAppMetaStreamBuffers(MetaBuffers& out) const override {
        mBuilder->getAppMetaStreamBuffers(out);
    }
    void getHalMetaStreamBuffers(MetaBuffers& out) const override {
        mBuilder->getHalMetaStreamBuffers(out);
    }
    void setHalImageStreamBuffer(StreamId_T streamId,
                                 android::sp<IImageStreamBuffer> const& buffer) override;
    void setHalMetaStreamBuffer(StreamId_T streamId,
                                android::sp<IMetaStreamBuffer> const& buffer) override {
        mBuilder->setHalMetaStreamBuffer(streamId, buffer);
    }
    void setAppMetaStreamBuffer(StreamId_T streamId,
                                android::sp<IMetaStreamBuffer> const& buffer) override;
    void setFrameTimestamp(int64_t ns) override;
    void setBuiltFromHistory(bool builtFromHistory) override;

private:
    std::shared_ptr<IFrameBuilder> const mBuilder;
    uint64_t const mNumber;
    std::shared_ptr<RecordingSession> const mSession;
    // What is known of the frame so far, used by one thread at a time like the builder
    std::optional<HandOuts::Set> mHistorySet;
    std::optional<int64_t> mSensorTimestamp;  ///< that the application result tells
    int64_t mTimestamp = 0;
};

class RecordingCallback final : public IPipelineBufferSetFrameControl::IAppCallback {
public:
    RecordingCallback(android::wp<IAppCallback> const& callback,
                      std::shared_ptr<RecordingSession> session)
        : mCallback(callback), mSession(std::move(session)) {}

    bool lives() const { return mCallback.promote() != nullptr; }
    void updateFrame(Result const& result) override;

private:
    android::wp<IAppCallback> const mCallback;  ///< the caller's, held as weakly as it asked for
    std::shared_ptr<RecordingSession> const mSession;
};

}  // namespace NSCam::v3::pipeline::model::record
