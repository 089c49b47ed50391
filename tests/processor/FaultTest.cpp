#include <algorithm>
#include <limits>
#include <stdexcept>

#include "ZslFixture.h"

namespace zebcam::test {
namespace {

std::shared_ptr<ScriptedSelector> failing() {
    return std::make_shared<ScriptedSelector>(
        [](auto const&) -> Answer { throw std::runtime_error("selector"); });
}

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

    log.clear();
    auto noProvider = capture(7);
    noProvider.params.pHistoryBufferProvider = nullptr;
    EXPECT_EQ("", submit(noProvider));
    EXPECT_TRUE(std::any_of(log.begin(), log.end(), [](auto const& l) { return l.level == 1; }));
    EXPECT_EQ(1U, callback->results.size());
    EXPECT_EQ("[7.0=none]", passMs(3001));
}

TEST_F(ZslTest, UnlockWithoutProviderKeepsTheFrameLocked) {
    push({11});
    submit(capture(5).by(answering({choose({{0, NO_FRAME}}, {{11, Answer::LOCK}})})));
    auto noProvider = capture(6).by(answering({choose({{0, NO_FRAME}}, {{11, Answer::UNLOCK}})}));
    noProvider.params.pHistoryBufferProvider = nullptr;
    EXPECT_EQ("[6.0=none]", submit(noProvider));
    EXPECT_EQ(1U, logged("cannot find hbs[F11] to unlock"));
    EXPECT_EQ(1U, history->ledger()->totals().withProcessor);
}

TEST_F(ZslTest, EarlyShutterAfterAnAbsurdTimestampWrapsAround) {
    SensorFrame absurd(12);
    absurd.timestamp = std::numeric_limits<int64_t>::max();
    absurd.images = {};
    push({absurd});
    submit(capture(5));
    EXPECT_EQ(std::numeric_limits<int64_t>::min() + 999, callback->shutters().at(0).second);
    leavesPending = true;
}

TEST_F(ZslTest, MissingMapsCountAsEmpty) {
    push({11});
    auto wanted = capture(5).sensorMode(0, 9);
    auto params = wanted.params;  // without the maps, so that no mode is required
    auto const result = zsl->submitZslRequest(std::move(params));
    ASSERT_EQ(1U, result.size());
    EXPECT_EQ(true, wanted.frames[0]->builtFromHistory());
    wanted.frames[0]->finish();
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

TEST_F(ZslTest, ConfigureWithoutStreamsLeavesCapturesPending) {
    auto bare = config();
    bare.pParsedStreamInfo_P1 = nullptr;
    start(false);
    EXPECT_EQ(0, zsl->configure(bare));
    EXPECT_EQ("", submit(capture(5)));
    push({11});
    EXPECT_EQ("[5.0=F11]", retry());
}

TEST_F(ZslTest, SelectorsExceptionLeavesEverythingInOrder) {
    push({11, 12});
    history->announce(13);
    auto const selector = answering({choose({{1, 13}}, {{11, Answer::LOCK}})});
    submit(capture(5, 2).by(selector));
    selector->script = failing()->script;
    EXPECT_THROW(retry(), std::runtime_error);
    EXPECT_TRUE(zsl->hasZslPendingRequest());
    EXPECT_EQ(std::vector<uint32_t>{12}, history->frameNumbers());
    EXPECT_EQ(1U, history->ledger()->totals().withProcessor) << "F11 is still locked";
    EXPECT_THAT(MetaStreamBuffer::outstandingLocks(), ::testing::IsEmpty());
    EXPECT_EQ(1U, logged("a policy or callback failed: "));
    push({13});
    EXPECT_EQ("[5.1=F13]", retry()) << "a frame does not wait for an exception";
    selector->script = [](auto const&) { return choose({{0, 12}}); };
    EXPECT_EQ("[5.0=F12]", retry());
    EXPECT_THROW(retry(), std::runtime_error) << "now there is nothing else to hand over";
    EXPECT_EQ("", retry());
}

TEST_F(ZslTest, CaptureWhoseSelectorThrowsAtSubmissionWaitsAndTimesOut) {
    EXPECT_THROW(submit(capture(5).by(failing())), std::runtime_error);
    EXPECT_TRUE(zsl->hasZslPendingRequest());
    EXPECT_EQ(1U, callback->results.size()) << "it gets its early shutter";
    push({11});
    EXPECT_EQ("[5.0=F11]", passMs(3001));
    EXPECT_EQ("", flush()) << "a flush ends the exception too";
    EXPECT_EQ("", retry());
}

TEST_F(ZslTest, OtherCapturesAreServedInTheWalkOfAnException) {
    auto bad = capture(5).by(failing());
    EXPECT_THROW(submit(bad), std::runtime_error);
    EXPECT_THROW(submit(capture(6)), std::runtime_error)
        << "its submission retries the bad one first";
    push({11});
    EXPECT_EQ("[6.0=F11]", retry()) << "at once, whatever becomes of 5";
    EXPECT_EQ("[5.0=none]", flush());
}

TEST_F(ZslTest, CallbacksExceptionLeavesTheCapturePending) {
    push({11});
    callback->onUpdate = [] { throw std::runtime_error("callback"); };
    auto wanted = capture(5, 2);
    EXPECT_EQ("[5.0=F11]", submit(wanted));
    EXPECT_TRUE(zsl->hasZslPendingRequest());
    callback->onUpdate = nullptr;
    EXPECT_THROW(retry(), std::runtime_error);
    push({12});
    EXPECT_EQ("[5.1=F12]", retry());
    EXPECT_EQ(SHUTTER + 11 * MS + 1000, wanted.frames[1]->timestamp()) << "the shutter was sent";
}

}  // namespace
}  // namespace zebcam::test
