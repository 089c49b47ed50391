#include "compare/ChildPool.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <list>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "base/Duration.h"
#include "base/Text.h"
#include "log/Logcat.h"

namespace zebcam::tool::compare {

namespace {

/// Waits until a child has something to say or its time is over, or a signal comes.
void waitForAny(std::list<Child> const& children, base::SignalWatch const& signals) {
    std::vector<pollfd> fds = {{signals.fd(), POLLIN, 0}};
    Child::Clock::time_point deadline = Child::Clock::time_point::max();
    for (Child const& child : children) {
        fds.push_back({child.resultFd(), POLLIN, 0});
        fds.push_back({child.outputFd(), POLLIN, 0});
        deadline = std::min(deadline, child.deadline());
    }
    auto const left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - Child::Clock::now()).count();
    // An hour at most, which is how long a time-out may be.
    int const timeoutMs = static_cast<int>(std::clamp<int64_t>(left, 0, 3'600'000));
    if (poll(fds.data(), fds.size(), timeoutMs) < 0 && errno != EINTR) {
        throw std::system_error(errno, std::generic_category(), "poll");
    }
    signals.throwIfAny();
}

}  // namespace

void runInChildren(size_t tasks, ChildPoolOptions const& options, base::SignalWatch const& signals,
                   ChildTask const& task, ChildListener const& onEnd) {
    std::list<Child> children;
    for (size_t next = 0; next < tasks || !children.empty();) {
        while (next < tasks && children.size() < options.jobs) {
            children.emplace_back(next++, options, signals, task);
        }
        waitForAny(children, signals);
        for (auto child = children.begin(); child != children.end();) {
            if (child->read()) {
                ++child;
            } else {
                onEnd(child->task(), child->finish());
                child = children.erase(child);
            }
        }
    }
}

namespace {

constexpr size_t kKeptOutput = 4096;
constexpr int kTaskFailed = 1;

/// The first byte of what a child sends.
constexpr char kIsData = 'd';
constexpr char kIsFailure = 'f';

[[noreturn]] void failWith(char const* call) {
    throw std::system_error(errno, std::generic_category(), call);
}

struct Pipe {
    Pipe() {
        if (pipe2(fds.data(), O_CLOEXEC) != 0) {
            failWith("pipe");
        }
    }
    ~Pipe() {
        for (int const fd : fds) {
            if (fd >= 0) {
                close(fd);
            }
        }
    }
    Pipe(Pipe const&) = delete;
    Pipe& operator=(Pipe const&) = delete;

    /// The reading end, which the caller owns from now on.
    int takeReader() {
        fcntl(fds[0], F_SETFL, O_NONBLOCK);
        return std::exchange(fds[0], -1);
    }

    std::array<int, 2> fds{-1, -1};
};

/// Appends what can be read now; false at the end.
bool drain(int fd, std::string& text) {
    std::array<char, 4096> buffer;
    for (;;) {
        ssize_t const size = ::read(fd, buffer.data(), buffer.size());
        if (size > 0) {
            text.append(buffer.data(), static_cast<size_t>(size));
        } else if (size == 0 || (errno != EINTR && errno != EAGAIN)) {
            return false;
        } else if (errno == EAGAIN) {
            return true;
        }
    }
}

void writeAll(int fd, std::string_view text) {
    while (!text.empty()) {
        ssize_t const size = write(fd, text.data(), text.size());
        if (size < 0 && errno != EINTR) {
            _exit(kTaskFailed);
        }
        text.remove_prefix(size > 0 ? static_cast<size_t>(size) : 0);
    }
}

std::string_view lastLine(std::string_view text) {
    size_t const end = text.find_last_not_of("\r\n ");
    text = text.substr(0, end == std::string_view::npos ? 0 : end + 1);
    size_t const begin = text.rfind('\n');
    return begin == std::string_view::npos ? text : text.substr(begin + 1);
}

}  // namespace

Child::Child(size_t task, ChildPoolOptions const& options, base::SignalWatch const& signals,
             ChildTask const& run)
    : mTask(task),
      mTimeLimit(std::chrono::duration_cast<Clock::duration>(options.timeLimit)),
      mDeadline(Clock::now() + mTimeLimit) {
    Pipe result;
    Pipe output;
    pid_t const parent = getpid();
    mPid = fork();
    if (mPid < 0) {
        failWith("fork");
    }
    if (mPid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) {
            _exit(kTaskFailed);
        }
        runChild(result.fds[1], output.fds[1], signals, run);
    }
    mResultFd = result.takeReader();
    mOutputFd = output.takeReader();
}

Child::~Child() {
    if (mPid > 0) {
        finish();
    }
}

void Child::runChild(int resultFd, int outputFd, base::SignalWatch const& signals,
                     ChildTask const& run) const {
    signals.restoreMask();
    int const nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
    dup2(nothing, STDIN_FILENO);
    dup2(outputFd, STDOUT_FILENO);
    dup2(outputFd, STDERR_FILENO);
    std::string text;
    try {
        text = kIsData + run(mTask);
    } catch (std::exception const& error) {
        text = kIsFailure + std::string(error.what());
    } catch (...) {
        text = kIsFailure + std::string("unknown exception");
    }
    writeAll(resultFd, text);
    // Neither the buffers nor the temporary files of the parent are the child's to deal with.
    _exit(0);
}

bool Child::read() {
    if (mOutputFd >= 0 && !drain(mOutputFd, mOutput)) {
        close(std::exchange(mOutputFd, -1));
    }
    if (mOutput.size() > kKeptOutput) {
        mOutput.erase(0, mOutput.size() - kKeptOutput);
    }
    return drain(mResultFd, mResult) && Clock::now() < mDeadline;
}

ChildOutcome Child::finish() {
    bool const isRunning = read() || drain(mResultFd, mResult);
    if (isRunning) {
        kill(mPid, SIGKILL);
    }
    int status = 0;
    while (waitpid(mPid, &status, 0) < 0 && errno == EINTR) {
    }
    mPid = -1;
    if (mOutputFd >= 0) {
        drain(mOutputFd, mOutput);
        close(mOutputFd);
    }
    close(mResultFd);
    if (isRunning) {
        return {{},
                fmt::format("no result after {}, killed (--time-limit)",
                            base::formatDuration(std::chrono::nanoseconds(mTimeLimit).count()))};
    }
    if (status == 0 && mResult.starts_with(kIsData)) {
        return {mResult.substr(1), {}};
    }
    return {{}, failureOf(status)};
}

std::string Child::failureOf(int status) const {
    if (status == 0 && mResult.starts_with(kIsFailure)) {
        return mResult.substr(1);
    }
    std::string failure;
    if (WIFSIGNALED(status)) {
        failure = fmt::format("the run was ended by signal {} ({})", WTERMSIG(status),
                              strsignal(WTERMSIG(status)));
    } else {
        failure = fmt::format("the run ended early with status {}", WEXITSTATUS(status));
    }
    if (std::string const said = base::printable(lastLine(mOutput)); !said.empty()) {
        failure += ": " + said;
    }
    return failure;
}

}  // namespace zebcam::tool::compare
