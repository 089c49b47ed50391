#include "base/LineWriter.h"

namespace zebcam::tool::base {

namespace {

// Many lines at once, for each call costs, but not all that have gathered: a reader who takes some
// bytes a second would keep the program for hours after its end.
constexpr size_t kPiece = 4096;

}  // namespace

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
        if (mIsFinished || mWaitingBytes + line.size() > mCapacity) {
            ++mCounts.dropped;
            return;
        }
        mWaiting.push_back(line);
        mWaitingBytes += line.size();
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
    mCounts.dropped += mWaiting.size();
    mWaiting.clear();
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
            do {
                lines += mWaiting.front();
                mWaiting.pop_front();
                ++count;
            } while (!mWaiting.empty() && lines.size() + mWaiting.front().size() <= kPiece);
            mWaitingBytes -= lines.size();
            mIsWriting = true;
        }
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
