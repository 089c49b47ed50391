#pragma once

#include <zebcam/ThreadSafety.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <ostream>
#include <string>
#include <thread>

namespace zebcam::tool::base {

/**
 * Writes lines to a stream on a thread of its own, for those who must not wait for whoever reads
 * them: what does not fit between the two is dropped and counted. Thread-safe, but for the stream,
 * which nobody else may use while it lives.
 */
class LineWriter {
public:
    struct Counts {
        uint64_t lines = 0;      ///< that were pushed
        uint64_t dropped = 0;    ///< of them those that nobody gets to read
        bool hasFailed = false;  ///< the stream cannot be written
    };

    /// Up to `capacity` bytes wait to be written.
    LineWriter(std::ostream& out, size_t capacity);
    /// Drops what waits, but waits itself for the few lines that are being written, which nothing
    /// can call back.
    ~LineWriter();
    LineWriter(LineWriter const&) = delete;
    LineWriter& operator=(LineWriter const&) = delete;

    /// A line with its end, whole or not at all. Never waits for the stream.
    void push(std::string const& line) EXCLUDES(mLock);

    /// Waits until everything is written, but not longer than `patience`, and drops the rest.
    Counts finish(std::chrono::milliseconds patience) EXCLUDES(mLock);

private:
    void run() EXCLUDES(mLock);

    std::ostream& mOut;
    size_t const mCapacity;
    Mutex mLock;
    std::condition_variable_any mChanged;
    std::deque<std::string> mWaiting GUARDED_BY(mLock);
    size_t mWaitingBytes GUARDED_BY(mLock) = 0;
    bool mIsWriting GUARDED_BY(mLock) = false;
    bool mIsFinished GUARDED_BY(mLock) = false;
    Counts mCounts GUARDED_BY(mLock);
    std::jthread mThread;  ///< last, because it uses the others
};

}  // namespace zebcam::tool::base
