#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <thread>

#include "ZslFixture.h"

namespace zebcam::test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using InvariantDeathTest = ZslTest;

TEST_F(InvariantDeathTest, DifferentNumbersOfSettingsAndBuildersAbort) {
    auto wanted = capture(5, 2);
    wanted.params.vFrameBuilder.pop_back();
    EXPECT_EXIT(submit(wanted), ::testing::KilledBySignal(SIGABRT),
                "\\[Fatal\\] \\[prepareFrames\\] mismatch - #vReqResult:2 #vFrameBuilder:1");
}

TEST_F(InvariantDeathTest, ChoiceForAServedFrameAborts) {
    push({11, 12});
    auto const selector = answering({choose({{0, 11}}), choose({{0, 12}})});
    EXPECT_EQ("[5.0=F11]", submit(capture(5, 2).by(selector)));
    EXPECT_EXIT(retry(), ::testing::KilledBySignal(SIGABRT),
                "\\[Fatal\\] \\[prepareSelectedParams\\] wrong frameIdx! objIdx=1, selIdx=0");
    leavesPending = true;
}

/// A metadata buffer that cannot be locked while a frame is built: the thread says so and sleeps.
struct Unlockable {
    char const* name;
    std::function<void(ExposedFrame&, FrameBuilder&)> change;
    std::string message;
};

class AssertTest : public ZslTest, public ::testing::WithParamInterface<Unlockable> {};

TEST_P(AssertTest, ThreadSaysSoAndSleepsForEver) {
    constexpr int STILL_ASLEEP = 7;
    ExposedFrame frame(11);
    auto wanted = capture(5).by(answering({choose({{0, 11}})}));
    GetParam().change(frame, *wanted.frames[0]);
    push({frame});
    auto const submitForAWhile = [&] {
        logCapture.reset();
        logCapture.emplace(LogSettings{1, 0, 0},
                           [](LogLine const& l) { std::fputs(l.message.c_str(), stderr); });
        std::thread([] {
            std::this_thread::sleep_for(std::chrono::milliseconds(700));
            _exit(STILL_ASLEEP);
        }).detach();
        submit(wanted);
        _exit(1);
    };
    EXPECT_EXIT(
        submitForAWhile(), ::testing::ExitedWithCode(STILL_ASLEEP),
        AllOf(StartsWith(GetParam().message), HasSubstr(":pipeline/model/zsl/ZslProcessor}")));
}

Unlockable const UNLOCKABLE[] = {
    {"HistoryHalMeta", [](auto& f, auto&) { f.unlockable = {HAL}; },
     "[Assert] [prepareHalMeta] history metadata=nullptr (HalMeta)(0x10000001b:meta:10000001b) "
     "(prepareHalMeta){#"},
    {"ControlHalMeta",
     [](auto&, auto& b) { hostBuffer(b.halMeta(HAL_CONTROL)).setLockable(false); },
     "[Assert] [prepareHalMeta] ctrl metadata=nullptr (HalMeta) (prepareHalMeta){#"},
    {"HistoryAppMeta", [](auto& f, auto&) { f.unlockable = {APP}; },
     "[Assert] [prepareAppMeta] history metadata=nullptr (AppMeta)(0x100000024:meta:100000024) "
     "(prepareAppMeta){#"},
    {"ControlAppMeta",
     [](auto&, auto& b) { hostBuffer(b.appMeta(APP_CONTROL)).setLockable(false); },
     "[Assert] [prepareAppMeta] ctrl metadata=nullptr (AppMeta) (prepareAppMeta){#"},
};
INSTANTIATE_TEST_SUITE_P(Metadata, AssertTest, ::testing::ValuesIn(UNLOCKABLE), caseName);

}  // namespace
}  // namespace zebcam::test
