#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <policy/zsl/PictureMeasures.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "CliFixture.h"
#include "picture/MeasuredVideo.h"
#include "picture/PictureMeter.h"
#include "picture/PictureReel.h"
#include "pipeline/FrameFactory.h"
#include "tool/SteadyRecording.h"
#include "tool/TestVideo.h"

namespace zebcam::tool {
namespace {

using picture::PixelKind;
using picture::Pixels;
using recording::PictureMatch;
namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;

class Picture : public CliTest {
protected:
    Picture() {
        fs::create_directory(path("cache"));
        setenv("XDG_CACHE_HOME", path("cache").c_str(), 1);
    }
    ~Picture() override { unsetenv("XDG_CACHE_HOME"); }

    static picture::MeasuredVideo measured(std::string const& path) {
        base::InputFile file(path);
        picture::VideoFile video(file);
        return picture::measureVideo(video);
    }

    /// Luma of the middle of each picture of a file.
    static std::vector<int> shownBy(std::string const& path) {
        base::InputFile file(path);
        picture::VideoFile video(file);
        std::vector<int> shown;
        while (video.next()) {
            Pixels const luma = video.picture()->pixels(PixelKind::Luma);
            shown.push_back(luma.bytes[(luma.height + 1) / 2 * luma.width + luma.width / 2]);
        }
        return shown;
    }

