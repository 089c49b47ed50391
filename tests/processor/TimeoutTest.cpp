#include "ZslFixture.h"

namespace zebcam::test {
namespace {

constexpr uint32_t MULTIFRAME = ZslPolicy::POLICY_MULTIFRAME_BIT;

struct Patience {
    char const* name;
    std::optional<uint32_t> policy;
    int64_t timeoutMs;
    int64_t ageNs;
    bool timedOut;
};

class PatienceTest : public ZslTest, public ::testing::WithParamInterface<Patience> {};

TEST_P(PatienceTest, EndsJustAfterTheTimeout) {
    auto wanted = capture(5);
    if (GetParam().policy) {
        wanted.policy(*GetParam().policy, GetParam().timeoutMs);
    }
    auto result = submit(wanted);
    if (GetParam().ageNs > 0) {
        clock.advance(GetParam().ageNs);
        result += retry();
    }
    EXPECT_EQ(GetParam().timedOut ? "[5.0=none]" : "", result);
    EXPECT_EQ(GetParam().timedOut ? 1U : 0U, logged("[prepareTimedoutParams] ZSL TIMED_OUT!"));
    EXPECT_EQ(!GetParam().timedOut, zsl->hasZslPendingRequest());
    leavesPending = true;
}

Patience const PATIENCE[] = {
    {"Default3000", {}, 0, 3000 * MS, false},
    {"Default3000AndAFraction", {}, 0, 3001 * MS - 1000, false},
    {"Default3001", {}, 0, 3001 * MS, true},
    {"ContinuousShotIgnoresItsTimeout", 0, 5, 3000 * MS, false},
    {"ContinuousShot3001", 0, 9000, 3001 * MS, true},
    {"Multiframe500", MULTIFRAME, 500, 500 * MS, false},
    {"Multiframe501", MULTIFRAME | 1, 500, 501 * MS, true},
    {"MultiframeLongerThanDefault", MULTIFRAME, 5000, 5000 * MS, false},
    {"MultiframeZeroAtOnce", MULTIFRAME, 0, 0, false},
    {"MultiframeZeroAfter1", MULTIFRAME, 0, 1 * MS, true},
    {"MultiframeNegative", MULTIFRAME, -1, 0, true},
};
INSTANTIATE_TEST_SUITE_P(Ages, PatienceTest, ::testing::ValuesIn(PATIENCE), caseName);

TEST_F(ZslTest, TimedOutFramesTakeTheFirstSetsThatFit) {
    auto noImage = ExposedFrame(9).at(-30);
    noImage.images = {YUV};
    push({noImage, ExposedFrame(10).at(-20), ExposedFrame(11).at(-10), ExposedFrame(12).at(-5)});
    auto wanted = capture(5, 3);
    wanted.required(1) = {{YUV}, {HAL}, {APP}};
    EXPECT_EQ("", submit(wanted)) << "all frames are older than the capture";
    EXPECT_EQ("[5.0=F10 5.1=F9 5.2=F11]", passMs(3001));
    EXPECT_EQ(1U, logged("TIMEDOUT: get hbs[F10]"));
    EXPECT_EQ(std::vector<uint32_t>{12}, history->frameNumbers());
    EXPECT_EQ(SHUTTER - 5 * MS + 1000, wanted.frames[0]->timestamp()) << "the early shutter's time";
}

TEST_F(ZslTest, TimedOutFramesNeverUseLockedSets) {
    push({11});
    EXPECT_EQ("", submit(capture(5).by(answering({choose({}, {{11, Answer::LOCK}})}))));
    EXPECT_EQ("[5.0=none]", passMs(3001));
    EXPECT_EQ(1U, logged("TIMEDOUT: get hbs[F-1]"));
    EXPECT_EQ(1U, logged("{ hbs=X pFB="));
}

TEST_F(ZslTest, SelectionOfTheLastMomentGoesBeforeTheTimeout) {
    auto const selector = answering({{}, choose({{1, 12}})});
    submit(capture(5, 2).by(selector));
    push({11, 12});
    EXPECT_EQ("[5.1=F12 5.0=F11]", passMs(3001));
}

TEST_F(ZslTest, ParkedFramesTimeOutWithWhateverIsHere) {
    history->announce(12);
    EXPECT_EQ("", submit(capture(5, 2).by(answering({choose({{0, 12}})}))));
    push({11});
    EXPECT_EQ("[5.0=F11 5.1=none]", passMs(3001));
}

TEST_F(ZslTest, TimeoutIsToldFromWarningLevelOn) {
    submit(capture(5));
    captureLog(LogSettings::camera(2));
    log.clear();
    EXPECT_EQ("[5.0=none]", passMs(3001));
    EXPECT_EQ(1U, logged("[prepareTimedoutParams] ZSL TIMED_OUT!"));
    EXPECT_NE(0U, logged("HistoryProvider")) << "the provider's state at the time-out";
}

}  // namespace
}  // namespace zebcam::test
