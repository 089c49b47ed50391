#pragma once

#include <IZslProcessor.h>
#include <ZslRecorder.h>
#include <host/HistoryProvider.h>
#include <platform/VirtualClock.h>

#include <cstddef>
#include <list>
#include <memory>
#include <unordered_map>
#include <vector>

namespace zebcam::bench {

using NSCam::v3::pipeline::NSPipelineContext::HistoryBufferSet;

/// A history that keeps its sets and no books, so that what is measured is the processor.
class PlainHistory final : public NSCam::v3::pipeline::NSPipelineContext::IHistoryBufferProvider {
public:
    std::string getName() const override { return "PlainHistory"; }
    void dump(android::Printer&) const override {}
    void beginSelect() override {}
    std::optional<std::list<HistoryBufferSet>> getHistoryBufferSets() override;
    void endSelect() override {}
    void returnBufferSet(ReturnedBufferSet& returned) override;
    std::vector<NSCam::ZslPolicy::InFlightInfo> getInFlightInfos() const override { return {}; }
    HistoryBufferSet cloneBufferSet(HistoryBufferSet const& original) override { return original; }

    void arrive(HistoryBufferSet set) { mSets.push_back(std::move(set)); }
    void takeReturned();  ///< offers the sets that came back again; allocates, so not when measured

private:
    std::list<HistoryBufferSet> mSets;
    std::vector<HistoryBufferSet> mReturned;
};

struct SceneSize {
    size_t historyFrames = 30;
    size_t requestedFrames = 1;
    size_t entries = 200;  ///< of each result; a control has half as many
};

enum class Provider {
    Host,   ///< the host stack's, which keeps a ledger
    Plain,  ///< PlainHistory
};

/**
 * A processor, a history and captures for it, in virtual time and with the log off.
 *
 * Every history frame passes every test of the policies, except that only the newest frames, as
 * many as a capture requests (none in a scene that cannot serve), have a stable exposure, which is
 * tested last.
 */
class CaptureScene {
public:
    CaptureScene(SceneSize size, Provider provider, bool canServe = true);

    NSCam::v3::pipeline::model::IZslProcessor& processor() { return *mpProcessor; }

    /// From now on every operation is recorded, to nowhere.
    void record();
    bool isRecording() const;

    /// A capture of which nothing was used yet. Without a selector: the processor's default.
    NSCam::v3::pipeline::model::ZslRequestParams makeCapture(
        std::shared_ptr<NSCam::ZslPolicy::ISelector> selector = nullptr);

    /// Puts frames in place of those that were built, or returned.
    void refill();

private:
    HistoryBufferSet makeSet(size_t frame) const;
    size_t firstStable() const { return mSize.historyFrames - mServed; }

    SceneSize const mSize;
    size_t const mServed;  ///< frames that a capture takes from the history
    platform::VirtualClock mClock;
    std::shared_ptr<PlainHistory> mpPlain;
    std::shared_ptr<host::HistoryProvider> mpHost;
    android::sp<NSCam::v3::pipeline::model::IZslProcessor> mpProcessor;
    android::sp<NSCam::v3::pipeline::model::ZslRecorder> mpRecorder;
    std::unordered_map<uint32_t, uint32_t> mSensorModes{{0, 1}};
    std::vector<uint32_t> mSensors{0};
    uint32_t mRequestNo = 0;
};

/// A policy that never chooses anything: what is left is the processor's own work.
std::shared_ptr<NSCam::ZslPolicy::ISelector> makeIdleSelector();

}  // namespace zebcam::bench
