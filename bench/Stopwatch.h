#pragma once

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>

#include "AllocationCounter.h"

namespace zebcam::bench {

/// Times `work` alone, and lets `restore` put things back after each run of it. For benchmarks
/// with UseManualTime.
template <typename Work, typename Restore>
void measureApart(benchmark::State& state, Work work, Restore restore) {
    // The steady clock, because the benchmark's own may be in a scene's hand.
    using Clock = std::chrono::steady_clock;
    uint64_t allocated = 0;
    for (auto _ : state) {
        uint64_t const before = allocations();
        auto const start = Clock::now();
        auto const result = work();
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
        allocated += allocations() - before;
        restore(result);
    }
    state.counters["allocations"] =
        benchmark::Counter(static_cast<double>(allocated), benchmark::Counter::kAvgIterations);
}

}  // namespace zebcam::bench
