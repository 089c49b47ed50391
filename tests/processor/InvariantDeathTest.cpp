#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "ZslFixture.h"

namespace zebcam::test {
namespace {

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

class AssertTest : public ZslTest, public ::testing::WithParamInterface<Unlockable> {
protected:
    /// Submits in a child whose Android log comes through the returned pipe.
    int submitInChild(Capture const& wanted, pid_t& child) {
        int ends[2] = {};
        EXPECT_EQ(0, pipe(ends));
        child = fork();
        if (child == 0) {
            logCapture.reset();
            logCapture.emplace(LogSettings{1, 0, 0}, [fd = ends[1]](LogLine const& l) {
                if (write(fd, l.message.data(), l.message.size()) < 0) {
                    _exit(2);
                }
            });
            submit(wanted);
            _exit(1);
        }
        close(ends[1]);
        return ends[0];
    }
};

TEST_P(AssertTest, ThreadSaysSoAndSleepsForEver) {
    ExposedFrame frame(11);
    auto wanted = capture(5).by(answering({choose({{0, 11}})}));
    GetParam().change(frame, *wanted.frames[0]);
    push({frame});
    pid_t child = 0;
    int const fd = submitInChild(wanted, child);
    pollfd readable{fd, POLLIN, 0};
    std::string said(1024, '\0');
    ASSERT_EQ(1, poll(&readable, 1, 10'000));
    said.resize(static_cast<size_t>(std::max<ssize_t>(0, read(fd, said.data(), said.size()))));
    EXPECT_EQ(0U, said.find(GetParam().message)) << said;
    EXPECT_NE(std::string::npos, said.find(":pipeline/model/zsl/ZslProcessor}")) << said;
    EXPECT_EQ(0, poll(&readable, 1, 700)) << "the pipe closed: the child ended";
    EXPECT_EQ(0, waitpid(child, nullptr, WNOHANG));
    kill(child, SIGKILL);
    int status = 0;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    EXPECT_TRUE(WIFSIGNALED(status));
    close(fd);
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
