#include "CaptureScene.h"
#include "Stopwatch.h"

namespace zebcam::bench {
namespace {

/// One capture from its submission to the built frames.
void measureCaptures(benchmark::State& state, bool isRecorded) {
    SceneSize const size{static_cast<size_t>(state.range(0)), static_cast<size_t>(state.range(1)),
                         static_cast<size_t>(state.range(2))};
    CaptureScene scene(size, Provider::Host);
    if (isRecorded) {
        scene.record();
    }
    auto capture = scene.makeCapture();
    measureApart(
        state, [&] { return scene.processor().submitZslRequest(std::move(capture)); },
        [&](auto const& built) {
            if (built.size() != 1 || built.front().size() != size.requestedFrames) {
                state.SkipWithError("the capture was not served");
            }
            capture = scene.makeCapture();
            scene.refill();
        });
    if (isRecorded && !scene.isRecording()) {
        state.SkipWithError("the recording ended early");
    }
}

void BM_Capture(benchmark::State& state) {
    measureCaptures(state, false);
}
BENCHMARK(BM_Capture)
    ->ArgNames({"history", "frames", "entries"})
    ->ArgsProduct({{10, 30, 60, 240}, {1, 8}, {200}})
    ->ArgsProduct({{10, 30, 60, 240}, {1, 8}, {3}})
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

/// The same through a recorder; each of the capture's frames is new to it.
void BM_CaptureRecorded(benchmark::State& state) {
    measureCaptures(state, true);
}
BENCHMARK(BM_CaptureRecorded)
    ->ArgNames({"history", "frames", "entries"})
    ->ArgsProduct({{10, 30}, {1, 8}, {200}})
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace zebcam::bench
