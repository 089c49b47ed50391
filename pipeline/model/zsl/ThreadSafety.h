#pragma once

#include <chrono>
#include <mutex>

// Clang's thread-safety annotations (clang documentation, "Thread Safety Analysis"); empty for
// other compilers.
#if defined(__clang__)
#define ZSL_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define ZSL_THREAD_ATTRIBUTE(x)
#endif

#define CAPABILITY(x) ZSL_THREAD_ATTRIBUTE(capability(x))
#define SCOPED_CAPABILITY ZSL_THREAD_ATTRIBUTE(scoped_lockable)
#define GUARDED_BY(x) ZSL_THREAD_ATTRIBUTE(guarded_by(x))
#define REQUIRES(...) ZSL_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) ZSL_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define ACQUIRE(...) ZSL_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) ZSL_THREAD_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define RELEASE(...) ZSL_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS ZSL_THREAD_ATTRIBUTE(no_thread_safety_analysis)

namespace NSCam::v3::pipeline::model {

/// std::timed_mutex that the thread-safety analysis knows.
class CAPABILITY("mutex") TimedMutex : private std::timed_mutex {
public:
    void lock() ACQUIRE() { std::timed_mutex::lock(); }
    void unlock() RELEASE() { std::timed_mutex::unlock(); }
    bool tryLockFor(std::chrono::milliseconds time) TRY_ACQUIRE(true) {
        return std::timed_mutex::try_lock_for(time);
    }
};

/// Holds a mutex while it lives.
class SCOPED_CAPABILITY LockGuard {
public:
    explicit LockGuard(TimedMutex& mutex) ACQUIRE(mutex) : mMutex(mutex) { mMutex.lock(); }
    ~LockGuard() RELEASE() { mMutex.unlock(); }
    LockGuard(LockGuard const&) = delete;
    LockGuard& operator=(LockGuard const&) = delete;

private:
    TimedMutex& mMutex;
};

/// Takes over a mutex that is already held, and lets it go at the end of its life.
class SCOPED_CAPABILITY AdoptedLock {
public:
    explicit AdoptedLock(TimedMutex& mutex) REQUIRES(mutex) : mMutex(mutex) {}
    ~AdoptedLock() RELEASE() { mMutex.unlock(); }
    AdoptedLock(AdoptedLock const&) = delete;
    AdoptedLock& operator=(AdoptedLock const&) = delete;

private:
    TimedMutex& mMutex;
};

}  // namespace NSCam::v3::pipeline::model
