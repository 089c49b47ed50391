#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>

#include "compare/ChildPool.h"

namespace zebcam::tool {

/// A forked process that runs one task. Killed when the object is destroyed before its end.
class Child {
public:
    using Clock = std::chrono::steady_clock;

    /// Throws std::system_error.
    Child(size_t task, ChildPoolOptions const& options, SignalWatch const& signals,
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
    [[noreturn]] void runChild(int resultFd, int outputFd, SignalWatch const& signals,
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

}  // namespace zebcam::tool
