#include "ZslFixture.h"

namespace zebcam::test {
namespace {

TEST_F(ZslTest, FlushTurnsPendingIntoOrdinaryCaptures) {
    history->announce(12);
    push({11});
    auto parked = capture(5, 4).by(answering({choose({{1, 11}, {2, 12}})}));
    auto waiting = capture(6);
    EXPECT_EQ("[5.1=F11]", submit(parked));
    submit(waiting);
    EXPECT_EQ("[5.0=none 5.2=none 5.3=none][6.0=none]", flush());
    EXPECT_EQ(1U, logged("[flush] [requestNo:5]: change pending to normal capture (frames:#3 + "
                         "tuning:#0)"));
    EXPECT_EQ(SHUTTER + 11 * MS + 1000, parked.frames[2]->timestamp());
    EXPECT_EQ(SHUTTER + 11 * MS + 2000, waiting.frames[0]->timestamp());
}

TEST_F(ZslTest, FlushOfNothingOnlySaysSo) {
    log.clear();
    EXPECT_EQ("", flush());
    EXPECT_EQ((std::vector<std::string>{"[flush] +", "[flush] -"}), lines());
    EXPECT_EQ(0U, history->takeEndSelectCalls());
}

TEST_F(ZslTest, FlushGivesLockedListsBackWithOneCompletionEach) {
    push({11, 12, 13});
    submit(capture(5).by(answering({choose({{0, NO_FRAME}}, {{11, LOCK}, {12, LOCK}})}, "B")));
    submit(capture(6).by(answering({order(LOCK, 13)}, "A")));
    for (char const* counts : {"A](#1)B](#2)", "A](#0)B](#0)"}) {
        history->takeEndSelectCalls();
        log.clear();
        EXPECT_EQ("", flush());
        EXPECT_EQ(2U, history->takeEndSelectCalls());
        std::string said;
        for (auto const& text : lines()) {
            auto const at = text.find("return and release lockedBuffers of [");
            said += at == std::string::npos ? "" : text.substr(at + 37);
        }
        EXPECT_EQ(counts, said);
        EXPECT_TRUE(history->ledger()->totals().balances());
    }
}

TEST_F(ZslTest, FlushGivesUpAtAMissingFrameBuilderAndChangesNothing) {
    push({12});
    submit(capture(5).by(answering({order(LOCK, 12)})));
    history->announce(11);
    auto const first = answering({choose({{0, 11}}), {}, choose({{1, NO_FRAME}})});
    auto parked = capture(6, 2).by(first);
    auto broken = capture(7, 2);
    broken.params.vFrameBuilder[1] = nullptr;
    submit(parked);
    submit(broken);
    log.clear();
    EXPECT_EQ("", flush());
    EXPECT_EQ(1U, logged("[flush] bad pFrameBuilder - requestNo:7"));
    EXPECT_EQ(0U, logged("[flush] -"));
    EXPECT_EQ(1U, history->ledger()->totals().withProcessor) << "F12 stays locked";
    EXPECT_EQ(0U, history->takeEndSelectCalls() % 2);
    EXPECT_FALSE(parked.frames[0]->timestamp());
    push({11});
    EXPECT_EQ("[6.0=F11 6.1=none]", passMs(0)) << "the choice in flight is still known";
    EXPECT_EQ(1U, first->seen.at(2).frameInfos.size()) << "no choice is asked for again";
    EXPECT_EQ("[7.0=none]", passMs(3001));
}

}  // namespace
}  // namespace zebcam::test
