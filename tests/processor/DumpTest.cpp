#include <host/Debuggees.h>

#include <future>

#include "ZslFixture.h"

namespace zebcam::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsSupersetOf;
using ::testing::StartsWith;

constexpr char DEBUGGEE[] = "NSCam::v3::pipeline::model::IZslProcessor";

TEST_F(ZslTest, DumpShowsThePendingCaptures) {
    LinePrinter idle, busy;
    zsl->debug(idle, {});
    EXPECT_THAT(idle.lines, ElementsAre(" *Pending Request*"));
    submit(capture(5));
    submit(capture(6));
    clock.advance(20 * MS);
    dumpDebuggees(busy);
    EXPECT_THAT(busy.lines, IsSupersetOf({" *Pending Request*", "  requestNo:5", "  requestNo:6"}));
    EXPECT_THAT(busy.lines, Contains(StartsWith("    { requestNo=5 duration=20 zsdTs=")));
    leavesPending = true;
}

TEST_F(ZslTest, DumpDoesNotWaitForAStuckCapture) {
    LinePrinter printer;
    auto wanted = capture(5);
    wanted.by(std::make_shared<ScriptedSelector>([&](auto const&) {
        std::async(std::launch::async, [&] { zsl->debug(printer, {}); }).wait();
        return choose({{0, NO_FRAME}});
    }));
    submit(wanted);
    EXPECT_THAT(printer.lines, ElementsAre("Timeout waiting for mLock"));
}

TEST_F(ZslTest, ProcessorIsADebuggeeAsLongAsItLives) {
    EXPECT_THAT(debuggeeNames(), ElementsAre(DEBUGGEE));
    zsl.clear();
    EXPECT_THAT(debuggeeNames(), ElementsAre());
    setDebuggeeManagerAvailable(false);
    start();
    setDebuggeeManagerAvailable(true);
    EXPECT_THAT(debuggeeNames(), ElementsAre());
    push({11});
    EXPECT_EQ("[5.0=F11]", submit(capture(5)));
    zsl.clear();
}

TEST_F(ZslTest, ProcessorMayDieWithCapturesPending) {
    auto wanted = capture(5);
    submit(wanted);
    zsl.clear();
    EXPECT_EQ(1U, callback->results.size());
    EXPECT_FALSE(wanted.frames[0]->builtFromHistory()) << "nothing was built";
    EXPECT_EQ(1, callback->getStrongCount()) << "the processor must not keep the callback";
}

}  // namespace
}  // namespace zebcam::test