    static std::string whatIsWrongWith(std::string const& path) {
        return errorOf([&] { measured(path); });
    }
};

TEST_F(Picture, ComesInTheOrderOfPresentationUprightAndSquare) {
    // 64 x 48 points that are twice as wide as high, turned by a quarter: 48 x 128.
    std::string const file = writeTestVideo(path("v.mp4"), {.rotation = 90, .aspect = 2});
    base::InputFile input(file);
    picture::VideoFile video(input);
    EXPECT_EQ(video.rotation(), 90);
    for (int pass = 0; pass < 2; ++pass, video.rewind()) {
        std::vector<int64_t> timesMs;
        while (video.next()) {
            timesMs.push_back(video.timeNs() / MS);
            Pixels const luma = video.picture()->pixels(PixelKind::Luma);
            ASSERT_EQ(luma.width, 48u);
            ASSERT_EQ(luma.height, 128u);
            Pixels const rgb = video.picture()->pixels(PixelKind::Rgb, 24);
            ASSERT_EQ(rgb.height, 64u);
            // From 16 to 235 in the file, from 0 to 255 here.
            int const expected = (brightnessOf(video.index()) - 16) * 255 / 219;
            constexpr int dark = (DARK_LUMA - 16) * 255 / 219;
            EXPECT_NEAR(luma.bytes[5 * 48 + 5], expected, 5);
            EXPECT_NEAR(luma.bytes[5 * 48 + 43], dark, 5) << "the dark quarter is right above";
            EXPECT_NEAR(rgb.bytes[(60 * 24 + 12) * 3 + 1], expected, 5);
            EXPECT_NEAR(rgb.bytes[(3 * 24 + 20) * 3 + 1], dark, 5);
        }
        EXPECT_EQ(timesMs, TestVideo().timesMs);
    }
}

TEST_F(Picture, ComesOutOfAPipeToo) {
    // With its index at its end, which cannot be read from front to back.
    std::string const file = writeTestVideo(path("v.mp4"), {.startsWithIndex = false});
    std::istringstream content(contentOf(file));
    std::streambuf* const before = std::cin.rdbuf(content.rdbuf());
    picture::MeasuredVideo const piped = measured("-");
    std::cin.rdbuf(before);
    EXPECT_EQ(piped.path, "<standard input>");
    EXPECT_EQ(piped.measures, measured(file).measures);
    EXPECT_EQ(piped.measures.size(), 8u);
}

TEST_F(Picture, IsRefusedWithFileAndCause) {
    std::string const whole = contentOf(writeTestVideo(path("whole.mp4")));
    std::string const late =
        contentOf(writeTestVideo(path("late.mp4"), {.startsWithIndex = false}));
    std::string const y4m = "YUV4MPEG2 W4 H4 F30:1 Cmono\n";
    std::string const wav(
        "RIFF\x34\0\0\0WAVEfmt \x10\0\0\0\1\0\1\0\x40\x1f\0\0\x40\x1f\0\0\1\0\x8\0"
        "data\x10\0\0\0aaaaaaaaaaaaaaaa",
        60);
    std::string corrupt = whole;
    std::fill(corrupt.begin() + static_cast<ptrdiff_t>(whole.find("mdat")) + 300, corrupt.end(),
              '\x55');
    std::pair<std::string, std::string> const cases[] = {
        {"", "expected a video, found "},
        {std::string(5'000, '\0'), "expected a video, found "},
        {late.substr(0, late.size() / 3), "(moov atom not found)"},
        {whole.substr(0, whole.size() - 1), "expected a whole file, found one that breaks off in"},
        {whole.substr(0, whole.find("mdat") + 4),
         "expected 8 pictures as its index tells, found 0"},
        {corrupt, "cannot be decoded: "},
        {wav, "found wav without pictures (audio)"},
        {y4m, "expected a video, found no picture in it"},
        {"YUV4MPEG2 W100000 H100000 F30:1 Cmono\nFRAME\nabc", "x: expected "},
        {"YUV4MPEG2 W16385 H2 F30:1 Cmono\nFRAME\nabc",
         "expected pictures of at most 67 million points and 16384 a side, found 16385 x 2"},
    };
    for (auto const& [content, told] : cases) {
        std::string const error = whatIsWrongWith(write("x", content));
        EXPECT_THAT(error, HasSubstr(told));
        EXPECT_THAT(error, HasSubstr(path("x") + ": "));
        EXPECT_EQ(std::count(error.begin(), error.end(), '\n'), 0) << error;
    }
}

Pixels texture(uint32_t width, uint32_t height, uint32_t left, uint32_t top, int more = 0) {
    Pixels pixels{width, height, {}};
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            double const wave = std::sin((x + left) / 9.0) + std::cos((y + top) / 7.0) +
                                std::sin(((x + left) * (y + top)) / 500.0);
            pixels.bytes.push_back(static_cast<uint8_t>(std::lround(120 + 30 * wave) + more));
        }
    }
    return pixels;
}

TEST(PictureMeter, MeasuresWhatIsKnown) {
    // Columns of 80 and 120: each point differs by 40 from two of its neighbours.
    Pixels stripes{320, 240, {}};
    for (size_t i = 0; i < size_t{320} * 240; ++i) {
        stripes.bytes.push_back(i % 2 == 0 ? 80 : 120);
    }
    recording::PictureMeasures const sharp = picture::PictureMeter().measure(stripes);
    EXPECT_FLOAT_EQ(sharp.sharpness, 80.0F * 80 / (100 * 100) * 1e4F);
    EXPECT_FLOAT_EQ(sharp.brightness, 100);
    EXPECT_FALSE(sharp.motion.has_value()) << "of the first there is none";
    Pixels clipped{2, 2, {0, 255, 1, 254}};
    EXPECT_FLOAT_EQ(picture::PictureMeter().measure(clipped).clipped, 0.5F);
    EXPECT_FLOAT_EQ(picture::PictureMeter().measure({3, 3, std::vector<uint8_t>(9)}).sharpness, 0);

    picture::PictureMeter meter;
    meter.measure(texture(320, 240, 50, 50));
    EXPECT_FLOAT_EQ(*meter.measure(texture(320, 240, 63, 44)).motion, 0) << "as a whole";
    EXPECT_FLOAT_EQ(*meter.measure(texture(320, 240, 33, 65, 5)).motion, 5);
    EXPECT_GT(*meter.measure(texture(320, 240, 333, 65)).motion, 5) << "another place";
    EXPECT_FALSE(meter.measure(texture(320, 200, 0, 0)).motion.has_value());
}

/// Which picture each frame got, and by what, as `Count 0 1 - 2`.
std::string matchOf(recording::Recording recording, std::vector<int64_t> timesMs) {
    for (int64_t& time : timesMs) {
        time *= MS;
    }
    char const* const words[] = {"Column", "Count", "Time", "Start", "Itself"};
    std::string text =
        words[static_cast<size_t>(picture::matchPictures(recording, timesMs, "v.mp4"))];
    for (recording::SensorFrame const& frame : recording.frames) {
        text += frame.videoFrame ? " " + std::to_string(*frame.videoFrame) : " -";
    }
    return text;
}

TEST(PictureMatch, FindsTheFramesOfPictures) {
    recording::Recording const frames = steadyRecording(4);  // 100 ms apart
    EXPECT_EQ(matchOf(frames, {0, 7, 9, 11}), "Count 0 1 2 3") << "whatever their times say";
    EXPECT_EQ(matchOf(frames, {0, 140, 160, 210, 351}), "Start 0 1 3 -");
    EXPECT_EQ(matchOf(frames, {0, 60, 130}), "Start 0 2 - -") << "nearer to the first";
    EXPECT_EQ(matchOf(frames, {0, 150}), "Start 0 1 - -") << "of one, the first frame";
    EXPECT_EQ(matchOf(frames, {5'000'110, 5'000'200}), "Time - 0 1 -");
    recording::Recording told = frames;
    told.frames[1].videoFrame = 4;
    EXPECT_EQ(matchOf(told, {0, 1, 2, 3, 4}), "Column - 4 - -");
    EXPECT_THAT(errorOf([&] {
                    matchOf(told, {0, 1, 2, 3});
                }),
                HasSubstr("v.mp4: expected picture 4, which frame 2 of "));
    EXPECT_THAT(errorOf([&] {
                    matchOf(frames, {0, 200, 100});
                }),
                HasSubstr("ascend, found 0.1s of picture 2 after 0.2s"));
}

TEST_F(Picture, MakesARecordingOnItsOwn) {
    picture::MeasuredVideo video = measured(writeTestVideo(path("v.mp4")));
    recording::Recording const made = picture::recordingOf(video, {.toNs = 150 * MS});
    ASSERT_EQ(made.frames.size(), 5u);
    EXPECT_EQ(made.frames[1].timestampNs - made.frames[0].timestampNs, 33 * MS);
    EXPECT_EQ(made.frames[4].picture, video.measures[4]);
    EXPECT_EQ(made.video->match, PictureMatch::Itself);
    EXPECT_TRUE(made.lacks(recording::Column::Exposure));
    video.timesNs[3] = video.timesNs[2];
    EXPECT_THAT(errorOf([&] { picture::recordingOf(video, {}); }), HasSubstr("of picture 3 after"));
}

TEST(PictureTags, TellAPolicyOfEachFrame) {
    recording::SensorFrame measured = steadyRecording(1).frames.front();
    measured.picture = {3, std::nullopt, 100, 0.5F};
    recording::SensorFrame const unseen = steadyRecording(1).frames.front();
    pipeline::FrameFactory factory;
    std::vector<NSCam::ZslPolicy::PictureMeasures> told;
    for (recording::SensorFrame const& frame : {measured, unseen}) {
        auto const buffer = factory.sensorFrame(frame).appMeta.at(0);
        NSCam::IMetadata* const metadata = buffer->tryReadLock("test");
        told.push_back(NSCam::ZslPolicy::pictureMeasures({{nullptr, metadata}}));
        buffer->unlock("test", metadata);
    }
    EXPECT_EQ(told[0].sharpness, 3);
    EXPECT_EQ(told[0].motion, std::nullopt);
    EXPECT_EQ(told[0].clipped, 0.5F);
    EXPECT_EQ(told[1].sharpness, std::nullopt) << "those of the frame before are gone";
}

/// A recording of 12 frames, 100 ms apart, and a video with a picture for each.
class PictureCli : public Picture {
protected:
    std::string const mRecording = steadyFile(path("r.csv"), 12);
    std::string const mVideo =
        writeTestVideo(path("v.mp4"), {.timesMs = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}});
    Arguments const mReplay = {"replay", mRecording, "--video", mVideo, "--offset", "300ms"};
};

TEST_F(PictureCli, TellsHowSharpTheChosenPicturesAre) {
    Outcome const text = zsl(plus(mReplay, {"--press", "900ms"}));
    EXPECT_EQ(text.status, 0) << text.err;
    EXPECT_THAT(text.out,
                HasSubstr("12 pictures of 64 x 48, one for each frame; every frame has "));
    EXPECT_THAT(text.out, HasSubstr("Sharpness  median "));

    picture::MeasuredVideo const video = measured(mVideo);
    Json const json = Json::parse(zsl(plus(mReplay, {"--json", "-", "--captures", "4"})).out);
    EXPECT_EQ(json["recording"]["video"]["matchedBy"], "count");
    std::vector<double> shares;
    for (Json const& capture : json["captures"]) {
        Json const& frame = capture["frames"][0];
        Json const& picture = frame["chosen"]["picture"];
        size_t const index = frame["frameNo"].get<size_t>() - 1;
        EXPECT_EQ(picture["videoFrame"], index);
        EXPECT_EQ(picture["sharpness"], video.measures[index].sharpness);
        float best = 0;
        for (Json const& other : capture["tries"][frame["try"].get<size_t>()]["historyFrames"]) {
            best = std::max(best, video.measures[other.get<size_t>() - 1].sharpness);
        }
        shares.push_back(video.measures[index].sharpness / best);
        EXPECT_FLOAT_EQ(picture["sharpnessShare"].get<float>(), static_cast<float>(shares.back()));
    }
    ASSERT_EQ(shares.size(), 4u);
    EXPECT_LT(shares.back(), 1) << "darker pictures have more contrast";
    std::sort(shares.begin(), shares.end());
    Json const& summary = json["summary"]["chosen"]["pictures"];
    EXPECT_FLOAT_EQ(summary["p5SharpnessShare"].get<float>(), static_cast<float>(shares[0]));
    EXPECT_FLOAT_EQ(summary["medianSharpnessShare"].get<float>(),
                    static_cast<float>((shares[1] + shares[2]) / 2));
    EXPECT_EQ(zsl(plus(mReplay, {"--fail-if", "median_sharpness_share<=1"})).status, 1);
}

TEST_F(PictureCli, ComparesByPicturesOfEachRecording) {
    std::string const broken = write("broken.mp4", std::string(100, '\0'));
    Outcome const outcome = zsl({"compare", mRecording, mVideo, broken, "--any-rate", "--video",
                                 mVideo, "--video", mVideo, "--video", mVideo});
    EXPECT_THAT(outcome.err, HasSubstr("which is a video itself"));
    Outcome const alone =
        zsl({"compare", mRecording, "--video", mVideo, "--offset", "300ms", "--json", "-"});
    EXPECT_EQ(alone.status, 0) << alone.err;
    Json const row = Json::parse(alone.out)["rows"][0];
    Json const replay = Json::parse(zsl(plus(mReplay, {"--json", "-"})).out);
    EXPECT_EQ(row["summary"]["chosen"], replay["summary"]["chosen"]);
    EXPECT_EQ(row["recording"]["video"], replay["recording"]["video"]);
    EXPECT_FALSE(row["fields"]["below_half_percent"].is_null());
    Outcome const mixed = zsl({"compare", mRecording, mVideo, broken, "--any-rate"});
    EXPECT_EQ(mixed.status, 1);
    EXPECT_THAT(mixed.out, HasSubstr("12 pictures of 64 x 48, the recording itself; every frame"));
    EXPECT_THAT(mixed.err, HasSubstr("broken.mp4: expected a video, found "));
    EXPECT_THAT(mixed.out, HasSubstr("<half%"));
}

TEST_F(PictureCli, IsMeasuredOnce) {
    auto const brightness = [&](Arguments const& more) {
        Outcome const outcome = zsl(plus(mReplay, plus({"--json", "-", "--press", "1s"}, more)));
        EXPECT_EQ(outcome.status, 0) << outcome.err;
        return Json::parse(
            outcome.out)["captures"][0]["frames"][0]["chosen"]["picture"]["brightness"];
    };
    Json const measured = brightness({"--no-cache"});
    EXPECT_TRUE(fs::is_empty(path("cache")));
    EXPECT_EQ(brightness({}), measured);
    std::vector<fs::path> kept;
    for (auto const& entry : fs::recursive_directory_iterator(path("cache"))) {
        if (entry.is_regular_file()) {
            kept.push_back(entry.path());
        }
    }
    ASSERT_EQ(kept.size(), 1u);
    Json other = Json::parse(contentOf(kept[0]));
    for (Json& each : other["brightness"]) {
        each = 7;
    }
    std::ofstream(kept[0]) << other;
    EXPECT_EQ(brightness({}), 7);
    EXPECT_EQ(brightness({"--no-cache"}), measured);
    other["brightness"].erase(0);
    std::ofstream(kept[0]) << other;
    EXPECT_EQ(brightness({}), measured) << "what is of no use is written anew";
    EXPECT_EQ(Json::parse(contentOf(kept[0]))["brightness"].size(), 12u);
    fs::remove_all(path("cache"));
    write("cache", "a file where a folder should be");
    EXPECT_EQ(brightness({}), measured);
}

TEST_F(PictureCli, WritesThePicturesThatFrameBuildersGot) {
    write("out/other", "stays");
    Outcome const outcome = zsl(plus(mReplay, {"--captures", "3", "--frames", "2", "--pictures",
                                               path("out"), "--json", path("r.json")}));
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_THAT(unwrapped(outcome.out), HasSubstr("Pictures 9 files in " + path("out") + " L"));
    std::vector<int> const shown = shownBy(mVideo);
    std::vector<std::string> written = {"other"};
    auto const expectShown = [&](Json const& file, size_t picture, std::string const& described) {
        ASSERT_TRUE(file.is_string());
        std::string const name = file;
        written.push_back(fs::path(name).filename());
        ASSERT_EQ(shownBy(name).size(), 1u);
        EXPECT_NEAR(shownBy(name)[0], shown[picture], 4) << name;
        EXPECT_THAT(contentOf(name), HasSubstr(described));
        EXPECT_THAT(contentOf(name), HasSubstr("1970:01:01 01:23:2")) << "5000 s of boot time";
    };
    Json const told = Json::parse(contentOf(path("r.json")));
    for (Json const& capture : told["captures"]) {
        size_t const press = capture["pressFrame"].get<size_t>() - 1;
        int64_t const sincePressFrame =
            capture["pressNs"].get<int64_t>() - START - static_cast<int64_t>(press) * 100 * MS;
        EXPECT_TRUE(0 <= sincePressFrame && sincePressFrame < 100 * MS);
        expectShown(capture["pressPictureFile"], press,
                    "press: frame " + std::to_string(press + 1));
        for (Json const& frame : capture["frames"]) {
            size_t const picture = frame["chosen"]["picture"]["videoFrame"];
            expectShown(frame["pictureFile"], picture,
                        "history frame " + std::to_string(picture + 1) + ", exposed ");
        }
    }
    EXPECT_EQ(contentOf(path("out/capture-0001-frame-0.jpg")).substr(2, 2), "\xFF\xE1") << "EXIF";
    EXPECT_THAT(files("out"), testing::UnorderedElementsAreArray(written));

    recording::Recording some = steadyRecording(12);
    some.frames[5].videoFrame = 5;
    recording::writeRecording(some, path("some.csv"));
    Outcome const few = zsl({"replay", path("some.csv"), "--video", mVideo, "--press", "900ms",
                             "--pictures", path("few")});
    EXPECT_THAT(unwrapped(few.out), HasSubstr("/few; without a picture: capture 1 frame 0, the "
                                              "press of capture 1"));
}

TEST_F(PictureCli, IsMeasuredWhileItIsShown) {
    Arguments const replay = plus(mReplay, {"--captures", "3", "--json", "-"});
    auto const measures = [&](Arguments const& more) {
        Json told = Json::parse(zsl(plus(replay, more)).out);
        told.erase("run");
        for (Json& capture : told["captures"]) {
            capture["pressPictureFile"] = capture["frames"][0]["pictureFile"] = nullptr;
        }
        return told;
    };
    Json const measuredBefore = measures({"--no-cache"});
    EXPECT_EQ(measures({"--no-cache", "--pictures", path("a")}), measuredBefore);
    EXPECT_TRUE(fs::is_empty(path("cache")));
    EXPECT_EQ(measures({"--pictures", path("b")}), measuredBefore);
    EXPECT_FALSE(fs::is_empty(path("cache"))) << "all of it is measured by then";
    EXPECT_EQ(measures({}), measuredBefore);

    base::InputFile file(mVideo);
    picture::VideoFile video(file);
    std::optional<picture::MeasuredVideo> outline = picture::outlineOf(video);
    ASSERT_TRUE(outline.has_value());
    EXPECT_EQ(outline->timesNs, measured(mVideo).timesNs);
    ++outline->timesNs[4];
    std::vector<recording::SensorFrame> frames(12);
    frames[0].videoFrame = 3;
    frames[1].videoFrame = 4;
    picture::PictureReel reel(std::move(video), *outline, frames);
    EXPECT_NE(reel.of(frames[0]), nullptr);
    EXPECT_EQ(frames[0].picture, measured(mVideo).measures[3]);
    EXPECT_THROW(reel.of(frames[1]), picture::OutlineError);
}

TEST_F(PictureCli, GivesPicturesInAnyOrder) {
    std::vector<recording::SensorFrame> frames(4);
    size_t const order[] = {7, 2, 9, 9};
    for (size_t i = 0; i < frames.size(); ++i) {
        frames[i].videoFrame = static_cast<uint32_t>(order[i]);
    }
    base::InputFile file(mVideo);
    picture::PictureReel reel(picture::VideoFile(file), measured(mVideo), frames);
    std::vector<std::shared_ptr<picture::Picture const>> held;
    for (size_t i = 0; i < frames.size(); ++i) {
        held.push_back(reel.of(frames[i]));
        EXPECT_EQ(held.back()->pixels(PixelKind::Luma).bytes.back(), shownBy(mVideo)[order[i]]);
    }
    EXPECT_EQ(held[2], held[3]) << "somebody has it still";
    recording::SensorFrame unseen;
    EXPECT_EQ(reel.of(unseen), nullptr);
}

TEST_F(PictureCli, CopiesWhatTheCapturesCouldHaveHad) {
    recording::Recording recording = steadyRecording(12);
    picture::MeasuredVideo const known = measured(mVideo);
    picture::addPictures(recording, known);
    base::InputFile file(mVideo);
    picture::PictureReel reel(picture::VideoFile(file), known, recording.frames);
    run::ReplayListener listener;
    listener.pictures = {[&](recording::SensorFrame& frame) { return reel.of(frame); }, nullptr,
                         true};
    pipeline::ReplayOptions const options =
        with(pressing({950}), [](auto& o) { o.history = 3, o.offsetMs = 300; });
    run::ReplayResult const result = run::replay(recording, options, listener);
    std::vector<uint32_t> copied;
    for (auto const& [frameNo, copy] : result.pictures) {
        copied.push_back(frameNo);
        EXPECT_EQ(copy.width, 64u);
        EXPECT_EQ(copy.height, 48u);
        std::ofstream(path("copy.jpg")) << copy.jpeg;
        EXPECT_NEAR(shownBy(path("copy.jpg")).at(0), shownBy(mVideo)[frameNo - 1], 6);
    }
    EXPECT_THAT(copied, ElementsAre(7, 8, 9, 10)) << "three in the history, and that of the press";
}

TEST(PictureBuffers, AreFreedAndSharedWithTheirFrames) {
    auto const plugin = [](char const* name) {
        return [name](pipeline::ReplayOptions& o) {
            o.policy = {pipeline::PolicyKind::Plugin,
                        std::string(SELECTOR_FOLDER "/selector_") + name + ".so"};
        };
    };
    struct {
        char const* what;
        std::function<void(pipeline::ReplayOptions&)> change;
        size_t mostBuilt;  ///< how many more live than are in the history and kept by policies
        size_t mostKept;
    } const cases[] = {
        {"waited for", [](auto&) {}, 1, 0},
        {"two at a time", [](auto& o) { o.framesPerCapture = 2, o.offsetMs = 400; }, 2, 0},
        {"kept by a policy", plugin("hoarder"), 0, 47},
        {"clones", plugin("cloner"), 0, 0},
        {"flushed", [](auto& o) { o.offsetMs = -20'000, o.flushesNs = {2'500 * MS}; }, 0, 0},
        {"arriving twice",
         [](auto& o) {
             o.faults.rules = {{pipeline::FaultKind::Duplicate, 1, {}}};
         },
         1, 0},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.what);
        std::vector<std::weak_ptr<picture::Picture const>> given;
        auto const living = [&given] {
            return static_cast<size_t>(std::ranges::count_if(
                given, [](auto const& picture) { return !picture.expired(); }));
        };
        size_t mostBuilt = 0;
        size_t mostKept = 0;
        std::vector<run::OccupancySample> occupancy;
        run::ReplayListener listener;
        listener.occupancy = &occupancy;
        listener.pictures.of = [&](recording::SensorFrame const&) {
            pipeline::Occupancy const now =
                occupancy.empty() ? pipeline::Occupancy{} : occupancy.back().occupancy;
            EXPECT_GE(living(), now.history + now.locked);
            mostBuilt = std::max(mostBuilt, living() - now.history - now.locked);
            mostKept = std::max(mostKept, now.locked);
            auto const picture = std::make_shared<picture::Picture const>(nullptr, 4, 3, 0);
            given.push_back(picture);
            return picture;
        };
        auto const options = with(pressing({1'000, 2'000}), [&](auto& o) {
            o.history = 6;
            o.reprocessDelayNs = 250 * MS;
            c.change(o);
        });
        run::ReplayResult const result = run::replay(steadyRecording(), options, listener);
        EXPECT_EQ(mostBuilt, c.mostBuilt) << outcomesOf(result);
        EXPECT_EQ(mostKept, c.mostKept);
        EXPECT_EQ(living(), 0u) << "the pipeline is gone";
        EXPECT_TRUE(result.ledger.balances());
        EXPECT_GE(given.size(), 60u);
    }
}

