#include "CaptureScene.h"
#include "Stopwatch.h"

namespace zebcam::bench {
namespace {

/// A retry of one waiting capture: the history read, locked, shown to the policy and given back.
void retry(benchmark::State& state, std::shared_ptr<NSCam::ZslPolicy::ISelector> selector) {
    CaptureScene scene(
        {static_cast<size_t>(state.range(0)), 1, static_cast<size_t>(state.range(1))},
        Provider::Plain, false);
    scene.processor().submitZslRequest(scene.makeCapture(std::move(selector)));
    scene.refill();
    measureApart(
        state, [&] { return scene.processor().processZslPendingRequest(0); },
        [&](auto const& built) {
            if (!built.empty()) {
                state.SkipWithError("the capture was served");
            }
            scene.refill();
        });
}

/// The processor's own share: the policy looks at nothing.
void BM_SelectionIdle(benchmark::State& state) {
    retry(state, makeIdleSelector());
}

/// Every frame is put to every test and refused by the last one.
void BM_SelectionJudged(benchmark::State& state) {
    retry(state, nullptr);
}

void sizes(benchmark::internal::Benchmark* bench) {
    bench->ArgNames({"history", "entries"})->UseManualTime()->Unit(benchmark::kMicrosecond);
}
BENCHMARK(BM_SelectionIdle)->Apply(sizes)->ArgsProduct({{10, 30, 60, 240}, {3}});
BENCHMARK(BM_SelectionJudged)->Apply(sizes)->ArgsProduct({{10, 30, 60, 240}, {3, 200}});

}  // namespace
}  // namespace zebcam::bench
