#include <best_shot/BestShotSelector.h>

#include <random>

#include "sdk/SelectorKitTest.h"

namespace {

using namespace zebcam::test;
using kit::BestShotRule;
using kit::BestShotSelector;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

class BestShotSelectorTest : public SelectorKitTest {
protected:
    /// Pushes frames 33 ms apart with these sharpnesses, the last one `lastMs` after the wanted
    /// instant; 0 stands for a frame whose exposure was changing.
    void pushSharp(std::vector<float> const& sharpnesses, int64_t lastMs = 0) {
        in.historyFrames.clear();
        int64_t since = lastMs - 33 * static_cast<int64_t>(sharpnesses.size() - 1);
        for (float const sharpness : sharpnesses) {
            push({.sinceWantedMs = since, .aeStable = sharpness > 0, .sharpness = sharpness});
            since += 33;
        }
    }

    /// Frame numbers in the order of the wanted frames.
    std::vector<uint32_t> chosen(BestShotRule const& rule = {}) const {
        std::vector<uint32_t> frames;
        for (auto const& [index, frameNo] : chosenOf(BestShotSelector(rule).select(in))) {
            frames.push_back(frameNo);
        }
        return frames;
    }
};

TEST_F(BestShotSelectorTest, WeighsSharpnessAgainstTime) {
    struct {
        char const* what;
        std::vector<Reported> frames;
        uint32_t chosen;
        BestShotRule rule = {};
    } const cases[] = {
        {"the sharpest wins",
         {{.sinceWantedMs = -33, .sharpness = 9}, {.sinceWantedMs = 0, .sharpness = 2}},
         1},
        {"a little sharper is not worth the time",
         {{.sinceWantedMs = -99, .sharpness = 9}, {.sinceWantedMs = 0, .sharpness = 8}},
         2},
        {"unless time is cheap",
         {{.sinceWantedMs = -99, .sharpness = 9}, {.sinceWantedMs = 0, .sharpness = 8}},
         1,
         {.costPerS = 0.5}},
        {"later costs as much as earlier",
         {{.sinceWantedMs = 0, .sharpness = 8}, {.sinceWantedMs = 99, .sharpness = 9}},
         1},
        {"the first frame from the instant on costs nothing",
         {{.sinceWantedMs = -10, .sharpness = 9}, {.sinceWantedMs = 23, .sharpness = 9}},
         2},
        {"never below the share, however old",
         {{.sinceWantedMs = -900, .sharpness = 10}, {.sinceWantedMs = 0, .sharpness = 8.4F}},
         1},
        {"a smaller share",
         {{.sinceWantedMs = -900, .sharpness = 10}, {.sinceWantedMs = 0, .sharpness = 8.4F}},
         2,
         {.minShare = 0.8}},
        {"too old",
         {{.sinceWantedMs = -1001, .sharpness = 10}, {.sinceWantedMs = 0, .sharpness = 1}},
         2},
        {"not settled",
         {{.sinceWantedMs = -33, .aeStable = 0, .sharpness = 9},
          {.sinceWantedMs = 0, .sharpness = 1}},
         2},
        {"an unsettled focus shows in the picture",
         {{.sinceWantedMs = -33, .afState = NSCam::AF_STATE_PASSIVE_SCAN, .sharpness = 9},
          {.sinceWantedMs = 0, .sharpness = 1}},
         1},
        {"focus not told",
         {{.sinceWantedMs = -33, .lensState = {}, .sharpness = 9},
          {.sinceWantedMs = 0, .sharpness = 1}},
         2},
        {"metadata not readable",
         {{.sinceWantedMs = -33, .isReadable = false, .sharpness = 9},
          {.sinceWantedMs = 0, .sharpness = 1}},
         2},
        {"a recorded column will do",
         {{.sinceWantedMs = -33, .sharpnessColumn = 9}, {.sinceWantedMs = 0, .sharpnessColumn = 2}},
         1},
        {"the unknown is no sharper than the least",
         {{.sinceWantedMs = -66, .sharpness = 9}, {.sinceWantedMs = -33, .sharpness = 2}, {0}},
         1},
        {"nonsense is unknown",
         {{.sinceWantedMs = -33, .sharpness = NAN}, {.sinceWantedMs = 0, .sharpness = 1}},
         2},
        {"all black",
         {{.sinceWantedMs = -33, .sharpness = 0}, {.sinceWantedMs = 0, .sharpness = 0}},
         2},
        {"without measures the nearest", {{-33}, {0}, {33}}, 2},
        {"half the exposure, half the blur",
         {{.sinceWantedMs = -33, .exposureNs = 10 * MS},
          {.sinceWantedMs = 0, .exposureNs = 20 * MS}},
         1},
        {"a scan blurs", {{.afState = NSCam::AF_STATE_ACTIVE_SCAN}, {33}}, 2},
        {"a moving lens blurs", {{.lensState = NSCam::LENS_STATE_MOVING}, {33}}, 2},
        {"no more than what made it move", {{-33}, {.lensState = NSCam::LENS_STATE_MOVING}}, 2},
    };
    in.frameInfos.clear();
    want({RAW});
    auto required = std::make_shared<NSCam::ZslPolicy::RequiredStreams>();
    required->appMetas = {APP};
    in.frameInfos.at(0).requiredStreams = required;
    for (auto const& [what, frames, expected, rule] : cases) {
        SCOPED_TRACE(what);
        in.historyFrames.clear();
        for (Reported const& frame : frames) {
            push(frame);
        }
        EXPECT_THAT(chosen(rule), ElementsAre(expected));
    }
}

TEST_F(BestShotSelectorTest, GivesABurstTheBestRunOrTheBestOfEachPart) {
    want({RAW});
    BestShotRule const spread{.burst = BestShotRule::Burst::Spread};
    pushSharp({5, 9, 1, 7, 8, 1});
    EXPECT_THAT(chosen(), ElementsAre(4, 5)) << "9 and 8 are no neighbours";
    EXPECT_THAT(chosen(spread), ElementsAre(2, 5));
    pushSharp({9, 0, 9, 1, 1, 1});
    EXPECT_THAT(chosen(), ElementsAre(3, 4)) << "what fails breaks the run";
    in.historyFrames.erase(4);
    EXPECT_THAT(chosen(), ElementsAre(5, 6)) << "and so does what another capture took";

    in.durationMs = 199;
    pushSharp({9, 0, 9, 0, 1});
    EXPECT_THAT(chosen(), IsEmpty()) << "a run may come";
    EXPECT_THAT(chosen(spread), ElementsAre(1, 3));
    in.durationMs = 200;
    EXPECT_THAT(chosen(), ElementsAre(1, 3)) << "it has not";
    pushSharp({0, 9, 0, 0});
    EXPECT_THAT(chosen(), ElementsAre(2)) << "one of two, and the other waits for newer ones";
    want({RAW, SMALL_RAW});
    pushSharp({1, 1, 9, 9});
    in.historyFrames.at(3).halImages.insert(imageStream(SMALL_RAW).get());
    EXPECT_THAT(chosen(), ElementsAre(1, 2, 3)) << "only F3 has what the third one reads";
}

TEST_F(BestShotSelectorTest, LocksWhatIsPromisingWhileItWaits) {
    BestShotSelector const policy(BestShotRule{});
    pushSharp({1, 9, 1, 1}, -20);
    Answer answer = policy.select(in);
    EXPECT_THAT(answer.selected, IsEmpty()) << "the history ends before the wanted instant";
    EXPECT_THAT(answer.ops, ElementsAre(Pair(2, LOCK)));

    in.historyFrames.at(2).isLocked = true;
    auto const first = in;
    in.requestNo = 2;
    in.historyFrames.at(3).isLocked = true;
    EXPECT_THAT(policy.select(in).ops, ElementsAre(Pair(3, UNLOCK))) << "F2 is wanted by both";

    in = first;
    push({.sinceWantedMs = 13, .sharpness = 99});
    EXPECT_THAT(chosenOf(policy.select(in)), ElementsAre(Pair(0, 5)));
    EXPECT_THAT(policy.select(in).ops, IsEmpty()) << "the second capture still wants F2";
    in.requestNo = 2;
    EXPECT_THAT(policy.select(in).ops, ElementsAre(Pair(2, UNLOCK)));

    pushSharp({1, 9, 1, 1}, -20);
    EXPECT_THAT(policy.select(in).ops, ElementsAre(Pair(2, LOCK)));
    EXPECT_THAT(policy.select(in).ops, ElementsAre(Pair(2, UNLOCK))) << "delivered twice";
    EXPECT_THAT(policy.select(in).ops, ElementsAre(Pair(2, LOCK)));
    in.durationMs = 200;
    EXPECT_THAT(policy.select(in).ops, ElementsAre(Pair(2, RELEASE))) << "its twin is served";
}

/// A burst that is longer than the history is kept together by locks: half of what is in sight, of
/// which the policy keeps the oldest.
TEST_F(BestShotSelectorTest, KeepsNoMoreThanItMay) {
    for (int i = 0; i < 9; ++i) {
        want({RAW});
    }
    pushSharp({1, 1, 1, 1, 1, 1});
    auto const kept = [&](BestShotRule const& rule) {
        return BestShotSelector(rule).select(in).ops;
    };
    EXPECT_THAT(kept({}), ElementsAre(Pair(1, LOCK), Pair(2, LOCK), Pair(3, LOCK)));
    EXPECT_THAT(kept({.maxLocks = 1}), ElementsAre(Pair(1, LOCK)));
    EXPECT_THAT(kept({.maxLocks = 0}), IsEmpty());
}

class BestShotLocksTest : public ZslTest {};

/// Sharp and blurred, settled and unsettled frames, presses, retries, frames that come twice and
/// flushes, in any order.
TEST_F(BestShotLocksTest, AreGivenBackWhateverHappens) {
    captureLog({});
    history = std::make_shared<HistoryProvider>(5);
    std::mt19937 random(1);
    auto const upTo = [&random](unsigned most) { return random() % (most + 1); };
    auto const arrive = [&](uint32_t number, int32_t settled) {
        push({ExposedFrame(number)
                  .at(10 * static_cast<int64_t>(number) - 60)
                  .tag(HAL, NSCam::ZEB_3A_AE_SOFT_STABLE, settled)
                  .tag(APP, NSCam::ZslPolicy::PICTURE_SHARPNESS, static_cast<float>(upTo(9)))});
    };
    uint32_t frameNo = 0;
    uint64_t locked = 0;
    for (int round = 0; round < 20; ++round) {
        SCOPED_TRACE(round);
        auto const policy = std::make_shared<BestShotSelector>(BestShotRule{
            .holdMs = upTo(1) == 0 ? 0 : 40,
            .burst = upTo(1) != 0 ? BestShotRule::Burst::Run : BestShotRule::Burst::Spread});
        for (int step = 0; step < 40; ++step) {
            arrive(++frameNo, upTo(3) != 0);
            if (frameNo > 5 && upTo(9) == 0) {
                arrive(frameNo - upTo(5), 1);
            }
            clock.advance(10 * MS);
            if (upTo(5) == 0) {
                submit(capture(frameNo, 1 + upTo(3)).by(policy));
            }
            upTo(30) == 0 ? flush() : retry();
            locked += history->ledger()->totals().withProcessor;
        }
        for (int step = 0; step < 60 && zsl->hasZslPendingRequest(); ++step) {
            arrive(++frameNo, 1);
            passMs(10);
        }
        EXPECT_FALSE(zsl->hasZslPendingRequest());
        EXPECT_EQ(history->ledger()->totals().withProcessor, 0U) << "kept for nobody";
    }
    EXPECT_GT(locked, 500U) << "it is of locks that this tells";
}

}  // namespace