TEST_F(PictureCli, RefusesVideosThatDoNotFit) {
    std::string const csv =
        write("named.csv", "Timestamp[nanosec],Video frame\n1000000,\n2000000,12\n");
    expectRefused(
        {},
        {{{"replay", mRecording, "--video", csv}, "named.csv: expected a video, found "},
         {{"replay", mRecording, "--video", mRecording}, "expected another file than the rec"},
         {{"replay", mRecording, "--video", path("no.mp4")}, "no.mp4: expected a readable file"},
         {{"replay", mRecording, "--video", ""}, "--video: expected the name of a file"},
         {{"replay", "/dev/zero"}, "/dev/zero: expected a video, found what FFmpeg does not"},
         {{"replay", mVideo, "--any-rate", "--video", mVideo}, "which is a video itself"},
         {{"replay", csv, "--any-rate", "--video", mVideo},
          "v.mp4: expected picture 12, which frame 2 of "},
         {{"replay", mVideo, "--from", "1s", "--any-rate"}, "--from 1s: outside of the recording"},
         {{"replay", mRecording, "--pictures", path("out")},
          "out: expected a recording with pictures (--video), found " + mRecording + " alone"},
         {{"replay", mVideo, "--any-rate", "--pictures", csv},
          "cannot write to the folder '" + csv},
         {{"compare", mRecording, mRecording, "--video", mVideo},
          "--video: expected one for each recording, found 1 for 2"},
         {{"compare", mRecording, "--video", "-"}, "because each run reads it anew"}});
}

}  // namespace
}  // namespace zebcam::tool
