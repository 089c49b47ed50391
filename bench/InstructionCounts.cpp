#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "AllocationCounter.h"
#include "CaptureScene.h"
#include "SampleMetadata.h"
#include "Workloads.h"

/// Runs one workload under a name that an instruction counter can be told to watch.
extern "C" __attribute__((noinline, visibility("default"))) void zslMeasured(
    std::function<void()> const& work) {
    work();
}

namespace zebcam::bench {
namespace {

struct Workload {
    std::function<void()> work;
    std::function<void()> restore = [] {};
};

Workload copyOf(size_t entries) {
    auto const metadata = makeSample(entries, SampleKind::Result);
    return {[metadata] { copy(metadata); }};
}

Workload bytesOf(size_t entries) {
    std::vector<char> const bytes(storedBytes(makeSample(entries, SampleKind::Result)));
    return {[bytes] { copyBytes(bytes); }};
}

Workload mergeOf(size_t entries) {
    auto const control = makeSample(entries / 2, SampleKind::Control);
    auto const result = makeSample(entries, SampleKind::Result);
    return {[control, result] { copyAndMerge(control, result); }};
}

Workload lookups() {
    auto metadata = makeSample(200, SampleKind::Result);
    addFocusTags(metadata);
    addSensorTags(metadata, true);
    return {[metadata] { lookUpEight(metadata); }};
}

struct Capture {
    Capture(SceneSize size, Provider provider)
        : scene(size, provider), params(scene.makeCapture()) {}

    CaptureScene scene;
    NSCam::v3::pipeline::model::ZslRequestParams params;
    NSCam::v3::pipeline::model::ZslFrameBuilders built;
};

Workload captureOf(SceneSize size, Provider provider) {
    auto const capture = std::make_shared<Capture>(size, provider);
    return {[capture] {
                capture->built =
                    capture->scene.processor().submitZslRequest(std::move(capture->params));
            },
            [capture] {
                capture->built.clear();
                capture->params = capture->scene.makeCapture();
                capture->scene.refill();
            }};
}

Workload selectionOf(size_t historyFrames, size_t entries,
                     std::shared_ptr<NSCam::ZslPolicy::ISelector> selector) {
    auto const scene = std::make_shared<CaptureScene>(SceneSize{historyFrames, 1, entries},
                                                      Provider::Plain, false);
    scene->processor().submitZslRequest(scene->makeCapture(std::move(selector)));
    scene->refill();
    return {[scene] { scene->processor().processZslPendingRequest(0); },
            [scene] { scene->refill(); }};
}

std::map<std::string, std::function<Workload()>> workloads() {
    return {
        {"bytes-200", [] { return bytesOf(200); }},
        {"copy-200", [] { return copyOf(200); }},
        {"merge-100", [] { return mergeOf(100); }},
        {"merge-200", [] { return mergeOf(200); }},
        {"merge-400", [] { return mergeOf(400); }},
        {"lookups-8", [] { return lookups(); }},
        {"capture-30",
         [] {
             return captureOf({30, 4, 200}, Provider::Plain);
         }},
        {"capture-30-host",
         [] {
             return captureOf({30, 4, 200}, Provider::Host);
         }},
        {"capture-30-small",
         [] {
             return captureOf({30, 4, 3}, Provider::Plain);
         }},
        {"judge-30", [] { return selectionOf(30, 200, nullptr); }},
        {"judge-60", [] { return selectionOf(60, 200, nullptr); }},
        {"select-60", [] { return selectionOf(60, 3, makeIdleSelector()); }},
        {"select-240", [] { return selectionOf(240, 3, makeIdleSelector()); }},
    };
}

}  // namespace
}  // namespace zebcam::bench

int main(int argc, char** argv) {
    auto const known = zebcam::bench::workloads();
    auto const found = argc == 2 ? known.find(argv[1]) : known.end();
    if (found == known.end()) {
        std::fprintf(stderr, "usage: %s WORKLOAD, one of", argv[0]);
        for (auto const& [name, make] : known) {
            std::fprintf(stderr, " %s", name.c_str());
        }
        std::fprintf(stderr, "\n");
        return 2;
    }
    auto const workload = found->second();
    // What happens only once (symbols, statics, room in vectors) is not the workload's.
    for (int i = 0; i < 3; ++i) {
        workload.work();
        workload.restore();
    }
    uint64_t const before = zebcam::bench::allocations();
    zslMeasured(workload.work);
    std::printf("allocations %llu\n",
                static_cast<unsigned long long>(zebcam::bench::allocations() - before));
    workload.restore();
    return 0;
}
