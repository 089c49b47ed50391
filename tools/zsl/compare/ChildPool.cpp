#include "compare/Comparison.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <list>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "base/Text.h"

namespace zebcam::tool::compare {

namespace {

using Clock = std::chrono::steady_clock;

// Only the last line is shown, and a run may print without end.
constexpr size_t kKeptOutput = 4096;

/// Status of a child whose task threw; its result is the exception's text.
constexpr int kTaskFailed = 3;

[[noreturn]] void failWith(char const* call) {
    throw std::system_error(errno, std::generic_category(), call);
}

/// What comes from a child. The child gets the writing end when it is forked.
class Pipe {
public:
    Pipe() {
        if (pipe2(mEnds.data(), O_CLOEXEC) != 0) {
            failWith("pipe");
        }
    }
    ~Pipe() {
        closeEnd(mEnds[0]);
        closeEnd(mEnds[1]);
    }
    Pipe(Pipe const&) = delete;
    Pipe& operator=(Pipe const&) = delete;

    /// -1 when the pipe has come to its end.
    int reader() const { return mEnds[0]; }
    int writer() const { return mEnds[1]; }

    /// The end comes only when nobody can write any more, so this process must not.
    void becomeReader() {
        closeEnd(mEnds[1]);
        fcntl(mEnds[0], F_SETFL, O_NONBLOCK);
    }

    /// Appends what can be read now; false at the end.
    bool drain(std::string& text) {
        std::array<char, 4096> buffer;
        while (mEnds[0] >= 0) {
            ssize_t const size = read(mEnds[0], buffer.data(), buffer.size());
            if (size > 0) {
                text.append(buffer.data(), static_cast<size_t>(size));
            } else if (size < 0 && errno == EAGAIN) {
                return true;
            } else if (size == 0 || errno != EINTR) {
                closeEnd(mEnds[0]);
            }
        }
        return false;
    }

private:
    static void closeEnd(int& end) {
        if (end >= 0) {
            close(std::exchange(end, -1));
        }
    }

    std::array<int, 2> mEnds{-1, -1};
};

/// A forked process that runs one task. Killed when the object is destroyed before its end.
class Child {
public:
    /// Throws std::system_error.
    Child(size_t task, ChildPoolOptions const& options, base::SignalWatch const& signals,
          ChildTask const& run);
    ~Child();
    Child(Child const&) = delete;
    Child& operator=(Child const&) = delete;

    size_t task() const { return mTask; }
    int resultFd() const { return mResultPipe.reader(); }
    int outputFd() const { return mOutputPipe.reader(); }
    Clock::time_point deadline() const { return mDeadline; }

    /// Takes what is there to be read. False: the child has ended, or its time is over.
    bool read();

    /// Clears the child away, by force if it has not ended, and tells how it went. Call it once.
    ChildOutcome finish();

private:
    [[noreturn]] void runTask(base::SignalWatch const& signals, ChildTask const& run) const;
    std::string failureOf(int status) const;

