#include "ZslFixture.h"

namespace zebcam::test {
namespace {

constexpr uint32_t DEFAULT = 1;  ///< a policy word that leaves the choice to the processor
constexpr uint32_t CSHOT = ZslPolicy::POLICY_CONTINUOUS_SHOT;

template <typename... Frames>
std::vector<ExposedFrame> of(Frames... frames) {
    return {ExposedFrame(frames)...};
}

ExposedFrame unstable(uint32_t n) {
    return ExposedFrame(n).tag(HAL, ZEB_3A_AE_SOFT_STABLE, 0);
}
ExposedFrame unfocused(uint32_t n) {
    ExposedFrame frame(n);
    frame.metas[APP].clear();
    return frame;
}
ExposedFrame imageless(uint32_t n) {
    return ExposedFrame(n).with({YUV});
}

/// A capture that wants sensor mode 0, submitted so many ms after SHUTTER over a history.
struct Choice {
    char const* name;
    uint32_t policy;
    size_t frames;
    int64_t shutterMs;
    std::vector<ExposedFrame> history;
    std::string served;
    std::string says, alsoSays = {};  ///< texts of log lines, once each
};

class PolicyTest : public ZslTest, public ::testing::WithParamInterface<Choice> {};

TEST_P(PolicyTest, ChoosesFrames) {
    clock.advance(GetParam().shutterMs * MS);
    push(GetParam().history);
    EXPECT_EQ(
        GetParam().served,
        submit(capture(5, GetParam().frames).policy(GetParam().policy, 3000).sensorMode(0, 0)));
    for (auto const& text : {GetParam().says, GetParam().alsoSays}) {
        EXPECT_TRUE(text.empty() || logged(text) == 1) << text;
    }
    leavesPending = true;
}

Choice const CHOICES[] = {
    {"DefaultSkipsTooOld", DEFAULT, 2, 11, of(10, 11, 12), "[5.0=F11 5.1=F12]",
     "[operator()] [DefaultSelector] hbs[F10] Ts(100010000000) > zsd(100011000000), "
     "shutterDelay=-1ms X",
     "zslReqNo(5) durationMs(0) #select(2/2)"},
    {"DefaultNeverOffersARefusedFrameAgain", DEFAULT, 2, 0, of(imageless(20), 21), "[5.0=F21]",
     "[DefaultSelector] hbs[F20] containsRequiredStreamBuffer X", "#select(1/2)"},
    {"CShotTakesFramesBeforeTheShutter", CSHOT, 2, 100, of(5, 6, 7), "[5.0=F5 5.1=F6]",
     "[select] [CShotSelector] zslReqNo(5) hbs[F5] O => select"},
    {"CShotLooksAtStructureOnly", CSHOT, 2, 0, of(unstable(5), unfocused(6)), "[5.0=F5 5.1=F6]",
     "[CShotSelector] zslReqNo(5) durationMs(0) #select(2/2)"},
    {"CShotChecksStreams", CSHOT, 1, 0, of(imageless(5)), "",
     "[operator()] [CShotSelector] hbs[F5] containsRequiredStreamBuffer X",
     "[select] [CShotSelector] zslReqNo(5) hbs[F5] X"},
    {"MultiframeEndsAtTheShutter", MULTIFRAME, 3, 5, of(1, 2, 3, 4, 5, 6), "[5.0=F3 5.1=F4 5.2=F5]",
     "frameSize(3) zsdIdx(4)/shutterDelay(0ms) startIdx(2)/shutterDelay(-2ms)",
     "durationMs(0) #select(3/3) => SUCCESS"},
    {"MultiframeReturnsNoBrokenRun", MULTIFRAME, 3, 5, of(1, 2, 3, unstable(4), 5, 6), "",
     "[select] [MultiframeSelector] zslReqNo(5) hbs[F4] X => break continuous, start over",
     "[MultiframeSelector] zslReqNo(5) durationMs(0) #select(2/3) => PENDING"},
    {"MultiframeRestartsAfterAFailure", MULTIFRAME, 3, 5, of(1, 2, 3, unfocused(4), 5, 6, 7),
     "[5.0=F5 5.1=F6 5.2=F7]", "[operator()] [MultiframeSelector] hbs[F4] isAFStable X"},
    {"MultiframeInTheFutureTakesTheLatest", MULTIFRAME, 3, 99, of(1, 2, 3, 4),
     "[5.0=F2 5.1=F3 5.2=F4]", "[select] [MultiframeSelector] future ts, use latest"},
    {"MultiframeStartsAtTheOldest", MULTIFRAME, 4, 2, of(1, 2, 3, 4, 5),
     "[5.0=F1 5.1=F2 5.2=F3 5.3=F4]", "zsdIdx(1)/shutterDelay(0ms) startIdx(0)"},
    {"MultiframeChecksStreamsAndExposure", MULTIFRAME, 1, 1, of(imageless(1), unstable(2), 3),
     "[5.0=F3]", "[operator()] [MultiframeSelector] hbs[F1] containsRequiredStreamBuffer X",
     "[operator()] [MultiframeSelector] hbs[F2] isAESoftStable X"},
    {"MultiframeOverNoHistory",
     MULTIFRAME,
     3,
     0,
     {},
     "",
     "[select] [MultiframeSelector] zslReqNo(5) durationMs(0) hfs(0)/frameSize(3) => PENDING"},
};
INSTANTIATE_TEST_SUITE_P(Policies, PolicyTest, ::testing::ValuesIn(CHOICES), caseName);

TEST_F(ZslTest, MultiframeAsksForSyncWhenWanted) {
    push({ExposedFrame(1).tag(HAL, ZEB_FRAME_SYNC_RESULT, int64_t(7)), 2});
    auto wanted = capture(5).policy(MULTIFRAME, 3000);
    wanted.params.needFrameSync = true;
    EXPECT_EQ("[5.0=F2]", submit(wanted));
    EXPECT_EQ(1U, logged("[operator()] [MultiframeSelector] hbs[F1] isFameSync X"));
}

TEST_F(ZslTest, SelectorIsChosenByRequestThenByPolicyWord) {
    std::tuple<std::optional<uint32_t>, bool, std::string> const cases[] = {
        {std::nullopt, false, "DefaultSelector"},
        {CSHOT, false, "CShotSelector"},
        {MULTIFRAME, false, "MultiframeSelector"},
        {0x20001, false, "MultiframeSelector"},
        {0xfffdffff, false, "DefaultSelector"},
        {MULTIFRAME, true, "Own"},
        {std::nullopt, true, "Own"}};
    for (auto const& [policy, own, name] : cases) {
        auto wanted = capture(5).by(own ? answering({}, "Own") : nullptr);
        if (policy) {
            wanted.policy(*policy, 3000);
        }
        submit(wanted);
        EXPECT_EQ("[selectBuf_Locked] selector(" + name + ") historyBuffers(#0) lockedBuffers(#0)",
                  line("] selector("));
        flush();
    }
}

}  // namespace
}  // namespace zebcam::test
