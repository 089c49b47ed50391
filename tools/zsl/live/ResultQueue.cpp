#include "live/ResultQueue.h"

#include <utils/Timers.h>

#include <chrono>

namespace zebcam::tool {

void ResultQueue::push(std::vector<BuiltFrame> const& frames) {
    if (frames.empty()) {
        return;
    }
    {
        // The clock is read under the lock, so that the entries stay in order.
        std::lock_guard lock(mLock);
        int64_t const dueNs = systemTime(SYSTEM_TIME_BOOTTIME) + mDelayNs;
        for (BuiltFrame const& frame : frames) {
            mEntries.push_back({dueNs, frame});
        }
    }
    mWake.notify_one();
}

void ResultQueue::close() {
    {
        std::lock_guard lock(mLock);
        mIsClosed = true;
    }
    mWake.notify_one();
}

std::optional<BuiltFrame> ResultQueue::pop() {
    std::unique_lock lock(mLock);
    while (true) {
        mWake.wait(lock, [this] { return mIsClosed || !mEntries.empty(); });
        if (mEntries.empty()) {
            return std::nullopt;
        }
        std::chrono::nanoseconds const left(mEntries.front().dueNs -
                                            systemTime(SYSTEM_TIME_BOOTTIME));
        if (mIsClosed || left.count() <= 0) {
            BuiltFrame const frame = mEntries.front().frame;
            mEntries.pop_front();
            return frame;
        }
        mWake.wait_for(lock, left);
    }
}

}  // namespace zebcam::tool
