#include "base/LineWriter.h"

#include <utility>

namespace zebcam::tool::base {

LineWriter::LineWriter(std::ostream& out, size_t capacity)
    : mOut(out), mCapacity(capacity), mThread([this] { run(); }) {
}

LineWriter::~LineWriter() {
    finish(std::chrono::milliseconds(0));
}

void LineWriter::push(std::string const& line) {
    {
        LockGuard const lock(mLock);
        ++mCounts.lines;
        if (mIsFinished || mWaiting.size() + line.size() > mCapacity) {
            ++mCounts.dropped;
            return;
        }
        mWaiting += line;
        ++mWaitingLines;
    }
    mChanged.notify_all();
}

LineWriter::Counts LineWriter::finish(std::chrono::milliseconds patience) {
    auto const deadline = std::chrono::steady_clock::now() + patience;
    LockGuard const lock(mLock);
    mIsFinished = true;
    mChanged.notify_all();
    while (mIsWriting || !mWaiting.empty()) {
        std::chrono::nanoseconds const left = deadline - std::chrono::steady_clock::now();
        if (left.count() <= 0) {
            break;
        }
        mChanged.wait_for(mLock, left);
    }
    mWaiting.clear();
    mCounts.dropped += std::exchange(mWaitingLines, 0);
    return mCounts;
}

void LineWriter::run() {
    while (true) {
        std::string lines;
        uint64_t count = 0;
        {
            LockGuard const lock(mLock);
            while (mWaiting.empty() && !mIsFinished) {
                mChanged.wait(mLock);
            }
            if (mWaiting.empty()) {
                return;
            }
            lines.swap(mWaiting);
            count = std::exchange(mWaitingLines, 0);
            mIsWriting = true;
        }
        // All that has gathered at once: what a slow reader costs is counted in calls.
        mOut << lines << std::flush;
        {
            LockGuard const lock(mLock);
            mIsWriting = false;
            if (!mOut) {
                mCounts.hasFailed = true;
                mCounts.dropped += count;
            }
        }
        mChanged.notify_all();
    }
}

}  // namespace zebcam::tool::base
