#include "report/Answers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ulog/ULogger.h>

#include <regex>
#include <string>
#include <vector>

#include "log/Explainer.h"
#include "recording/RecordingGenerator.h"
#include "tool/SteadyRecording.h"

namespace zebcam::tool {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

struct Answered {
    run::ReplayResult result;
    std::vector<std::string> texts;
};

Answered answer(recording::Recording const& recording, pipeline::ReplayOptions options) {
    options.logLevel = NSCam::Utils::ULog::LOG_LEVEL_DEBUG;
    log::Explainer explainer;
    run::ReplayListener listener;
    listener.log = [&](int64_t, host::LogLine const& line) {
        explainer.feed(log::fromLogLine(line));
    };
    Answered answered{run::replay(recording, options, listener), {}};
    run::addDefaultOutcomes(recording, answered.result);
    answered.texts = report::answersOf(report::ReplayFrames(recording, answered.result),
                                       answered.result, explainer.finish());
    return answered;
}

TEST(Answers, SayWhyTheseFramesAndWhyThen) {
    auto const plugin = [](char const* name) {
        return [name](pipeline::ReplayOptions& o) {
            o.policy = {pipeline::PolicyKind::Plugin,
                        SELECTOR_FOLDER "/selector_" + std::string(name) + ".so"};
        };
    };
    struct {
        pipeline::ReplayOptions options;
        char const* expected;
        uint32_t unusable = 0;  ///< frame
    } const table[] = {
        {with(pressing({1000}), [](auto& o) { o.offsetMs = 250; }),
         "F9 was taken because it is the first in the history that began exposing not before the "
         "wanted instant (press - 250 ms) and passed every test. It came at once: it began 200 ms "
         "before the press and had been in the history for 70 ms."},
        {pressing({1000}),
         "It came 230 ms after the press: it began 100 ms after the press and arrived 130 ms later "
         "(10 ms exposure, 20 ms readout, 100 ms delivery). At the press the newest frame in the "
         "history, F9, had begun 200 ms before the press; with an offset of 200 ms it would have "
         "begun in time.",
         11},
        {pressing({1000}), "F11 before was refused: 1 for image (an image", 11},
        {with(pressing({1000}), [](auto& o) { o.offsetMs = 600, o.history = 2; }),
         "F5, the first frame not before the wanted instant, had left the history of 2 frames 270 "
         "ms before the press; a history of 5 frames would have had it. It came at once"},
        {with(pressing({1000, 1010}), [](auto& o) { o.offsetMs = 250; }),
         "F9, the first frame not before the wanted instant, had gone to capture 1."},
        {with(pressing({1000}), [](auto& o) { o.offsetMs = -20'000; }),
         "The capture's time ran out, 3030 ms after the press, with nothing chosen: F33 was the "
         "oldest in the history with the streams that it needs. In 32 tries 39 frames were in the "
         "history, all refused: 39 for time (exposed before the instant that the capture stands "
         "for)."},
        {with(pressing({5850}), [](auto& o) { o.offsetMs = -20'000; }),
         "The flush at the end of the recording, 180 ms after the press, ended the wait with an "
         "ordinary capture. In 3 tries 10 frames"},
        {with(pressing({1000}), [](auto& o) { o.policy.kind = pipeline::PolicyKind::CShot; }),
         "F2 was taken because it is the oldest in the history with the streams"},
        {with(pressing({1000}, 3),
              [](auto& o) { o.policy.kind = pipeline::PolicyKind::Multiframe, o.offsetMs = 250; }),
         "Frames 0 to 2: F7 to F9 were taken because they are the first 3 in a row that passed "
         "every test and end with the first frame that began exposing not before"},
        {with(pressing({1000}, 2), plugin("cloner")),
         "Frame 0: F9 was chosen by Cloner. It came at once: it began 200 ms before the press and "
         "had been in the history for 70 ms.\nFrame 1: The capture's time ran out"},
        {with(pressing({1000}), plugin("hoarder")), "gives no reasons."},
        {with(pressing({1000}), plugin("picky")),
         "all refused: 39 for softness. With the default policy it gets F11, 130 ms after the "
         "press."},
        {with(pressing({1000}, 3), plugin("picky")),
         "With the default policy they get F11 to F13, the last 330 ms after the press."},
        {with(with(pressing({1000}), plugin("picky")), [](auto& o) { o.offsetMs = -20'000; }),
         "With the default policy nothing is chosen for it either."},
    };
    for (auto const& [options, expected, unusable] : table) {
        recording::Recording recording = steadyRecording();
        recording.frames[unusable - (unusable > 0 ? 1 : 0)].hasError = unusable > 0;
        EXPECT_THAT(answer(recording, options).texts.back(), HasSubstr(expected));
    }
}

TEST(Answers, AddUpToLagAndWait) {
    recording::GeneratorOptions generator;
    generator.gapRate = generator.errorRate = 0.1;
    generator.exposureDriftRate = 0.2;
    std::regex const sentence(
        R"(It came ([0-9.]+) ms after the press: it began ([0-9.]+) ms (before|after) the press and )"
        R"(arrived ([0-9.]+) ms later \(([0-9.]+) ms exposure, ([0-9.]+) ms readout, )"
        R"(([0-9.]+) ms delivery(, ([0-9.]+) ms late)?\).( It had been in the history for ([0-9.]+) ms)?)");
    size_t checked = 0;
    for (uint64_t const randomSeed : {1, 2, 3}) {
        generator.seedValue = randomSeed;
        pipeline::ReplayOptions options;
        options.captures = 20;
        options.faults.rules = {{pipeline::FaultKind::Late, randomSeed == 1 ? 0.0 : 0.5, {}}};
        auto const [result, texts] = answer(recording::generate(generator), options);
        for (size_t i = 0; i < texts.size(); ++i) {
            pipeline::CaptureRecord const& capture = result.captures[i];
            std::smatch part;
            if (!std::regex_search(texts[i], part, sentence)) {
                EXPECT_NE(capture.frames[0].served, pipeline::Served::Waited) << texts[i];
                continue;
            }
            ++checked;
            auto const ms = [&](size_t group) {
                return part[group].matched ? std::stod(part[group].str()) : 0.0;
            };
            double const lagMs = part[3] == "before" ? -ms(2) : ms(2);
            EXPECT_NEAR(lagMs, static_cast<double>(*capture.lagNs(capture.frames[0])) / MS, 0.005);
            EXPECT_NEAR(ms(1), static_cast<double>(*capture.waitNs(capture.frames[0])) / MS, 0.005);
            EXPECT_NEAR(lagMs + ms(4) + ms(11), ms(1), 0.02) << texts[i];
            EXPECT_NEAR(ms(5) + ms(6) + ms(7) + ms(9), ms(4), 0.025) << texts[i];
        }
    }
    EXPECT_GT(checked, 30U);
}

}  // namespace
}  // namespace zebcam::tool
