#pragma once

#include <cstdint>

namespace zebcam::platform {

/**
 * Takes this process's clocks in hand for as long as it lives: `systemTime` of the boot-time, the
 * monotonic and the real-time clock, and `std::chrono::system_clock`. They stand still until they
 * are moved or set.
 *
 * At most one at a time; a second one throws std::logic_error. Reading is thread-safe.
 */
class VirtualClock {
public:
    /// Readings, ns. The wall clock counts from the Unix epoch.
    struct Start {
        int64_t bootTimeNs = 0;
        int64_t monotonicNs = 0;
        int64_t wallNs = 1'700'000'000'000'000'000;
    };

    VirtualClock();
    explicit VirtualClock(Start start);
    ~VirtualClock();
    VirtualClock(VirtualClock const&) = delete;
    VirtualClock& operator=(VirtualClock const&) = delete;

    /// Moves all clocks forward by `ns`, which may not be negative (std::invalid_argument).
    void advance(int64_t ns);

    /// Moves all clocks forward by as much as takes the boot-time clock to `bootTimeNs`,
    /// which may not lie in the past (std::invalid_argument).
    void advanceTo(int64_t bootTimeNs);

    /// Sets every clock by itself, also back. For one thread, while no other one reads: a reading
    /// meanwhile may mix old and new.
    void set(Start readings);

    int64_t bootTimeNs() const;
};

}  // namespace zebcam::platform
