#pragma once

#include <ZslRecorder.h>

#include <functional>
#include <string>
#include <vector>

#include "processor/ZslFixture.h"

namespace zebcam::test {

/// A provider that throws on one call of its own.
class FailingProvider final : public IHistoryBufferProvider {
public:
    enum class On { History, InFlight, EndSelect, Clone };
    FailingProvider(std::shared_ptr<IHistoryBufferProvider> provider, On on)
        : mProvider(std::move(provider)), mOn(on) {}

    std::string getName() const override { return "Failing"; }
    void dump(android::Printer&) const override {}
    void beginSelect() override {}
    std::optional<std::list<HistoryBufferSet>> getHistoryBufferSets() override;
    void endSelect() override;
    void returnBufferSet(ReturnedBufferSet& returned) override;
    std::vector<ZslPolicy::InFlightInfo> getInFlightInfos() const override;
    HistoryBufferSet cloneBufferSet(HistoryBufferSet const& original) override;

private:
    void passOrFail(On call) const;
    std::shared_ptr<IHistoryBufferProvider> const mProvider;
    On const mOn;
    mutable bool mHasFailed = false;
};

/// The processor's surroundings with a recorder before the processor. What comes back is noted, so
/// that a scene can be held against the same one without a recorder.
class RecordedScene : public ZslTest {
public:
    /// `options` without a path: no recorder.
    explicit RecordedScene(ZslRecorderOptions const& options = {});
    ~RecordedScene() override;

    void TestBody() override {}
    /// Ends the scene: everything comes back, and the recording is whole.
    ZslRecorderStatus end();

    // The operations; an exception becomes a text.
    void submit(Capture const& wanted);
    void retry(int64_t afterMs = 33);
    void flush();
    void result(uint32_t requestNo, bool isFrameEnd = true);

    void expose(std::vector<ExposedFrame> const& frames) { push(frames); }
    using ZslTest::callback;
    using ZslTest::capture;
    using ZslTest::captureOf;
    using ZslTest::clock;
    using ZslTest::config;
    using ZslTest::device;
    using ZslTest::history;
    using ZslTest::lines;
    using ZslTest::log;
    using ZslTest::p1Streams;
    using ZslTest::setProperty;
    using ZslTest::zsl;

    android::sp<ZslRecorder> recorder;
    std::vector<std::string> outcomes;

private:
    void note(char const* what, std::function<std::string()> const& call);
};

/// Something that happens before a recorder, by name.
struct Scenario {
    char const* name;
    std::function<void(RecordedScene&)> play;
    std::function<void(RecordedScene&)> prepare = nullptr;  ///< before the processor is made
};

/// One for each thing that a decision can depend on.
std::vector<Scenario> const& scenarios();

}  // namespace zebcam::test
