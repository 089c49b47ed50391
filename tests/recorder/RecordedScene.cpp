#include "recorder/RecordedScene.h"

#include <stdexcept>
#include <utility>

namespace zebcam::test {

RecordedScene::RecordedScene(ZslRecorderOptions const& options) {
    start(false);
    if (!options.path.empty()) {
        recorder = ZslRecorder::create(0, zsl, options);
        zsl = recorder;
    }
}

ZslRecorderStatus RecordedScene::end() {
    leavesPending = true;
    TearDown();
    ZslRecorderStatus const status = recorder != nullptr ? recorder->finish() : ZslRecorderStatus();
    recorder.clear();
    return status;
}

void RecordedScene::note(char const* what, std::function<std::string()> const& call) {
    std::string outcome;
    try {
        outcome = call();
    } catch (std::exception const& error) {
        outcome = error.what();
    }
    outcomes.push_back(std::string(what) + " " + outcome);
}

void RecordedScene::result(uint32_t requestNo, bool isFrameEnd) {
    note("result", [&] {
        IMetadata metadata;
        put<int64_t>(metadata, ZEB_SENSOR_TIMESTAMP, SHUTTER);
        auto const buffer = metaBuffer(APP, metadata);
        zsl->onFrameUpdated(requestNo, {.requestNo = requestNo,
                                        .outputAppMetas = {buffer},
                                        .isFrameEnd = isFrameEnd,
                                        .outputHalMetas = {}});
        return buffer->snapshot().isEmpty() ? "removed" : "kept";
    });
}

namespace {

/// A provider that throws on the first call of one kind.
class FailingProvider final : public IHistoryBufferProvider {
public:
    enum class On { History, InFlight, EndSelect, Clone };
    FailingProvider(std::shared_ptr<IHistoryBufferProvider> provider, On on)
        : mProvider(std::move(provider)), mOn(on) {}

    std::string getName() const override { return "Failing"; }
    void dump(android::Printer&) const override {}
    void beginSelect() override {}
    std::optional<std::list<HistoryBufferSet>> getHistoryBufferSets() override {
        return soundOr(On::History).getHistoryBufferSets();
    }
    void endSelect() override { soundOr(On::EndSelect).endSelect(); }
    void returnBufferSet(ReturnedBufferSet& set) override { mProvider->returnBufferSet(set); }
    std::vector<ZslPolicy::InFlightInfo> getInFlightInfos() const override {
        return soundOr(On::InFlight).getInFlightInfos();
    }
    HistoryBufferSet cloneBufferSet(HistoryBufferSet const& original) override {
        return soundOr(On::Clone).cloneBufferSet(original);
    }

private:
    IHistoryBufferProvider& soundOr(On call) const {
        if (call == mOn && !std::exchange(mHasFailed, true)) {
            throw std::runtime_error("the provider has failed");
        }
        return *mProvider;
    }

