#include <gtest/gtest.h>
#include <platform/VirtualClock.h>
#include <time.h>
#include <utils/Timers.h>

#include <chrono>
#include <stdexcept>

namespace zebcam::test {
namespace {

using platform::VirtualClock;

int64_t wallNs() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

int64_t kernelNs(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return now.tv_sec * 1'000'000'000LL + now.tv_nsec;
}

void expectKernelsClocks() {
    struct {
        int64_t (*read)();
        clockid_t kernel;
    } const CASES[] = {
        {[] { return systemTime(SYSTEM_TIME_BOOTTIME); }, CLOCK_BOOTTIME},
        {[] { return systemTime(SYSTEM_TIME_MONOTONIC); }, CLOCK_MONOTONIC},
        {[] { return systemTime(SYSTEM_TIME_THREAD); }, CLOCK_THREAD_CPUTIME_ID},
        {wallNs, CLOCK_REALTIME},
    };
    for (auto const& c : CASES) {
        SCOPED_TRACE(c.kernel);
        int64_t const before = kernelNs(c.kernel);
        int64_t const reading = c.read();
        EXPECT_GE(reading, before);
        EXPECT_LE(reading, kernelNs(c.kernel));
    }
}

TEST(ClockTest, MovesAllClocksTogetherAndOnlyWhenTold) {
    expectKernelsClocks();
    {
        VirtualClock clock({.bootTimeNs = 1000, .monotonicNs = 200, .wallNs = 5'000'000});
        EXPECT_EQ(systemTime(SYSTEM_TIME_BOOTTIME), 1000);
        clock.advance(7);
        clock.advanceTo(1010);
        EXPECT_EQ(clock.bootTimeNs(), 1010);
        EXPECT_EQ(systemTime(SYSTEM_TIME_MONOTONIC), 210);
        EXPECT_EQ(systemTime(SYSTEM_TIME_REALTIME), 5'000'010);
        EXPECT_EQ(wallNs(), 5'000'010);

        EXPECT_THROW(clock.advance(-1), std::invalid_argument);
        EXPECT_THROW(clock.advanceTo(1009), std::invalid_argument);
        EXPECT_THROW(VirtualClock(), std::logic_error);
        EXPECT_EQ(systemTime(SYSTEM_TIME_BOOTTIME), 1010) << "a refused call moved the clock";
    }
    expectKernelsClocks();
    VirtualClock const again({.bootTimeNs = 3});
    EXPECT_EQ(systemTime(SYSTEM_TIME_BOOTTIME), 3) << "starts where the last one stood";
}

}  // namespace
}  // namespace zebcam::test
