#include <host/ImageStreamBuffer.h>

#include "ZslFixture.h"

namespace zebcam::test {
namespace {

using Numbers = std::vector<uint32_t>;

Answer cloneOf(uint32_t frameNo) {
    auto answer = choose({{0, frameNo}});
    answer.selected[0].needClone = true;
    return answer;
}

template <typename... Answers>
std::vector<Answer> then(Answers... answers) {
    return {answers...};
}

/// Frames that a policy was shown, for instance "F11 F12 F10(locked) ".
std::string shown(ScriptedSelector const& selector, size_t call = 0) {
    std::string text;
    for (auto const& [number, frame] : selector.seen.at(call).historyFrames) {
        EXPECT_EQ(number, frame.frameNo);
        text += "F" + std::to_string(number) + (frame.isLocked ? "(locked) " : " ");
    }
    return text;
}

/// A capture per answer, over F11 and F12 that are here and F13 that is in flight.
struct Orders {
    char const* name;
    std::vector<Answer> answers;
    std::string served;      ///< of all captures together
    std::string shownAtEnd;  ///< to a further capture
    uint64_t released;       ///< sets let go for good
    std::string says;        ///< text of a log line
};

class OrdersTest : public ZslTest, public ::testing::WithParamInterface<Orders> {};

TEST_P(OrdersTest, MoveHistoryFrames) {
    push({11, 12});
    history->announce(13);
    std::string served;
    uint32_t requestNo = 5;
    for (auto const& answer : GetParam().answers) {
        served += submit(capture(requestNo++).by(answering({answer})));
    }
    EXPECT_EQ(1U, logged(GetParam().says));
    EXPECT_EQ(GetParam().served, served);
    EXPECT_EQ(GetParam().released, history->ledger()->totals().released);
    auto const last = answering({});
    submit(capture(9).by(last));
    EXPECT_EQ(GetParam().shownAtEnd, shown(*last));
    leavesPending = true;
}

Orders const ORDERS[] = {
    {"NoFrame", then(choose({{0, NO_FRAME}})), "[5.0=none]", "F11 F12 ", 0,
     "] selectOut: { selected={ 0-[F-1 addMeta(#0)] } ops={ }}"},
    {"Lock", then(order(LOCK, 11)), "[5.0=none]", "F11(locked) F12 ", 0,
     "   { F11 R11 Ts100011000000 halImage{ 21 } halMeta{ 10000001b } appMeta{ 100000024 } }"},
    {"LockThenUnlock", then(order(LOCK, 11), order(UNLOCK, 11)), "[5.0=none][6.0=none]", "F11 F12 ",
     0, "ops={ F11(1) }}"},
    {"LockThenRelease", then(order(LOCK, 11), order(RELEASE, 11)), "[5.0=none][6.0=none]", "F12 ",
     1, "ops={ F11(2) }}"},
    {"ReleaseFromHistory", then(choose({{0, 12}}, {{11, RELEASE}})), "[5.0=F12]", "", 1,
     "[getSelectedHbs] get hbs[F12] from history"},
    {"AllKindsInOneAnswer",
     then(order(LOCK, 11), choose({{0, NO_FRAME}}, {{11, UNLOCK}, {12, LOCK}})),
     "[5.0=none][6.0=none]", "F11 F12(locked) ", 0, "ops={ F11(1) F12(0) }}"},
    {"TakeFromLocked", then(order(LOCK, 11), choose({{0, 11}})), "[5.0=none][6.0=F11]", "F12 ", 0,
     "[getSelectedHbs] get hbs[F11] from locked"},
    {"CloneFromHistory", then(cloneOf(11)), "[5.0=F11]", "F11 F12 ", 0,
     "[getClonedHbs] clone hbs[F11] from history"},
    {"CloneFromLocked", then(order(LOCK, 11), cloneOf(11)), "[5.0=none][6.0=F11]",
     "F11(locked) F12 ", 0, "[getClonedHbs] clone hbs[F11] from locked"},
    {"TakenBeforeItsOrder", then(choose({{0, 11}}, {{11, LOCK}})), "[5.0=F11]", "F12 ", 0,
     "[lockBuffersForSelector] cannot find hbs[F11] to lock"},
    {"ReleaseOfAnUnknownFrame", then(order(RELEASE, 77)), "[5.0=none]", "F11 F12 ", 0,
     "[releaseBuffersForSelector] cannot find hbs[F77] to release"},
    {"ChosenFrameIsGone", then(choose({{0, 77}})), "[5.0=none]", "F11 F12 ", 0,
     "[getSelectedHbs] cannot get hbs[F77]"},
    {"MoreChosenThanWanted", then(choose({{0, 11}, {1, 12}, {2, 12}})), "[5.0=F11]", "F12 ", 0,
     "[prepareSelectedParams] select redundant#2"},
};
INSTANTIATE_TEST_SUITE_P(Orders, OrdersTest, ::testing::ValuesIn(ORDERS), caseName);

TEST_F(ZslTest, SelectorSeesTheCapture) {
    push({11});
    history->announce(12);
    auto const selector = answering({});
    auto wanted = capture(5, 2).by(selector).sensorMode(0, 7);
    wanted.params.needFrameSync = true;
    wanted.required(1) = {{YUV}, {HAL}, {}};
    submit(wanted);
    auto const& first = selector->seen.at(0);
    EXPECT_TRUE(first.needFrameSync);
    ASSERT_EQ(1U, first.inflightInfos.size());
    EXPECT_EQ(12U, first.inflightInfos[0].frameNo);
    ASSERT_EQ(2U, first.frameInfos.size());
    EXPECT_EQ(std::set<int64_t>{YUV}, first.frameInfos.at(1).requiredStreams->halImages);
    EXPECT_EQ(7U, first.frameInfos.at(0).requiredSensorModes->at(0));
    leavesPending = true;
}

TEST_F(ZslTest, InFlightFrameIsParkedAndServedWhenItArrives) {
    push({11});
    history->announce(12);
    history->announce(13);
    auto const selector = answering({choose({{0, 11}, {1, 13}, {2, 12}})});
    EXPECT_EQ("[5.0=F11]", submit(capture(5, 3).by(selector)));
    EXPECT_EQ(1U, logged("fail. (selected:#1, preselect:#2, remaining:#0) => add to pending"));
    EXPECT_EQ(1U, logged("Inflight(Sel#2, Op#0): { selected={ 1-[F13 addMeta(#0)] 2-[F12 "));
    EXPECT_EQ("", retry()) << "still in flight";
    push({12});
    EXPECT_EQ("[5.2=F12]", retry());
    push({13});
    EXPECT_EQ("[5.1=F13]", retry());
    EXPECT_EQ(3U, logged("selectOut: no need to trigger selector to select, pre-select only"));
    EXPECT_EQ(1U, logged("update fakeShutter: "));
    EXPECT_EQ(0U, logged("select redundant")) << "a served choice was kept";
}

TEST_F(ZslTest, OrdersOnFramesInFlightAreCarriedOutOnArrival) {
    history->announce(11);
    history->announce(12);
    auto const selector = answering({choose({}, {{11, LOCK}, {12, RELEASE}}),
                                     choose({}, {{12, UNLOCK}}), choose({}, {{12, LOCK}})});
    submit(capture(5).by(selector));
    EXPECT_EQ(1U, logged("[lockBuffersForSelector] inflight hbs[F11] to lock"));
    EXPECT_EQ(1U, logged("[releaseBuffersForSelector] inflight hbs[F12] to release"));
    push({11});
    retry();  // F11 is locked; F12 is now to be unlocked instead of released
    EXPECT_EQ(Numbers{}, history->frameNumbers());
    EXPECT_EQ(1U, logged("[unlockBuffersForSelector] inflight hbs[F12] to unlock"));
    push({12});
    retry();  // today's order on F12 comes first, the remembered one a call later
    EXPECT_EQ(Numbers{}, history->frameNumbers());
    retry();
    EXPECT_EQ(Numbers{12}, history->frameNumbers());
    EXPECT_EQ(0U, logged("cannot find"));
    EXPECT_EQ("F11(locked) F12(locked) ", shown(*selector, 3));
    leavesPending = true;
}

/// Notes what is given back to the history behind it.
class NotingProvider final : public IHistoryBufferProvider {
public:
    explicit NotingProvider(std::shared_ptr<HistoryProvider> behind) : mBehind(std::move(behind)) {}
    std::string getName() const override { return {}; }
    void dump(android::Printer&) const override {}
    void beginSelect() override {}
    auto getHistoryBufferSets() -> std::optional<std::list<HistoryBufferSet>> override {
        return mBehind->getHistoryBufferSets();
    }
    void endSelect() override {}
    void returnBufferSet(ReturnedBufferSet& set) override {
        returned.emplace_back(set.pSet->frameNo, set.isUnused);
        mBehind->returnBufferSet(set);
    }
    std::vector<ZslPolicy::InFlightInfo> getInFlightInfos() const override { return {}; }
    HistoryBufferSet cloneBufferSet(HistoryBufferSet const& original) override {
        return mBehind->cloneBufferSet(original);
    }

