#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "CliFixture.h"
#include "commands/OptionValues.h"
#include "picture/PictureMeter.h"
#include "picture/Scene.h"
#include "picture/VideoFile.h"
#include "recording/RecordingGenerator.h"

namespace zebcam::tool {
namespace {

using picture::PixelKind;
using picture::Pixels;
using recording::SensorFrame;

/// The time that a picture's bars tell, unless their check contradicts it.
std::optional<int64_t> timeOf(Pixels const& luma) {
    constexpr uint32_t kBars = 76;
    auto const brightnessOf = [&](uint32_t bar) -> int {
        size_t const row = luma.height - luma.height / 48 - 1;
        return luma.bytes[row * luma.width + luma.width * (2 * bar + 1) / (2 * kBars)];
    };
    int const middle = (brightnessOf(0) + brightnessOf(1)) / 2;
    uint64_t time = 0;
    uint32_t check = UINT32_MAX;
    for (uint32_t bit = 0; bit < 56; ++bit) {
        time = time << 1 | (brightnessOf(2 + bit) > middle ? 1 : 0);
        if (bit % 8 == 7) {
            check ^= time & 0xff;
            for (int i = 0; i < 8; ++i) {
                check = check >> 1 ^ ((check & 1) != 0 ? 0xedb88320 : 0);
            }
        }
    }
    uint32_t told = 0;
    for (uint32_t bit = 56; bit < 72; ++bit) {
        told = told << 1 | (brightnessOf(2 + bit) > middle ? 1 : 0);
    }
    return told == (~check & 0xffff) ? std::optional(static_cast<int64_t>(time)) : std::nullopt;
}

int64_t middleLineNs(SensorFrame const& frame) {
    return frame.timestampNs + frame.readoutNs / 2;
}

/// Of a video, or of a JPEG file, which is one of a single picture.
Pixels pictureOf(std::string const& path, size_t index = 0) {
    base::InputFile file(path);
    picture::VideoFile video(file);
    while (video.next() && video.index() < index) {
    }
    return video.picture()->pixels(PixelKind::Luma);
}

class Scene : public CliTest {
protected:
    Scene() { setenv("XDG_CACHE_HOME", path("cache").c_str(), 1); }
    ~Scene() override { unsetenv("XDG_CACHE_HOME"); }

    Arguments generating(Arguments const& more) const {
        return plus({"generate", "-o", path("r.csv"), "--video", path("v.mp4"), "--seed", "4",
                     "--frames", "60", "--scan-rate", "0.05", "--json", "-"},
                    more);
    }

