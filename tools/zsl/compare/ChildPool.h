#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>

#include "base/SignalWatch.h"

namespace zebcam::tool::compare {

struct ChildPoolOptions {
    size_t jobs = 1;                                      ///< children at once, at least 1
    std::chrono::nanoseconds timeLimit{600'000'000'000};  ///< of each child, in real time
};

/// How a task ended in its child.
struct ChildOutcome {
    std::string data;     ///< what the task gave
    std::string failure;  ///< why it gave nothing; empty: it did
};

/// Runs in the child; what it throws is the task's failure.
using ChildTask = std::function<std::string(size_t task)>;
/// Called in the order in which the tasks end.
using ChildListener = std::function<void(size_t task, ChildOutcome outcome)>;

/**
 * Runs tasks 0, 1, ... each in a process of its own that is forked from this one: a task that
 * crashes, hangs or changes what is process-wide harms no other. A child has no input; what it
 * prints is kept from this process's outputs, and its last line goes into the failure. Children end
 * with this process, however it ends.
 *
 * Call it while this process has one thread. Throws std::system_error when a child cannot be
 * started, and Interrupted.
 */
void runInChildren(size_t tasks, ChildPoolOptions const& options, base::SignalWatch const& signals,
                   ChildTask const& task, ChildListener const& onEnd);

/// A forked process that runs one task. Killed when the object is destroyed before its end.
class Child {
public:
    using Clock = std::chrono::steady_clock;

    /// Throws std::system_error.
    Child(size_t task, ChildPoolOptions const& options, base::SignalWatch const& signals,
          ChildTask const& run);
    ~Child();
    Child(Child const&) = delete;
    Child& operator=(Child const&) = delete;

    size_t task() const { return mTask; }
    /// Readable ends; -1 for an output that was closed.
    int resultFd() const { return mResultFd; }
    int outputFd() const { return mOutputFd; }
    Clock::time_point deadline() const { return mDeadline; }

    /// Takes what is there to be read. False: the child has ended, or its time is over.
    bool read();

    /// Clears the child away, by force if it has not ended, and tells how it went. Call it once.
    ChildOutcome finish();

private:
    [[noreturn]] void runChild(int resultFd, int outputFd, base::SignalWatch const& signals,
                               ChildTask const& run) const;
    std::string failureOf(int status) const;

    size_t const mTask;
    Clock::duration const mTimeLimit;
    Clock::time_point const mDeadline;
    pid_t mPid = -1;
    int mResultFd = -1;
    int mOutputFd = -1;
    std::string mResult;
    std::string mOutput;  ///< its end
};

}  // namespace zebcam::tool::compare