    std::vector<std::pair<uint32_t, bool>> returned;

private:
    std::shared_ptr<HistoryProvider> const mBehind;
};

TEST_F(ZslTest, SetThatLacksAStreamIsNeitherUsedNorLost) {
    push({ExposedFrame(11).with({YUV})});
    auto const provider = std::make_shared<NotingProvider>(history);
    auto wanted = capture(5).by(answering({cloneOf(11)}));
    wanted.params.pHistoryBufferProvider = provider;
    EXPECT_EQ("[5.0=none]", submit(wanted));
    EXPECT_EQ(1U, logged("[getClonedHbs] hbs[F11] does not contain all required streams"));
    EXPECT_EQ((std::vector{std::pair(11U, true)}), provider->returned) << "the clone is dropped";
    EXPECT_EQ(1U, history->ledger()->totals().released);
    EXPECT_EQ(Numbers{11}, history->frameNumbers());
    submit(capture(5).by(answering({order(LOCK, 11)})));
    EXPECT_EQ("[6.0=none]", submit(capture(6).by(answering({choose({{0, 11}})}))));
    EXPECT_EQ(1U, logged("[getSelectedHbs] hbs[F11] does not contain all required streams"));
}

TEST_F(ZslTest, HistoryGoesBeforeTheLockedListUnlessItLacksAStream) {
    push({11});
    submit(capture(5).by(answering({order(LOCK, 11)})));
    push({11});
    auto const selector = answering({cloneOf(11), choose({{0, 11}}), choose({{0, 11}})});
    EXPECT_EQ("[6.0=F11]", submit(capture(6).by(selector)));
    EXPECT_EQ("F11 ", shown(*selector)) << "the set of the history hides the locked one";
    EXPECT_EQ(1U, logged("[getClonedHbs] clone hbs[F11] from history"));
    EXPECT_EQ("[7.0=F11]", submit(capture(7).by(selector)));
    EXPECT_EQ(1U, logged("[getSelectedHbs] get hbs[F11] from history"));
    push({ExposedFrame(11).with({YUV})});
    EXPECT_EQ("[8.0=F11]", submit(capture(8).by(selector)));
    EXPECT_EQ(1U, logged("[getSelectedHbs] get hbs[F11] from locked"));
    EXPECT_EQ(Numbers{11}, history->frameNumbers());
}

TEST_F(ZslTest, LockedListBelongsToTheSelectorsNameAndGrowsAtItsEnd) {
    push({11, 12});
    submit(capture(5).by(answering({order(LOCK, 12)}, "A")));
    submit(capture(6).by(answering({order(LOCK, 11)}, "A")));
    auto const stranger = answering({choose({{0, NO_FRAME}})}, "B");
    auto const namesake = answering({choose({{0, NO_FRAME}})}, "A");
    submit(capture(7).by(stranger));
    log.clear();
    submit(capture(8).by(namesake));
    EXPECT_EQ("", shown(*stranger));
    EXPECT_EQ("F11(locked) F12(locked) ", shown(*namesake));
    EXPECT_EQ(1U, logged("dump locked [A]"));
    EXPECT_EQ(0U, logged("dump locked [B]")) << "an empty list";
    EXPECT_EQ(0U, line("   { F1").find("   { F11")) << "F11 was locked last";
}

TEST_F(ZslTest, StreamsThatAreNotRequiredAreReleased) {
    auto frame = ExposedFrame(11).with({RAW, YUV});
    frame.metas[HAL + 1] = frame.metas[HAL];
    frame.metas[APP + 1] = frame.metas[APP];
    auto const set = frame.set();
    android::sp<ImageStreamBuffer> const yuv =
        static_cast<ImageStreamBuffer*>(set.halImage[1].get());
    history->arrive(set);
    for (auto const& answer : {cloneOf(11), choose({{0, 11}})}) {
        EXPECT_FALSE(yuv->isReleased());
        auto wanted = capture(5).by(answering({answer}));
        EXPECT_EQ("[5.0=F11]", submit(wanted));
        EXPECT_EQ(nullptr, wanted.frames[0]->halMeta(HAL + 1));
        EXPECT_EQ(nullptr, wanted.frames[0]->appMeta(APP + 1));
    }
    EXPECT_TRUE(yuv->isReleased());
}

TEST_F(ZslTest, ProblematicSetsNeverReachASelector) {
    ExposedFrame broken(12);
    broken.hasImageError = true;
    broken.tag<int32_t>(HAL, ZEB_P1NODE_PURE_RAW, 1);
    push({ExposedFrame(11).tag<int32_t>(HAL, ZEB_P1NODE_PURE_RAW, 1), broken,
          ExposedFrame(13).tag<int32_t>(HAL, ZEB_P1NODE_PURE_RAW, 0), 14});
    auto const lax = answering({choose({{0, NO_FRAME}})});
    submit(capture(5).by(lax));
    EXPECT_EQ("F11 F13 F14 ", shown(*lax));
    EXPECT_EQ(1U, logged("image:21: X"));
    EXPECT_EQ(1U, logged("hbs[F12] is problematic, return and release"));
    EXPECT_EQ(1U, history->ledger()->totals().released);
    auto const strict = answering({choose({{0, NO_FRAME}})});
    auto checked = capture(6).by(strict);
    checked.params.checkPureRaw = true;
    submit(checked);
    EXPECT_EQ("F13 F14 ", shown(*strict));
    EXPECT_EQ(1U, logged("meta:10000001b: X"));
    EXPECT_EQ(1U, logged("[isMatched] [isPDPureRaw] tag(0xc0010011) val=0 target=1"));
    EXPECT_EQ(2U, history->ledger()->totals().released);
}

TEST_F(ZslTest, ProviderWithoutHistoryAndTheEndOfEverySelection) {
    push({11});
    history->setHasHistory(false);
    EXPECT_EQ("", submit(capture(5)));
    EXPECT_EQ(2U, history->takeEndSelectCalls());
    EXPECT_EQ(SHUTTER + 1000, callback->shutters().at(0).second);
    history->setHasHistory(true);
    EXPECT_EQ("[5.0=F11]", retry());
    EXPECT_EQ(2U, history->takeEndSelectCalls());
}

}  // namespace
}  // namespace zebcam::test