    std::string const mRecording = path("r.csv");
    std::string const mVideo = path("v.mp4");
};

TEST_F(Scene, TellsTheTimeOfEachPictureHoweverItIsTurnedAndScaled) {
    for (std::string const rotation : {"0", "90", "180", "270"}) {
        SCOPED_TRACE(rotation);
        Outcome const made =
            zsl(generating({"--size", "320x180", "--rotation", rotation, "--gap-rate", "0.2"}));
        ASSERT_EQ(made.status, 0) << made.err;
        Outcome const read = zsl({"replay", mRecording, "--video", mVideo, "--json", "-"});
        EXPECT_EQ(Json::parse(made.out)["recording"], Json::parse(read.out)["recording"]);
        auto const frames = recording::readRecording(mRecording).frames;
        int64_t const firstNs = frames[0].timestampNs;
        base::InputFile file(mVideo);
        picture::VideoFile video(file);
        for (SensorFrame const& frame : frames) {
            ASSERT_TRUE(video.next());
            ASSERT_NEAR(video.timeNs(), frame.timestampNs - firstNs, 1'000);
            for (uint32_t const width : {240U, 320U}) {
                Pixels const luma = video.picture()->pixels(PixelKind::Luma, width);
                ASSERT_EQ(timeOf(luma), middleLineNs(frame) - firstNs) << frame.frameNo;
            }
        }
        EXPECT_FALSE(video.next());
    }
}

/// What the scene looks like in the second frame, while it sways fast, with `change` in that one.
Pixels taken(std::string const& path, std::function<void(SensorFrame&)> const& change) {
    recording::GeneratorOptions options;
    options.frames = 4;
    options.exposureNs = 1'000'000;
    recording::Recording recording = recording::generate(options);
    change(recording.frames[1]);
    std::ofstream out(path, std::ios::binary);
    picture::writeScene(recording, {.width = 320, .height = 180}, out);
    out.close();
    return pictureOf(path, 1);
}

TEST_F(Scene, LooksAsItWasTaken) {
    auto const take = [&](auto const& change) { return taken(mVideo, change); };
    auto const measuresOf = [&](auto const& change) {
        return picture::PictureMeter().measure(take(change));
    };
    auto const still = measuresOf([](SensorFrame&) {});
    auto const longer = measuresOf([](SensorFrame& frame) {
        frame.exposureNs *= 16;
        frame.iso = *frame.iso / 16;
    });
    auto const brighter = measuresOf([](SensorFrame& frame) { frame.iso = *frame.iso * 2; });
    auto const scanning =
        measuresOf([](SensorFrame& frame) { frame.lensState = frame.afState = uint8_t{1}; });
    EXPECT_LT(longer.sharpness, still.sharpness / 2) << "motion blur";
    EXPECT_NEAR(longer.brightness, still.brightness, 3) << "as much light";
    EXPECT_LT(scanning.sharpness, still.sharpness / 4);
    EXPECT_NEAR(scanning.brightness, still.brightness, 3);
    EXPECT_GT(brighter.brightness, still.brightness * 1.1);
    // Beside the fan all lines show the same bars, unless they are exposed one after the other.
    auto const lean = [](Pixels const& luma) {
        int64_t sum = 0;
        for (size_t x = 260; x < 320; ++x) {
            sum += std::abs(luma.bytes[20 * 320 + x] - luma.bytes[150 * 320 + x]);
        }
        return sum / 60;
    };
    EXPECT_LT(lean(take([](SensorFrame& frame) { frame.readoutNs = 0; })), 3);
    EXPECT_GT(lean(take([](SensorFrame&) {})), 10);
    std::string const before = contentOf(mVideo);
    take([](SensorFrame&) {});
    EXPECT_TRUE(contentOf(mVideo) == before) << "the same bytes";
}

/// Holds that each file of a result shows what its frame of `rows` saw, and that only those have
/// none whose rows have no picture. Gives how many there are.
size_t checkFiles(Json const& result, recording::Recording const& rows, int64_t firstNs) {
    size_t files = 0;
    auto const check = [&](Json const& file, SensorFrame const& frame) {
        ASSERT_EQ(file.is_null(), !frame.videoFrame) << frame.frameNo;
        if (!file.is_null()) {
            EXPECT_EQ(timeOf(pictureOf(file)), middleLineNs(frame) - firstNs)
                << file << frame.frameNo;
            ++files;
        }
    };
    for (Json const& capture : result["captures"]) {
        auto const next = std::find_if(
            rows.frames.begin(), rows.frames.end(),
            [&](SensorFrame const& each) { return each.timestampNs > capture["pressNs"]; });
        check(capture["pressPictureFile"], *std::prev(next));
        for (Json const& chosen : capture["frames"]) {
            for (SensorFrame const& frame : rows.frames) {
                if (chosen["frameNo"] == frame.frameNo) {
                    check(chosen["pictureFile"], frame);
                }
            }
        }
    }
    return files;
}

// From the sensor's lines to the file, through all that may take one frame for another: B-frames,
// gaps, pictures without rows, rows without pictures, rows that arrive out of order, clones.
TEST_F(Scene, IsInTheFilesOfTheFramesThatWereChosen) {
    Arguments const turned = {"--size", "320x180", "--rotation", "90", "--gap-rate", "0.2"};
    ASSERT_EQ(zsl(generating(turned)).status, 0);
    recording::Recording rows = recording::readRecording(mRecording);
    int64_t const firstNs = rows.frames[0].timestampNs;
    std::erase_if(rows.frames, [](SensorFrame const& frame) { return frame.frameNo % 5 == 0; });
    recording::Recording named = rows;
    recording::Recording unnamed = rows;
    for (size_t i = 0; i < rows.frames.size(); ++i) {
        unnamed.frames[i].videoFrame.reset();
        if (i % 7 == 3) {
            named.frames[i].videoFrame.reset();
        }
    }
    recording::writeRecording(named, path("named.csv"));
    recording::writeRecording(unnamed, path("unnamed.csv"));
    std::vector<std::string> policies = commands::policyNames();
    policies.emplace_back(SELECTOR_FOLDER "/selector_cloner.so");
    for (std::string const& policy : policies) {
        SCOPED_TRACE(policy);
        Arguments const options = {
            "--video", mVideo,     "--policy", policy,       "--captures",     "8",      "--frames",
            "2",       "--offset", "100ms",    "--pictures", path("pictures"), "--json", "-"};
        auto const replayed = [&](Arguments const& input) {
            return Json::parse(zsl(plus(plus({"replay"}, input), options)).out);
        };
        EXPECT_GE(checkFiles(replayed({path("named.csv")}), named, firstNs), 8U);
        Arguments const disordered = {path("unnamed.csv"), "--fault", "reorder:0.5", "--fault",
                                      "duplicate:0.5"};
        EXPECT_GE(checkFiles(replayed(disordered), rows, firstNs), 8U);
    }
}

TEST_F(Scene, IsRefusedWhereItCannotBeTaken) {
    expectRefused({"generate", "-o", mRecording},
                  {{{"--size", "640x360"}, "--size: expected --video as well"},
                   {{"--video", mRecording}, "--video: --output goes to"},
                   {{"--video", "-"}, "--video: expected the name of a file"},
                   {{"--video", path("no/v.mp4")}, "cannot write '" + path("no/v.mp4")},
                   {{"--video", "/dev/full"}, "cannot write '/dev/full': "},
                   {{"--video", "v", "--size", "640"}, "--size: expected WIDTHxHEIGHT, found"},
                   {{"--video", "v", "--size", "641x360"}, "--size: expected even sides, found"},
                   {{"--video", "v", "--size", "64x64"}, "a whole number from 160 to 4096, found"},
                   {{"--video", "v", "--rotation", "45"}, "--rotation: expected 0, 90, 180 or"}});
}

}  // namespace
}  // namespace zebcam::tool
