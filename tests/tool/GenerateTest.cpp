#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>

#include "CliFixture.h"
#include "recording/Recording.h"
#include "recording/RecordingGenerator.h"

namespace zebcam::tool {
namespace {

namespace fs = std::filesystem;

fs::path const kDemo = fs::path(ZSL_ROOT) / "tools/zsl/demo";

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

TEST_P(GeneratedRecording, ReadsBackTheSameAndVariesWithTheSeed) {
    std::stringstream file;
    recording::writeRecording(recording, file);
    recording::InputOptions const anyRate{.anyRate = true};
    auto const copy = recording::readRecording(file, "copy", anyRate);
    EXPECT_EQ(copy.frames, frames);
    EXPECT_EQ(copy.medianIntervalNs, recording.medianIntervalNs);
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
        ASSERT_GT(frames[i].exposureNs, 0) << "at " << i;
        ASSERT_LE(frames[i].exposureNs, reported) << "at " << i;
        wasLate = isLate;
        late += isLate;
    }
    bool const onlyGaps = GetParam().gapRate == 1;
    EXPECT_EQ(late > 0, !onlyGaps);
    EXPECT_EQ(recording::computeFacts(recording).gaps > 0, !onlyGaps);
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

class GenerateCommand : public CliTest {};

TEST_F(GenerateCommand, NamesTheOptionThatIsNoGood) {
    std::vector<Refusal> const table = {
        {{"--frames", "1"}, "zsl generate: --frames: expected 2 to 1000000, found 1\n"},
        {{"--frames", "many"}, "--frames: expected a whole number from 0 to 4294967295, found"},
        {{"--fps", "nan"}, "--fps: expected 1 to 960, found nan"},
        {{"--fps", "30x"}, "--fps: expected a number, found \"30x\""},
        {{"--unsynced-rate", "-1"}, "--unsynced-rate: expected 0 to 1, found -1"},
        {{"--exposure", "40ms"}, "--exposure: expected 0.000000001s to 0.033333333s, found 0.04s"},
        {{"--exposure", "40"}, "--exposure: expected a time with its unit"},
        {{"--jitter", "5ms"}, "--jitter: expected 0s to 0.003339999s, found 0.005s"},
        {{"--first-frame", "4294967295"}, "--first-frame: expected 0 to 4294966995"},
        {{"--start", "0s"}, "--start: expected 0.000000001s to"},
        {{"--seed", "18446744073709551616"}, "--seed: expected a whole number from 0 to 9223"},
        {{"--json", path("no/folder")}, "cannot write '" + path("no/folder") + "': No such file"},
    };
    expectRefused({"generate", "--output", path("r.csv")}, table);
    expectRefused(
        {"generate"},
        {
            {{"--json", "-", "--output", "-"}, "--json: --output goes to '-' as well"},
            {{"--json", path("r"), "--output", path("r")}, "--json: --output goes to"},
            {{"--output", "/nowhere/r.csv"}, "cannot write '/nowhere/r.csv': No such file"},
        });
}

TEST_F(GenerateCommand, TellsWhatItMade) {
    std::string const file = path("r.csv");
    Outcome const outcome = zsl({"generate", "-o", file, "--frames", "90", "--start", "5s",
                                 "--gap-rate", "0.5", "--exposure", "2ms", "--json", "-"});
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    auto const json = nlohmann::json::parse(outcome.out);
    auto const& made = json["recording"];
    EXPECT_EQ(made["firstTimestampNs"], 5'000'000'000);
    EXPECT_GT(made["gaps"], 10);
    EXPECT_EQ(json["options"]["exposureNs"], 2'000'000);
    EXPECT_EQ(made, nlohmann::json::parse(zsl({"replay", file, "--json", "-"}).out)["recording"]);
}

TEST_F(GenerateCommand, MakesTheDemoRecordingAsItsPageSays) {
    std::string const page = contentOf(kDemo / "README.md");
    std::string const start = "zsl generate --output demo_30fps.csv ";
    auto const at = page.find(start);
    ASSERT_NE(at, std::string::npos);
    std::istringstream options(
        page.substr(at + start.size(), page.find('\n', at) - at - start.size()));
    Arguments const given{std::istream_iterator<std::string>(options), {}};
    Outcome const outcome = zsl(plus({"generate", "--output", path("demo.csv")}, given));
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(contentOf(path("demo.csv")), contentOf(kDemo / "demo_30fps.csv"));
}

}  // namespace
}  // namespace zebcam::tool
