#include "ZslFixture.h"

namespace zebcam::test {
namespace {

TEST_F(ZslTest, PatienceEndsJustAfterTheTimeout) {
    struct {
        char const* name;
        std::optional<uint32_t> policy;
        int64_t timeoutMs;
        int64_t ageNs;
        bool timedOut;
    } const cases[] = {
        {"default", {}, 0, 3000 * MS, false},
        {"default and a fraction", {}, 0, 3001 * MS - 1000, false},
        {"default too old", {}, 0, 3001 * MS, true},
        {"continuous shot ignores its time-out", 0, 5, 3000 * MS, false},
        {"continuous shot too old", 0, 9000, 3001 * MS, true},
        {"multiframe", MULTIFRAME, 500, 500 * MS, false},
        {"multiframe too old", MULTIFRAME | 1, 500, 501 * MS, true},
        {"multiframe longer than the default", MULTIFRAME, 5000, 5000 * MS, false},
        {"multiframe zero at once", MULTIFRAME, 0, 0, false},
        {"multiframe zero after 1 ms", MULTIFRAME, 0, 1 * MS, true},
        {"multiframe negative", MULTIFRAME, -1, 0, true},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        log.clear();
        auto wanted = capture(5);
        if (c.policy) {
            wanted.policy(*c.policy, c.timeoutMs);
        }
        auto result = submit(wanted);
        if (c.ageNs > 0) {
            clock.advance(c.ageNs);
            result += retry();
        }
        EXPECT_EQ(c.timedOut ? "[5.0=none]" : "", result);
        EXPECT_EQ(c.timedOut ? 1U : 0U, logged("[prepareTimedoutParams] ZSL TIMED_OUT!"));
        EXPECT_NE(c.timedOut, zsl->hasZslPendingRequest());
        flush();
    }
}

TEST_F(ZslTest, TimedOutFramesTakeTheFirstSetsThatFit) {
    push({ExposedFrame(9).at(-30).with({YUV}), ExposedFrame(10).at(-20), ExposedFrame(11).at(-10),
          ExposedFrame(12).at(-5)});
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
    EXPECT_EQ("", submit(capture(5).by(answering({choose({}, {{11, LOCK}})}))));
    EXPECT_EQ("[5.0=none]", passMs(3001));
    EXPECT_EQ(1U, logged("TIMEDOUT: get hbs[F-1]"));
    EXPECT_EQ(1U, logged("{ hbs=X pFB="));
}

TEST_F(ZslTest, SelectionOfTheLastMomentGoesBeforeTheTimeoutOfParkedFramesToo) {
    history->announce(13);
    EXPECT_EQ("", submit(capture(5, 4).by(answering({choose({{0, 13}}), choose({{1, 12}})}))));
    push({11, 12});
    EXPECT_EQ("[5.1=F12 5.0=F11 5.2=none 5.3=none]", passMs(3001));
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
