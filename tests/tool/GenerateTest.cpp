#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "commands/Commands.h"
#include "recording/Recording.h"
#include "recording/RecordingFile.h"
#include "recording/RecordingGenerator.h"

namespace zebcam::tool {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

fs::path const kDemo = fs::path(__FILE__).parent_path() / "../../tools/zsl/demo";

std::string contentOf(fs::path const& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// Runs `generate` with the words of `line`, standard error aside.
struct CommandResult {
    int exitStatus = -1;
    std::string errors;
};

CommandResult runCommand(std::string const& line) {
    CommandResult result;
    CLI::App app;
    commands::addGenerateCommand(app, result.exitStatus);
    testing::internal::CaptureStderr();
    try {
        app.parse(line);
    } catch (CLI::ParseError const& error) {
        result.errors = error.what();
    }
    result.errors += testing::internal::GetCapturedStderr();
    return result;
}

/// Recordings that differ in rate, chance and length: what holds for one must hold for all.
class GeneratedRecording : public testing::TestWithParam<recording::GeneratorOptions> {
protected:
    recording::Recording const recording = recording::generate(GetParam());
    std::vector<recording::SensorFrame> const& frames = recording.frames;
};

recording::GeneratorOptions optionsOf(double fps, uint64_t seedValue, double rate) {
    recording::GeneratorOptions options;
    options.frames = 2000;
    options.fps = fps;
    options.seedValue = seedValue;
    options.lateRate = options.gapRate = options.scanRate = rate;
    options.exposureJumpRate = rate;
    options.strangeAfStateRate = 0;
    return options;
}

INSTANTIATE_TEST_SUITE_P(Rates, GeneratedRecording,
                         testing::Values(optionsOf(30, 1, 0.02), optionsOf(60, 2, 0.2),
                                         optionsOf(960, 3, 0.05), optionsOf(1, 4, 1)));

TEST_P(GeneratedRecording, ReadsBackTheSameAndMakesItselfAgain) {
    std::stringstream file;
    recording::writeRecording(recording, file);
    auto const copy = recording::readRecording(file, "copy");
    EXPECT_EQ(copy.frames, frames);
    EXPECT_EQ(copy.medianIntervalNs, recording.medianIntervalNs);
    EXPECT_EQ(recording::generate(GetParam()).frames, frames);
    auto other = GetParam();
    other.seedValue += uint64_t{1} << 32;
    EXPECT_NE(recording::generate(other).frames, frames);
}

TEST_P(GeneratedRecording, KeepsTheGridThroughJitterLatenessAndGaps) {
    int64_t const reported = frames[0].durationNs;
    int64_t const interval = reported + reported / 500;
    int64_t const jitter = GetParam().jitterNs;
    int64_t const lateness = std::min<int64_t>(1'300'000, interval * 4 / 10);
    EXPECT_EQ(reported, std::llround(1e9 / GetParam().fps));
    int late = 0;
    int64_t gridTime = frames[0].timestampNs;
    bool wasLate = false;
    for (size_t i = 1; i < frames.size(); ++i) {
        ASSERT_EQ(frames[i].frameNo, frames[i - 1].frameNo + 1);
        int64_t const step = frames[i].timestampNs - frames[i - 1].timestampNs;
        bool const gap = step == 2 * interval;
        ASSERT_TRUE(gap || step < interval * 3 / 2) << "at " << i;
        gridTime += gap ? 2 * interval : interval;
        int64_t const deviation = frames[i].timestampNs - gridTime;
        bool const isLate = std::abs(deviation) > jitter / 2;
        ASSERT_LE(std::abs(deviation - (isLate ? lateness : 0)), jitter / 2) << "at " << i;
        ASSERT_FALSE(isLate && wasLate) << "at " << i;
        wasLate = isLate;
        late += isLate;
    }
    bool const onlyGaps = GetParam().gapRate == 1;
    EXPECT_EQ(late > 0, !onlyGaps);
    EXPECT_EQ(recording::computeFacts(recording).gaps > 0, !onlyGaps);
}

TEST_P(GeneratedRecording, ScansWithAMovingLensAndJumpsUnstably) {
    std::map<size_t, size_t> scans;  // how many took so many frames
    size_t length = frames[0].afState == 1 ? 1 : 0;
    for (size_t i = 1; i < frames.size(); ++i) {
        SCOPED_TRACE(i);
        bool const moved = frames[i].focusDistance != frames[i - 1].focusDistance;
        bool const scanning = frames[i].afState == 1;
        ASSERT_EQ(frames[i].lensState, moved ? 1 : 0);
        ASSERT_TRUE(scanning || !moved);
        if (!scanning && length > 0) {
            ++scans[length];
        }
        length = scanning ? length + 1 : 0;
        auto const before = static_cast<double>(frames[i - 1].exposureNs);
        auto const change = static_cast<double>(frames[i].exposureNs) / before - 1;
        ASSERT_GT(frames[i].exposureNs, 0);
        ASSERT_LE(frames[i].exposureNs, frames[i].durationNs);
        ASSERT_TRUE(std::abs(change) <= 0.0501 || frames[i].aeStable == 0);
    }
    EXPECT_EQ(scans.begin()->first, 2U);
    EXPECT_EQ(scans.rbegin()->first, 11U);
}

TEST(Generator, ObeysItsRates) {
    recording::GeneratorOptions none;
    none.lateRate = none.gapRate = none.exposureDriftRate = none.exposureJumpRate = 0;
    none.scanRate = none.strangeAfStateRate = 0;
    none.jitterNs = 0;
    auto const steady = recording::generate(none);
    auto const facts = recording::computeFacts(steady);
    EXPECT_EQ(facts.minIntervalNs, 33'399'999);
    EXPECT_EQ(facts.maxIntervalNs, 33'399'999);
    EXPECT_EQ(facts.focusMoves + facts.framesWithError + facts.missing.afState, 0u);
    EXPECT_EQ(steady.frames.back().exposureNs, 10'000'000);
    EXPECT_EQ(steady.frames.back().afState, 2);
    EXPECT_EQ(steady.frames.back().frameSync, 0);

    recording::GeneratorOptions all = none;
    all.errorRate = all.unsyncedRate = 1;
    all.missingAfStateRate = 0.5;
    all.strangeAfStateRate = 1;
    auto const faulty = recording::generate(all).frames;
    for (size_t i = 0; i < faulty.size(); ++i) {
        ASSERT_TRUE(faulty[i].hasError && faulty[i].frameSync == 1);
        ASSERT_EQ(faulty[i].afState.value_or(0), i % 2 == 0 ? 101 : 0);
    }
}

TEST(GenerateCommand, NamesTheOptionThatIsNoGood) {
    struct {
        char const* arguments;
        char const* error;
    } const cases[] = {
        {"--frames 1", "frames: expected 2 to 1000000, found 1"},
        {"--fps nan", "fps: expected 1 to 960, found nan"},
        {"--unsynced-rate -1", "unsynced rate: expected 0 to 1, found -1"},
        {"--exposure-ms 40", "exposure (ns): expected 1 to 33333333, found 40000000"},
        {"--exposure-ms 1e300", "exposure: expected a time within 64 bits"},
        {"--jitter-us 5000", "jitter (ns): expected 0 to 3339999, found 5000000"},
        {"--first-frame 4294967295", "first frame number: expected 0 to 4294966996"},
        {"--start-ns 0", "start (ns): expected 1 to"},
        {"--seed 18446744073709551616", "--seed: expected a whole number below 2^64"},
    };
    for (auto const& test : cases) {
        auto const result = runCommand(std::string("generate --output - ") + test.arguments);
        EXPECT_THAT(result.errors, HasSubstr(test.error)) << test.arguments;
        EXPECT_NE(result.exitStatus, 0) << test.arguments;
    }
    auto const unwritable = runCommand("generate --output /nowhere/r.csv");
    EXPECT_EQ(unwritable.exitStatus, 2);
    EXPECT_THAT(unwritable.errors, HasSubstr("cannot write '/nowhere/r.csv': No such file"));
}

TEST(GenerateCommand, MakesTheDemoRecordingAsItsPageSays) {
    std::string const page = contentOf(kDemo / "README.md");
    std::string const start = "zsl generate --output demo_30fps.csv ";
    auto const at = page.find(start);
    ASSERT_NE(at, std::string::npos);
    auto const from = at + start.size();
    std::string const options = page.substr(from, page.find('\n', from) - from);
    fs::path const path = fs::path(testing::TempDir()) / "demo_made_again.csv";
    auto const result = runCommand("generate --output " + path.string() + " " + options);
    EXPECT_EQ(result.exitStatus, 0) << result.errors;
    EXPECT_EQ(contentOf(path), contentOf(kDemo / "demo_30fps.csv"));
    fs::remove(path);
}

}  // namespace
}  // namespace zebcam::tool