    std::shared_ptr<IHistoryBufferProvider> const mProvider;
    On const mOn;
    mutable bool mHasFailed = false;
};

using Orders = std::map<uint32_t, Answer::OpT>;

void configure(RecordedScene& s) {
    ASSERT_EQ(0, s.zsl->configure(s.config()));
}

ExposedFrame tuned(uint32_t number, uint32_t tag, int32_t value) {
    return ExposedFrame(number).tag<int32_t>(HAL, tag, value);
}

std::shared_ptr<ISelector> failing() {
    return std::make_shared<ScriptedSelector>(
        [](auto const&) -> Answer { throw std::runtime_error("no idea"); });
}

Capture through(RecordedScene& s, FailingProvider::On on, Capture capture) {
    capture.params.pHistoryBufferProvider = std::make_shared<FailingProvider>(s.history, on);
    return capture;
}

void playSelector(RecordedScene& s) {
    configure(s);
    s.expose({1, 2, 3, 4});
    s.history->announce(5);
    Answer cloned = choose({{1, 3}});
    cloned.selected[1].needClone = true;
    cloned.selected[1].additionalMetas[APP_CONTROL] = std::make_shared<IMetadata>();
    put<int32_t>(*cloned.selected[1].additionalMetas[APP_CONTROL], 7, 7);
    s.submit(s.capture(5, 3).by(answering(
        {choose({}, Orders{{1, Answer::LOCK}, {2, Answer::LOCK}, {4, Answer::RELEASE}}), cloned,
         choose({{0, 5}}, Orders{{1, Answer::UNLOCK}}), choose({{2, NO_FRAME}})})));
    s.retry();
    s.retry();
    s.expose({5});
    s.retry();
    s.retry();
    s.result(5);
}

void playTimeouts(RecordedScene& s) {
    configure(s);
    s.expose({ExposedFrame(1).at(-5000), ExposedFrame(2).at(-4900)});
    s.submit(s.capture(5, 2));
    s.submit(s.capture(6, 3).policy(ZslPolicy::POLICY_MULTIFRAME_BIT, 300));
    s.retry(299);
    s.retry(1);
    s.retry(1);
    s.retry(2699);
    s.retry(1);
    s.result(6);
}

void playFaults(RecordedScene& s) {
    using On = FailingProvider::On;
    configure(s);
    s.expose({1, 2, 3, 4, 5, 6, 7, 8});
    uint32_t requestNo = 10;
    for (On const on : {On::History, On::InFlight, On::EndSelect}) {
        s.submit(through(s, on, s.capture(requestNo++)));
        s.retry();
    }
    Answer clone = choose({{0, 8}});
    clone.selected[0].needClone = true;
    s.submit(through(s, On::Clone, s.capture(20).by(answering({clone}))));
    s.submit(s.capture(21).by(failing()));
    s.retry();
    auto const nameless = answering({choose({{0, 7}})});
    nameless->onName = [] { throw std::runtime_error("who?"); };
    s.submit(s.capture(23).by(nameless));
    s.callback->onUpdate = [] { throw std::runtime_error("the application is gone"); };
    s.submit(s.capture(22).by(answering({})));
    s.callback->onUpdate = nullptr;
    s.retry();
}

void playBrokenCaptures(RecordedScene& s) {
    configure(s);
    s.submit(s.capture(4));  // before there is any history
    s.flush();
    s.expose({1, 2, 3, 4});
    s.submit(s.captureOf(5, {FRAME_TYPE_PREDUMMY, FRAME_TYPE_MAIN, FRAME_TYPE_POSTDUMMY}));
    Capture incomplete = s.capture(6, 4);
    incomplete.params.vReqResult[0] = incomplete.params.vReqResult[3] = nullptr;
    incomplete.params.vFrameBuilder[1] = incomplete.params.vFrameBuilder[3] = nullptr;
    s.submit(incomplete);
    Capture alone = s.capture(7);
    alone.params.pHistoryBufferProvider = nullptr;
    s.submit(alone);
    Capture withoutImage = s.capture(8);
    withoutImage.required(0) = {{}, {HAL}, {APP}};
    s.submit(withoutImage);
    s.history->setHasHistory(false);
    s.submit(s.capture(9));
    s.history->setHasHistory(true);
    s.callback = nullptr;
    s.submit(s.capture(10).by(answering({})));
    EXPECT_EQ(-ENOSYS, s.zsl->configure(s.config()));
}

void playCriteria(RecordedScene& s) {
    configure(s);
    ExposedFrame unreadable(6);
    unreadable.unlockable = {HAL};
    ExposedFrame synced(8);
    synced.tag<int64_t>(HAL, ZEB_FRAME_SYNC_RESULT, 1);
    synced.tag<int64_t>(HAL + 1, ZEB_FRAME_SYNC_RESULT, 0);
    ExposedFrame bad(1);
    bad.hasImageError = true;
    s.expose({bad, tuned(2, ZEB_P1NODE_PURE_RAW, 1), tuned(3, ZEB_P1NODE_SENSOR_MODE, 4),
              tuned(4, ZEB_3A_AE_SOFT_STABLE, 0), ExposedFrame(5).focus(1, 3, 1), unreadable, 7,
              synced, 9});
    Capture picky = s.capture(5, 2).sensorMode(0, 4);
    picky.params.checkPureRaw = true;
    s.submit(picky);
    Capture inSync = s.capture(6, 2);
    inSync.params.needFrameSync = true;
    s.submit(inSync);
    s.submit(s.capture(7).policy(ZslPolicy::POLICY_CONTINUOUS_SHOT));
    s.submit(s.capture(8, 2).policy(ZslPolicy::POLICY_MULTIFRAME_BIT, 100));
    s.retry(0);
}

}  // namespace

std::vector<Scenario> const& scenarios() {
    static std::vector<Scenario> const all{
        {"default",
         [](RecordedScene& s) {
             configure(s);
             s.expose({1, 2, ExposedFrame(3).at(5)});
             s.submit(s.capture(5));
             s.submit(s.capture(6, 3));
             s.expose({4});
             s.retry();
             s.result(6, false);
             s.expose({5, 6});
             s.retry();
             s.result(6);
             s.result(6);
             s.flush();
         }},
        {"offset on the monotonic clock",
         [](RecordedScene& s) {
             configure(s);
             s.expose({ExposedFrame(1).at((MONOTONIC - SHUTTER) / MS - 201),
                       ExposedFrame(2).at((MONOTONIC - SHUTTER) / MS - 199)});
             s.submit(s.capture(5));
         },
         [](RecordedScene& s) {
             s.setProperty("ro.vendor.camera3.zsl.project", "200");
             IMetadata unknown;
             put<uint8_t>(unknown, ZEB_SENSOR_INFO_TIMESTAMP_SOURCE, 0);
             s.device.emplace(0, unknown);
         }},
        {"selector", playSelector},
        {"timeouts", playTimeouts},
        {"faults", playFaults},
        {"broken captures", playBrokenCaptures},
        {"criteria", playCriteria},
        {"frames that change while they are offered",
         [](RecordedScene& s) {
             configure(s);
             ExposedFrame bad(1);
             bad.hasImageError = true;
             ExposedFrame blurred(2);
             blurred.focus(1, 3, 1);
             s.expose({bad, blurred});
             s.submit(s.capture(5, 2));
             s.expose({1});
             s.retry();
             s.expose({2});
             s.retry();
         }},
        {"not configured", [](RecordedScene& s) {
             s.expose({1});
             s.submit(s.capture(5));
             s.retry(3001);
         }}};
    return all;
}

}  // namespace zebcam::test
