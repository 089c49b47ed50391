#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
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

/// What a small video of `recording` shows; a JPEG is a video of one picture, too.
std::vector<Pixels> picturesOf(std::string const& path, uint32_t width) {
    base::InputFile file(path);
    picture::VideoFile video(file);
    std::vector<Pixels> pictures;
    while (video.next()) {
        pictures.push_back(video.picture()->pixels(PixelKind::Luma, width));
    }
    return pictures;
}

class Scene : public CliTest {
protected:
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
        Outcome const read =
            zsl({"replay", mRecording, "--video", mVideo, "--no-cache", "--json", "-"});
        EXPECT_EQ(Json::parse(made.out)["recording"], Json::parse(read.out)["recording"]);
        auto const frames = recording::readRecording(mRecording).frames;
        int64_t const firstNs = frames[0].timestampNs;
        for (uint32_t const width : {240U, 320U}) {
            std::vector<Pixels> const pictures = picturesOf(mVideo, width);
            ASSERT_EQ(pictures.size(), frames.size());
            for (size_t i = 0; i < frames.size(); ++i) {
                ASSERT_EQ(timeOf(pictures[i]), middleLineNs(frames[i]) - firstNs) << i;
            }
        }
        base::InputFile file(mVideo);
        picture::VideoFile video(file);
        for (SensorFrame const& frame : frames) {
            ASSERT_TRUE(video.next());
            ASSERT_NEAR(video.timeNs(), frame.timestampNs - firstNs, 1'000);
        }
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
    return picturesOf(path, 320).at(1);
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