    size_t const mTask;
    Clock::duration const mTimeLimit;
    Clock::time_point const mDeadline;
    Pipe mResultPipe;
    Pipe mOutputPipe;
    pid_t mPid = -1;
    std::string mResult;
    std::string mOutput;  ///< its end
};

Child::Child(size_t task, ChildPoolOptions const& options, base::SignalWatch const& signals,
             ChildTask const& run)
    : mTask(task),
      mTimeLimit(std::chrono::duration_cast<Clock::duration>(options.timeLimit)),
      mDeadline(Clock::now() + mTimeLimit) {
    pid_t const parent = getpid();
    mPid = fork();
    if (mPid < 0) {
        failWith("fork");
    }
    if (mPid == 0) {
        // With this process it ends too, even where nobody is left to clear it away.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        // The parent may have ended before the call above, which then waits in vain.
        if (getppid() != parent) {
            _exit(EXIT_FAILURE);
        }
        runTask(signals, run);
    }
    mResultPipe.becomeReader();
    mOutputPipe.becomeReader();
}

Child::~Child() {
    if (mPid > 0) {
        finish();
    }
}

void Child::runTask(base::SignalWatch const& signals, ChildTask const& run) const {
    signals.restoreMask();
    // A policy that asks a question must not take the terminal from everybody.
    int const nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
    dup2(nothing, STDIN_FILENO);
    dup2(mOutputPipe.writer(), STDOUT_FILENO);
    dup2(mOutputPipe.writer(), STDERR_FILENO);
    int status = EXIT_SUCCESS;
    std::string text;
    try {
        text = run(mTask);
    } catch (std::exception const& error) {
        status = kTaskFailed;
        text = error.what();
    } catch (...) {
        status = kTaskFailed;
        text = "unknown exception";
    }
    // A pipe that blocks takes all at once, however much it is: no signal has a handler here.
    ssize_t const written = write(mResultPipe.writer(), text.data(), text.size());
    // Neither the buffers nor the temporary files of the parent are the child's to deal with.
    _exit(written == static_cast<ssize_t>(text.size()) ? status : EXIT_FAILURE);
}

bool Child::read() {
    mOutputPipe.drain(mOutput);
    if (mOutput.size() > kKeptOutput) {
        mOutput.erase(0, mOutput.size() - kKeptOutput);
    }
    // The system closes its end of the pipe when it ends, however it does.
    return mResultPipe.drain(mResult) && Clock::now() < mDeadline;
}

ChildOutcome Child::finish() {
    // Once more: it may have ended between read() and its deadline.
    bool const isRunning = mResultPipe.drain(mResult);
    if (isRunning) {
        kill(mPid, SIGKILL);
    }
    int status = 0;
    while (waitpid(mPid, &status, 0) < 0 && errno == EINTR) {
    }
    mPid = -1;
    // What it printed last, after read() looked.
    mOutputPipe.drain(mOutput);
    if (isRunning) {
        return {{},
                fmt::format("no result after {}, killed (--time-limit)",
                            base::formatDuration(std::chrono::nanoseconds(mTimeLimit).count()))};
    }
    if (status == 0 && !mResult.empty()) {
        return {std::move(mResult), {}};
    }
    return {{}, failureOf(status)};
}

std::string_view lastLine(std::string_view text) {
    text = text.substr(0, text.find_last_not_of("\r\n ") + 1);
    return text.substr(text.rfind('\n') + 1);
}

std::string Child::failureOf(int status) const {
    if (WIFEXITED(status) && WEXITSTATUS(status) == kTaskFailed && !mResult.empty()) {
        return mResult;
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

/// Waits until a child has something to say or its time is over, or a signal comes.
void waitForAny(std::list<Child> const& children, base::SignalWatch const& signals) {
    std::vector<pollfd> fds = {{signals.fd(), POLLIN, 0}};
    Clock::time_point deadline = Clock::time_point::max();
    for (Child const& child : children) {
        fds.push_back({child.resultFd(), POLLIN, 0});
        fds.push_back({child.outputFd(), POLLIN, 0});  // poll() passes over -1
        deadline = std::min(deadline, child.deadline());
    }
    auto const left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    // An hour at most, which is how long a time-out may be.
    int const timeoutMs = static_cast<int>(std::clamp<int64_t>(left, 0, 3'600'000));
    if (poll(fds.data(), fds.size(), timeoutMs) < 0 && errno != EINTR) {
        failWith("poll");
    }
    signals.throwIfAny();
}

}  // namespace

void runInChildren(size_t tasks, ChildPoolOptions const& options, base::SignalWatch const& signals,
                   ChildTask const& task, ChildListener const& onEnd) {
    // A list, because a child owns a process and is not moved.
    std::list<Child> children;
    for (size_t next = 0; next < tasks || !children.empty();) {
        // In order, so that with one job the tasks end in order too.
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

}  // namespace zebcam::tool::compare
