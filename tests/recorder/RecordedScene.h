#pragma once

#include <ZslRecorder.h>

#include <functional>
#include <string>
#include <vector>

#include "processor/ZslFixture.h"

namespace zebcam::test {

/// The processor's surroundings with a recorder before the processor. What comes back is noted, so
/// that a scene can be held against the same one without a recorder.
class RecordedScene : public ZslTest {
public:
    /// `options` without a path: no recorder.
    explicit RecordedScene(ZslRecorderOptions const& options = {});

    void TestBody() override {}
    /// Ends the scene: everything comes back, and the recording is whole.
    ZslRecorderStatus end();

    // The operations; an exception becomes a text.
    void submit(Capture const& wanted) {
        note("submit", [&] { return ZslTest::submit(wanted); });
    }
    void retry(int64_t afterMs = 33) {
        note("retry", [&] { return passMs(afterMs); });
    }
    void flush() {
        note("flush", [this] { return ZslTest::flush(); });
    }
    void result(uint32_t requestNo, bool isFrameEnd = true);

    void expose(std::vector<ExposedFrame> const& frames) { push(frames); }
    using ZslTest::callback;
    using ZslTest::capture;
    using ZslTest::captureOf;
    using ZslTest::config;
    using ZslTest::device;
    using ZslTest::history;
    using ZslTest::lines;
    using ZslTest::log;
    using ZslTest::setProperty;
    using ZslTest::zsl;

    android::sp<ZslRecorder> recorder;
    std::vector<std::string> outcomes;

private:
    void note(char const* what, std::function<std::string()> const& call);
};

/// Something that happens before a recorder, by name.
struct Scenario {
    char const* name;
    std::function<void(RecordedScene&)> play;
    std::function<void(RecordedScene&)> prepare = nullptr;  ///< before the processor is made
};

/// One for each thing that a decision can depend on.
std::vector<Scenario> const& scenarios();

}  // namespace zebcam::test
