#include <algorithm>
#include <limits>
#include <stdexcept>
#include <tuple>

#include "ZslFixture.h"

namespace zebcam::test {
namespace {

TEST_F(ZslTest, MissingInputsOfACaptureAreToldAndLivedWith) {
    push({11, 12, 13});
    auto noBuilder = capture(5, 3);
    noBuilder.params.vFrameBuilder[1] = nullptr;
    EXPECT_EQ("[5.0=F11 5.2=F13]", submit(noBuilder));
    EXPECT_EQ(1U, logged("bad pFrameBuilder - requestNo:5"));
    EXPECT_EQ(std::vector<uint32_t>{12}, history->frameNumbers());

    auto noSettings = capture(6);
    noSettings.params.vReqResult[0] = nullptr;
    EXPECT_EQ("[6.0=F?]", submit(noSettings)) << "it needs no stream";
    EXPECT_TRUE(noSettings.frames[0]->halImages().empty());
}

TEST_F(ZslTest, UnlockWithoutProviderKeepsTheFrameLocked) {
    push({11});
    submit(capture(5).by(answering({order(LOCK, 11)})));
    auto noProvider = capture(6).by(answering({order(UNLOCK, 11)}));
    noProvider.params.pHistoryBufferProvider = nullptr;
    EXPECT_EQ("[6.0=none]", submit(noProvider));
    EXPECT_EQ(1U, logged("cannot find hbs[F11] to unlock"));
    EXPECT_EQ(1U, history->ledger()->totals().withProcessor);
}

TEST_F(ZslTest, EarlyShutterAfterAnAbsurdTimestampWrapsAround) {
    ExposedFrame absurd(12);
    absurd.timestamp = std::numeric_limits<int64_t>::max();
    absurd.images = {};
    push({absurd});
    submit(capture(5));
    EXPECT_EQ(std::numeric_limits<int64_t>::min() + 999, callback->shutters().at(0).second);
    leavesPending = true;
}

TEST_F(ZslTest, MissingMapsCountAsEmptyAndWithoutAppControlThereIsNoAppResult) {
    push({11});
    auto params = capture(5).sensorMode(0, 9).params;  // without the maps: no mode is required
    auto const bare = std::make_shared<FrameBuilder>(5, FRAME_TYPE_MAIN);
    params.vFrameBuilder[0] = bare;
    EXPECT_EQ(1U, zsl->submitZslRequest(std::move(params)).size());
    EXPECT_EQ(nullptr, bare->appMeta(APP));
    EXPECT_NE(nullptr, bare->halMeta(HAL));
    bare->finish();
}

TEST_F(ZslTest, CaptureBeforeTheFirstConfigureWaits) {
    start(false);
    log.clear();
    push({11});
    EXPECT_EQ("", submit(capture(5)));
    EXPECT_EQ(1U, logged("[selectBuf_Locked] selector() historyBuffers(#1) lockedBuffers(#0)"));
    EXPECT_TRUE(std::any_of(log.begin(), log.end(), [](auto const& l) { return l.level == 1; }));
    EXPECT_EQ("[5.0=F11]", passMs(3001));
}

struct Outburst {
    char const* name;
    std::function<void(ScriptedSelector&)> prepare;
    std::string says;
};

class OutburstTest : public ZslTest, public ::testing::WithParamInterface<Outburst> {};

TEST_P(OutburstTest, EndsWhereItHappensWithOneErrorLine) {
    push({11, 12});
    history->announce(13);
    auto const selector = answering({choose({{1, 13}}, {{11, LOCK}})});
    submit(capture(5, 2).by(selector));
    GetParam().prepare(*selector);
    for (int tries : {1, 2}) {
        EXPECT_EQ("", retry());
        EXPECT_EQ(tries, logged(GetParam().says)) << line("exception");
        EXPECT_EQ(tries, std::count_if(log.begin(), log.end(),
                                       [](auto const& l) { return l.level == 1; }));
    }
    EXPECT_EQ(std::vector<uint32_t>{12}, history->frameNumbers());
    EXPECT_EQ(1U, history->ledger()->totals().withProcessor) << "F11 is still locked";
    EXPECT_THAT(MetaStreamBuffer::outstandingLocks(), ::testing::IsEmpty());
    EXPECT_EQ("[6.0=F12]", submit(capture(6))) << "the walk goes on, and the new capture with it";
    push({13});
    EXPECT_EQ("[5.1=F13]", retry()) << "what was chosen before still counts";
    EXPECT_EQ("[5.0=none]", passMs(3001));
}

Outburst const OUTBURSTS[] = {
    {"Exception",
     [](auto& s) { s.script = [](auto const&) -> Answer { throw std::runtime_error("no idea"); }; },
     "[selectBuf_Locked] [requestNo:5]: exception of Scripted: no idea"},
    {"AnythingElse", [](auto& s) { s.script = [](auto const&) -> Answer { throw 42; }; },
     "[selectBuf_Locked] [requestNo:5]: exception of Scripted: unknown exception"},
    {"Nothing", [](auto& s) { s.script = nullptr; },
     "[selectBuf_Locked] [requestNo:5]: exception of Scripted: bad_function_call"},
    {"Name", [](auto& s) { s.onName = [] { throw std::runtime_error("who?"); }; },
     "[selectBuf_Locked] [requestNo:5]: exception of a selector's getName: who?"},
};
INSTANTIATE_TEST_SUITE_P(Selectors, OutburstTest, ::testing::ValuesIn(OUTBURSTS), caseName);

TEST_F(ZslTest, CallbacksExceptionLeavesTheCapturePending) {
    push({11});
    callback->onUpdate = [] { throw std::runtime_error("gone"); };
    auto wanted = capture(5, 2);
    EXPECT_EQ("[5.0=F11]", submit(wanted));
    EXPECT_EQ(1U, logged("[callbackFakeShutter] [requestNo:5]: exception of callback: gone"));
    EXPECT_EQ("", submit(capture(6)));
    push({12});
    EXPECT_EQ("[5.1=F12]", retry());
    EXPECT_EQ(SHUTTER + 11 * MS + 1000, wanted.frames[1]->timestamp()) << "the shutter was sent";
    EXPECT_EQ("[6.0=none]", flush());
}

/// Neither readable nor writable, and counts.
class BusyBuffer final : public IMetaStreamBuffer {
public:
    explicit BusyBuffer(StreamId_T id) : mInfo(metaStream(id)) {}
    IMetaStreamInfo* getStreamInfo() const override { return mInfo.get(); }
    bool hasError() const override { return false; }
    IMetadata* tryReadLock(char const*) override { return ++reads, nullptr; }
    IMetadata* tryWriteLock(char const*) override { return ++writes, nullptr; }
    void unlock(char const*, IMetadata*) override { ++unlocks; }

