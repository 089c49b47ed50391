// std::timed_mutex waits with pthread_mutex_clocklock, of which the thread sanitizers of clang 14
// and gcc 12 hear nothing; they then take everything under the mutex for a race. They do know this
// sibling, which counts in wall-clock time.
#include <pthread.h>

#include <cstdint>
#include <ctime>

namespace {

constexpr int64_t NS_PER_S = 1'000'000'000;

int64_t toNs(timespec const& time) {
    return time.tv_sec * NS_PER_S + time.tv_nsec;
}

int64_t now(clockid_t clock) {
    timespec time = {};
    clock_gettime(clock, &time);
    return toNs(time);
}

}  // namespace

extern "C" int pthread_mutex_clocklock(pthread_mutex_t* mutex, clockid_t clock,
                                       timespec const* until) {
    int64_t const wall = now(CLOCK_REALTIME) + toNs(*until) - now(clock);
    timespec const wallUntil = {wall / NS_PER_S, wall % NS_PER_S};
    return pthread_mutex_timedlock(mutex, &wallUntil);
}
