#pragma once

#include <utils/Timers.h>
#include <zebcam/ThreadSafety.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <utility>

namespace zebcam::tool::picture {

/// What one thread hands to another, in order. Thread-safe.
template <typename T>
class Channel {
public:
    /// What a thread that is held up for a moment needs.
    static constexpr size_t MOST_WAITING = 8;

    /// False where there is no room.
    bool tryPush(T&& item) {
        LockGuard const lock(mLock);
        if (mItems.size() >= MOST_WAITING) {
            return false;
        }
        mItems.push_back(std::move(item));
        mChanged.notify_all();
        return true;
    }

    /// Waits for room; what comes after the end is lost.
    void push(T&& item) {
        LockGuard const lock(mLock);
        while (mItems.size() >= MOST_WAITING && !mIsClosed) {
            mChanged.wait(mLock);
        }
        if (!mIsClosed) {
            mItems.push_back(std::move(item));
            mChanged.notify_all();
        }
    }

    /// Waits until boot time `untilNs`. None: it is past, or the channel closed and empty.
    std::optional<T> pop(int64_t untilNs) {
        LockGuard const lock(mLock);
        while (mItems.empty() && !mIsClosed && systemTime(SYSTEM_TIME_BOOTTIME) < untilNs) {
            mChanged.wait_for(mLock, LOOK_EVERY);
        }
        if (mItems.empty()) {
            return std::nullopt;
        }
        T item = std::move(mItems.front());
        mItems.pop_front();
        mChanged.notify_all();
        return item;
    }

    /// Nothing more goes in; `drops`: what is in it is wanted no more.
    void close(bool drops) {
        LockGuard const lock(mLock);
        mIsClosed = true;
        if (drops) {
            mItems.clear();
        }
        mChanged.notify_all();
    }

    bool isClosed() const {
        LockGuard const lock(mLock);
        return mIsClosed;
    }
    bool isEmpty() const {
        LockGuard const lock(mLock);
        return mItems.empty();
    }

private:
    /// Boot time is not what a condition waits by.
    static constexpr std::chrono::milliseconds LOOK_EVERY{20};

    mutable Mutex mLock;
    std::condition_variable_any mChanged;
    std::deque<T> mItems GUARDED_BY(mLock);
    bool mIsClosed GUARDED_BY(mLock) = false;
};

}  // namespace zebcam::tool::picture
