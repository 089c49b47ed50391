#include "CaptureScene.h"
#include "Stopwatch.h"

namespace zebcam::bench {
namespace {

/// A retry of every waiting capture, none of which can be served.
void BM_PendingWalk(benchmark::State& state) {
    CaptureScene scene({10, 1, 200}, Provider::Host, false);
    for (int64_t i = 0; i < state.range(0); ++i) {
        scene.processor().submitZslRequest(scene.makeCapture());
    }
    measureApart(
        state, [&] { return scene.processor().processZslPendingRequest(0); },
        [&](auto const& built) {
            if (!built.empty()) {
                state.SkipWithError("a capture was served");
            }
        });
    scene.processor().flush();
}
BENCHMARK(BM_PendingWalk)
    ->ArgName("captures")
    ->Arg(1)
    ->Arg(8)
    ->Arg(64)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace zebcam::bench
