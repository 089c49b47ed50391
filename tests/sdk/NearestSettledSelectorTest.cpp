#include <NearestSettledSelector.h>

#include "sdk/SelectorKitTest.h"

namespace {

using namespace zebcam::test;
using kit::NearestSettledSelector;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

class NearestSettledSelectorTest : public SelectorKitTest {
protected:
    std::map<uint64_t, uint32_t> chosen(NearestSettledSelector::Limits limits = {}) const {
        auto const out = NearestSettledSelector(limits).select(in);
        EXPECT_THAT(out.ops, IsEmpty());
        return chosenOf(out);
    }
};

TEST_F(NearestSettledSelectorTest, passesOverWhatDoesNotFit) {
    struct {
        char const* what;
        Reported nearest;
        bool fits;
    } const cases[] = {
        {"settled", {}, true},
        {"passive scan", {.afState = NSCam::AF_STATE_PASSIVE_SCAN}, false},
        {"moving lens", {.lensState = NSCam::LENS_STATE_MOVING}, false},
        {"scan without a lens state",
         {.afState = NSCam::AF_STATE_PASSIVE_SCAN, .lensState = {}},
         false},
        {"no state", {.afState = {}}, true},
        {"autofocus off",
         {.afMode = NSCam::AF_MODE_OFF, .lensState = NSCam::LENS_STATE_MOVING},
         true},
        {"exposure changing", {.aeStable = 0}, false},
        {"exposure not reported", {.aeStable = {}}, true},
        {"other sensor mode", {.sensorMode = 2}, false},
        {"unreadable metadata", {.isReadable = false}, false},
        {"out of step", {.frameSync = 1}, false},
        {"synchronisation not reported", {.frameSync = {}}, true},
    };
    in.frameInfos.clear();
    want({RAW}, {{0, 0}});
    in.needFrameSync = true;
    for (auto const& [what, nearest, fits] : cases) {
        SCOPED_TRACE(what);
        in.historyFrames.clear();
        push({.sinceWantedMs = -33});
        push(nearest);
        EXPECT_THAT(chosen(), ElementsAre(Pair(0, fits ? 2 : 1)));
    }
    in.needFrameSync = false;
    in.historyFrames.clear();
    push({.frameSync = 1});
    EXPECT_THAT(chosen(), ElementsAre(Pair(0, 1))) << "synchronisation was not asked for";
}

TEST_F(NearestSettledSelectorTest, waitsForTheHistoryToReachThePressButNotForEver) {
    push({.sinceWantedMs = -66});
    push({.sinceWantedMs = -33});
    EXPECT_THAT(chosen(), IsEmpty());
    in.durationMs = 199;
    EXPECT_THAT(chosen(), IsEmpty());
    in.durationMs = 200;
    EXPECT_THAT(chosen(), ElementsAre(Pair(0, 2)));
    in.durationMs = 0;
    push({.sinceWantedMs = 0, .aeStable = 0});
    EXPECT_THAT(chosen(), ElementsAre(Pair(0, 2))) << "the history has reached the press";
    EXPECT_THAT(chosen({.maxAgeMs = 32}), IsEmpty());
}

TEST_F(NearestSettledSelectorTest, givesABurstTheNearestFramesInAscendingOrder) {
    want({RAW});
    want({RAW});
    for (int64_t since : {-99, -66, -33, 0, 33}) {
        push({.sinceWantedMs = since});
    }
    in.historyFrames.at(3).appMetas[metaStream(APP).get()] = nullptr;
    EXPECT_THAT(chosen(), ElementsAre(Pair(0, 2), Pair(1, 4), Pair(2, 5)));

    in.historyFrames.erase(1);
    in.historyFrames.erase(2);
    EXPECT_THAT(chosen(), ElementsAre(Pair(0, 4), Pair(1, 5))) << "the first two are served";
}

TEST_F(NearestSettledSelectorTest, servesAsManyAsPossibleWhenFramesNeedDifferentStreams) {
    in.frameInfos.clear();
    want({RAW});
    want({RAW, SMALL_RAW});
    push({.sinceWantedMs = -66});
    push({.sinceWantedMs = 0, .hasSmallRaw = true});
    EXPECT_THAT(chosen(), ElementsAre(Pair(0, 1), Pair(1, 2)))
        << "the nearest frame is left to the one that only it can serve";
    in.historyFrames.erase(1);
    EXPECT_THAT(chosen(), ElementsAre(Pair(0, 2)));
}

}  // namespace
