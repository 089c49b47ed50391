#pragma once

// The macros (GUARDED_BY, REQUIRES, ...) are the platform's: a second definition beside them would
// clash wherever a header of the camera stack includes the platform's.
#include <utils/Mutex.h>

#include <chrono>
#include <mutex>
#include <shared_mutex>

/**
 * Mutexes and their holders as clang's thread-safety analysis knows them. The standard library's
 * are annotated in libc++ only, and android::Mutex is deprecated and has no timed lock on a host.
 *
 * A std::condition_variable_any waits on any of the mutexes: `changed.wait(mLock)` within a loop
 * that tests the condition, because the analysis does not look into a predicate.
 */
namespace zebcam {

/// Held by one thread at a time.
class CAPABILITY("mutex") Mutex : private std::mutex {
public:
    void lock() ACQUIRE() { std::mutex::lock(); }
    void unlock() RELEASE() { std::mutex::unlock(); }
};

/// A mutex for which one may wait a limited time.
class CAPABILITY("mutex") TimedMutex : private std::timed_mutex {
public:
    void lock() ACQUIRE() { std::timed_mutex::lock(); }
    void unlock() RELEASE() { std::timed_mutex::unlock(); }
    bool tryLockFor(std::chrono::milliseconds time) TRY_ACQUIRE(true) {
        return std::timed_mutex::try_lock_for(time);
    }
};

/// Held by one thread that writes, or by any number that read.
class CAPABILITY("mutex") SharedMutex : private std::shared_mutex {
public:
    void lock() ACQUIRE() { std::shared_mutex::lock(); }
    void unlock() RELEASE() { std::shared_mutex::unlock(); }
    void lockShared() ACQUIRE_SHARED() { std::shared_mutex::lock_shared(); }
    void unlockShared() RELEASE_SHARED() { std::shared_mutex::unlock_shared(); }
};

/// Holds a mutex while it lives.
template <typename Lockable>
class SCOPED_CAPABILITY LockGuard {
public:
    explicit LockGuard(Lockable& mutex) ACQUIRE(mutex) : mMutex(mutex) { mMutex.lock(); }
    ~LockGuard() RELEASE() { mMutex.unlock(); }
    LockGuard(LockGuard const&) = delete;
    LockGuard& operator=(LockGuard const&) = delete;

private:
    Lockable& mMutex;
};

/// Holds a mutex for reading while it lives.
class SCOPED_CAPABILITY ReadGuard {
public:
    explicit ReadGuard(SharedMutex& mutex) ACQUIRE_SHARED(mutex) : mMutex(mutex) {
        mMutex.lockShared();
    }
    ~ReadGuard() RELEASE() { mMutex.unlockShared(); }
    ReadGuard(ReadGuard const&) = delete;
    ReadGuard& operator=(ReadGuard const&) = delete;

private:
    SharedMutex& mMutex;
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

}  // namespace zebcam
