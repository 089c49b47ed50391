#include <benchmark/benchmark.h>

#include "AllocationCounter.h"
#include "SampleMetadata.h"
#include "Workloads.h"

namespace zebcam::bench {
namespace {

template <typename Work>
void measure(benchmark::State& state, Work work) {
    uint64_t const before = allocations();
    for (auto _ : state) {
        work();
    }
    state.counters["allocations"] = benchmark::Counter(static_cast<double>(allocations() - before),
                                                       benchmark::Counter::kAvgIterations);
}

NSCam::IMetadata makeResult(benchmark::State const& state) {
    return makeSample(static_cast<size_t>(state.range(0)), SampleKind::Result);
}

/// The yardstick of the others.
void BM_MallocMemcpyFree(benchmark::State& state) {
    std::vector<char> const bytes(storedBytes(makeResult(state)));
    measure(state, [&] { copyBytes(bytes); });
}

void BM_Copy(benchmark::State& state) {
    auto const metadata = makeResult(state);
    measure(state, [&] { copy(metadata); });
}

/// Half as many entries copied, and all of the result merged over them.
void BM_CopyAndMerge(benchmark::State& state) {
    auto const result = makeResult(state);
    auto const control = makeSample(result.count() / 2, SampleKind::Control);
    measure(state, [&] { copyAndMerge(control, result); });
}

void BM_EightLookups(benchmark::State& state) {
    auto metadata = makeResult(state);
    addFocusTags(metadata);
    addSensorTags(metadata, true);
    measure(state, [&] { lookUpEight(metadata); });
}

BENCHMARK(BM_MallocMemcpyFree)->Arg(100)->Arg(200)->Arg(400);
BENCHMARK(BM_Copy)->Arg(100)->Arg(200)->Arg(400);
BENCHMARK(BM_CopyAndMerge)->Arg(100)->Arg(200)->Arg(400);
BENCHMARK(BM_EightLookups)->Arg(100)->Arg(200)->Arg(400);

}  // namespace
}  // namespace zebcam::bench
