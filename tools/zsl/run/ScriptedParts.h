#pragma once

#include <host/FrameBuilder.h>
#include <pipeline/IHistoryBufferProvider.h>
#include <pipeline/IPipelineBufferSetFrameControl.h>
#include <policy/zsl/ISelector.h>

#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "run/DeviceScript.h"

namespace zebcam::tool::run {

/// What stands in for the pipeline's parts during a replay. All borrow the script.

/// The provider of one capture.
class ScriptedProvider final
    : public NSCam::v3::pipeline::NSPipelineContext::IHistoryBufferProvider {
public:
    /// Hear that an attempt begins (null: the device made none) and that it ends.
    struct Observer {
        std::function<void(device::DeviceTry const*)> begin;
        std::function<void()> end;
    };

    ScriptedProvider(DeviceScript& script, uint64_t number, DeviceSubmission const& submission,
                     Observer observer)
        : mScript(script),
          mNumber(number),
          mSubmission(submission),
          mObserver(std::move(observer)) {}

    std::string getName() const override { return "DeviceReplay"; }
    void dump(android::Printer& printer) const override;
    void beginSelect() override { mScript.passOrFail(record::ProviderCall::BEGIN_SELECT); }
    std::optional<std::list<HistoryBufferSet>> getHistoryBufferSets() override;
    void endSelect() override;
    void returnBufferSet(ReturnedBufferSet& returned) override;
    std::vector<NSCam::ZslPolicy::InFlightInfo> getInFlightInfos() const override;
    HistoryBufferSet cloneBufferSet(HistoryBufferSet const& original) override;

private:
    DeviceScript& mScript;
    uint64_t const mNumber;
    DeviceSubmission const& mSubmission;
    Observer const mObserver;
    device::DeviceTry const* mTry = nullptr;  ///< the running or last one
};

/// Gives the answers that the device's policy gave.
class ScriptedSelector final : public NSCam::ZslPolicy::ISelector {
public:
    ScriptedSelector(DeviceScript& script, device::SubmitCall const& call)
        : mScript(script), mCall(call) {}

    char const* getName() const override;
    SelectOutputParams select(SelectInputParams const& in) const override;

private:
    DeviceScript& mScript;
    device::SubmitCall const& mCall;
};

/// Notes how a frame is built.
class ScriptedBuilder final : public NSCam::v3::pipeline::NSPipelineContext::IFrameBuilder {
public:
    using MetaBuffers = host::FrameBuilder::MetaBuffers;

    ScriptedBuilder(DeviceScript& script, uint64_t number, uint32_t requestNo, uint32_t frameType)
        : mScript(script), mNumber(number), mFrame(requestNo, frameType) {}

    /// Gives the frame one of the request's own settings.
    void setControl(android::sp<NSCam::v3::IMetaStreamBuffer> const& buffer, bool isHal);

    uint64_t number() const { return mNumber; }
    /// What it was built as last.
    std::optional<device::BuiltStep> const& built() const { return mBuilt; }
    /// Start of exposure of the history frame, ns.
    std::optional<int64_t> exposedNs() const { return mExposedNs; }
    void finish() { mFrame.finish(); }

    uint32_t getFrameType() const override { return mFrame.getFrameType(); }
    void getAppMetaStreamBuffers(MetaBuffers& out) const override {
        mFrame.getAppMetaStreamBuffers(out);
    }
    void getHalMetaStreamBuffers(MetaBuffers& out) const override {
        mFrame.getHalMetaStreamBuffers(out);
    }
    void setHalImageStreamBuffer(NSCam::v3::StreamId_T streamId,
                                 android::sp<NSCam::v3::IImageStreamBuffer> const& buffer) override;
    void setHalMetaStreamBuffer(NSCam::v3::StreamId_T streamId,
                                android::sp<NSCam::v3::IMetaStreamBuffer> const& buffer) override {
        mFrame.setHalMetaStreamBuffer(streamId, buffer);
    }
    void setAppMetaStreamBuffer(NSCam::v3::StreamId_T streamId,
                                android::sp<NSCam::v3::IMetaStreamBuffer> const& buffer) override;
    void setFrameTimestamp(int64_t ns) override;
    void setBuiltFromHistory(bool builtFromHistory) override;

private:
    DeviceScript& mScript;
    uint64_t const mNumber;
    host::FrameBuilder mFrame;
    std::optional<record::HandOuts::Set> mHistorySet;
    std::optional<int64_t> mSensorTimestampNs;
    std::optional<int64_t> mExposedNs;
    std::optional<device::BuiltStep> mBuilt;
};

}  // namespace zebcam::tool::run