    int reads = 0, writes = 0, unlocks = 0;

private:
    android::sp<IMetaStreamInfo> const mInfo;
};

TEST_F(ZslTest, LockThatWasNotObtainedIsUnlockedForTheSelectorOnly) {
    android::sp<BusyBuffer> const result = new BusyBuffer(APP), raw = new BusyBuffer(HAL + 1),
                                  control = new BusyBuffer(HAL_CONTROL + 1);
    auto set = ExposedFrame(11).set();
    set.halMeta.push_back(raw);
    history->arrive(std::move(set));
    auto answer = choose({{0, NO_FRAME}});
    answer.selected[0].additionalMetas[HAL_CONTROL + 1] = std::make_shared<IMetadata>();
    auto wanted = capture(5, 2).by(answering({answer}));
    wanted.params.checkPureRaw = true;
    wanted.frames[0]->setHalMetaStreamBuffer(HAL_CONTROL + 1, control);
    EXPECT_EQ("[5.0=none]", submit(wanted));
    IAppCallback::Result report;
    report.outputAppMetas = {result};
    zsl->onFrameUpdated(5, report);
    EXPECT_EQ(std::tuple(2, 0, 1), std::tuple(raw->reads, raw->writes, raw->unlocks));
    EXPECT_EQ(std::tuple(1, 1, 1), std::tuple(control->reads, control->writes, control->unlocks));
    EXPECT_EQ(std::tuple(0, 1, 0), std::tuple(result->reads, result->writes, result->unlocks));
    leavesPending = true;
}

}  // namespace
}  // namespace zebcam::test
