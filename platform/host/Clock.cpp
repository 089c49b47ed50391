#include <platform/VirtualClock.h>
#include <time.h>
#include <utils/Timers.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <string>

namespace {

// A reading is a start plus one counter, so that all clocks move together. The starts change only
// when a virtual clock is taken in hand or set.
std::atomic<bool> gIsTaken{false};
std::atomic<bool> gIsVirtual{false};
std::atomic<int64_t> gBootStartNs{0};
std::atomic<int64_t> gMonotonicStartNs{0};
std::atomic<int64_t> gWallStartNs{0};
std::atomic<int64_t> gElapsedNs{0};

int64_t read(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return seconds_to_nanoseconds(now.tv_sec) + now.tv_nsec;
}

int64_t read(clockid_t clock, std::atomic<int64_t> const& virtualStartNs) {
    // Pairs with the release in the constructor: who sees the virtual clock sees its starts.
    if (!gIsVirtual.load(std::memory_order_acquire)) {
        return read(clock);
    }
    // Pairs with the release in advance(): what was done before the clock moved is seen by whoever
    // reads the new time.
    return virtualStartNs.load(std::memory_order_relaxed) +
           gElapsedNs.load(std::memory_order_acquire);
}

}  // namespace

extern "C" nsecs_t systemTime(int clock) {
    switch (clock) {
        case SYSTEM_TIME_REALTIME:
            return read(CLOCK_REALTIME, gWallStartNs);
        // Used-up processor time stays real: nobody plays that again.
        case SYSTEM_TIME_PROCESS:
            return read(CLOCK_PROCESS_CPUTIME_ID);
        case SYSTEM_TIME_THREAD:
            return read(CLOCK_THREAD_CPUTIME_ID);
        case SYSTEM_TIME_BOOTTIME:
            return read(CLOCK_BOOTTIME, gBootStartNs);
        default:  // as on a device, an unknown clock is the monotonic one
            return read(CLOCK_MONOTONIC, gMonotonicStartNs);
    }
}

// This definition is found ahead of the standard library's.
std::chrono::system_clock::time_point std::chrono::system_clock::now() noexcept {
    return time_point(std::chrono::duration_cast<duration>(
        std::chrono::nanoseconds(systemTime(SYSTEM_TIME_REALTIME))));
}

namespace zebcam::platform {

VirtualClock::VirtualClock() : VirtualClock(Start{}) {
}

VirtualClock::VirtualClock(Start start) {
    if (gIsTaken.exchange(true)) {
        throw std::logic_error("VirtualClock: another one is in use");
    }
    set(start);
    gIsVirtual.store(true, std::memory_order_release);
}

VirtualClock::~VirtualClock() {
    gIsVirtual.store(false, std::memory_order_release);
    gIsTaken = false;  // last: the next one may begin at once
}

void VirtualClock::advance(int64_t ns) {
    if (ns < 0) {
        throw std::invalid_argument("VirtualClock: cannot go back by " + std::to_string(-ns) +
                                    " ns");
    }
    gElapsedNs.fetch_add(ns, std::memory_order_release);
}

void VirtualClock::advanceTo(int64_t bootTimeNs) {
    advance(bootTimeNs - this->bootTimeNs());
}

void VirtualClock::set(Start readings) {
    // Nobody reads meanwhile, as promised, so that the order of these does not matter.
    gBootStartNs.store(readings.bootTimeNs, std::memory_order_relaxed);
    gMonotonicStartNs.store(readings.monotonicNs, std::memory_order_relaxed);
    gWallStartNs.store(readings.wallNs, std::memory_order_relaxed);
    gElapsedNs.store(0, std::memory_order_relaxed);
}

int64_t VirtualClock::bootTimeNs() const {
    return gBootStartNs.load(std::memory_order_relaxed) +
           gElapsedNs.load(std::memory_order_acquire);
}

}  // namespace zebcam::platform
