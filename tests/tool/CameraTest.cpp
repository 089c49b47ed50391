#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <functional>
#include <thread>

#include "CliFixture.h"
#include "TestVideo.h"
#include "base/InputFile.h"
#include "picture/Jpeg.h"
#include "picture/PictureMeter.h"
#include "picture/VideoFile.h"

namespace zebcam::tool {
namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

// Picture n is gray, of 3 n and 16 more; in its middle a point stands out, so that there is
// something sharp.
constexpr char kNumbered[] =
    "lavfi:color=size=64x48:rate=25:duration=2,format=gray,geq=lum='16+3*N+20*eq(X\\,32)*eq(Y\\,24)"
    "'";

double grayOf(double number) {
    return 16 + 3 * number;
}

/// The corner of a JPEG file's picture, where nothing stands out.
double lumaOf(std::string const& path) {
    base::InputFile file(path);
    picture::VideoFile video(file);
    EXPECT_TRUE(video.next()) << path;
    return video.picture()->pixels(picture::PixelKind::Luma).bytes.front();
}

std::string jpeg(uint32_t width, uint32_t height, uint8_t value) {
    picture::Pixels pixels{width, height, std::vector<uint8_t>(size_t{3} * width * height, value)};
    for (size_t i = 0; i < pixels.bytes.size(); i += 7) {
        pixels.bytes[i] ^= 0x55U;
    }
    return picture::toJpeg(pixels, 80);
}

class Camera : public CliTest {
protected:
    Json resultOf(Arguments const& arguments, int status) {
        mOutcome = zsl(plus({"camera", "--json", "-"}, arguments));
        EXPECT_EQ(mOutcome.status, status) << mOutcome.out << mOutcome.err;
        return mOutcome.out.empty() ? Json() : Json::parse(mOutcome.out);
    }

    /// The same with a pipe, into which another thread writes.
    Json resultOfPipe(std::function<void(int pipe)> const& write, Arguments const& arguments,
                      int status) {
        std::string const pipe = path("camera.mjpeg");
        std::filesystem::remove(pipe);
        EXPECT_EQ(mkfifo(pipe.c_str(), 0600), 0);
        std::thread writer([&] {
            int const end = open(pipe.c_str(), O_WRONLY | O_CLOEXEC);
            write(end);
            close(end);
        });
        Json result = resultOf(plus({pipe}, arguments), status);
        writer.join();
        return result;
    }

    Outcome mOutcome;
};

void send(int pipe, std::string const& bytes) {
    EXPECT_EQ(::write(pipe, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
}

TEST_F(Camera, WritesThePicturesOfTheFramesThatItTellsOf) {
    std::string const shots = path("shots");
    std::string const record = path("camera.zslrec");
    for (std::string const policy : {"default", "best-shot"}) {
        std::filesystem::remove_all(shots);
        Json const result =
            resultOf({kNumbered, "--press-every", "420ms", "--frames", "2", "--offset", "120ms",
                      "--policy", policy, "--pictures", shots, "--record", record},
                     0);
        EXPECT_EQ(result["camera"]["clock"], "own");
        EXPECT_EQ(result["camera"]["end"], "the source is over");
        EXPECT_EQ(result["camera"]["pictures"], 50);
        EXPECT_EQ(result["sensor"]["arrivedFrames"], 50);
        ASSERT_EQ(result["captures"].size(), 4U);
        for (Json const& capture : result["captures"]) {
            for (Json const& frame : capture["frames"]) {
                double const number = frame["frameNo"].get<double>() - 1;
                EXPECT_NEAR(lumaOf(frame["pictureFile"]), grayOf(number), 1.2);
                EXPECT_NEAR(frame["chosen"]["picture"]["brightness"], grayOf(number), 1.2);
                EXPECT_GT(frame["chosen"]["picture"]["sharpnessShare"], 0);
                EXPECT_LT(frame["lagNs"], 0);
                EXPECT_GT(frame["lagNs"], -1'000'000'000);
            }
            // By the frame's own time, which the recorder's replay has, too.
            int64_t const behind = capture["pressNs"].get<int64_t>() -
                                   capture["frames"][0]["timestampNs"].get<int64_t>();
            double const number = capture["frames"][0]["frameNo"].get<double>() - 1;
            EXPECT_NEAR(lumaOf(capture["pressPictureFile"]),
                        grayOf(number + static_cast<double>(behind / 40'000'000)), 1.2);
        }
        EXPECT_THAT(mOutcome.err,
                    AllOf(HasSubstr("shown at its own pace"), HasSubstr("capture    4, frame 1"),
                          HasSubstr(" of best)  " + shots + "/capture-0004-frame-1.jpg\n")));
        EXPECT_EQ(files("shots").size(), 12U);
        EXPECT_EQ(zsl({"replay", record}).status, 0);
    }
    expectRefused({"camera", kNumbered, "--pictures", shots},
                  {{{}, "--pictures " + shots + ": expected a folder without captures, found"}});
}

TEST_F(Camera, TellsWhatBecameOfIt) {
    std::string const small = jpeg(160, 120, 80);
    auto const frames = [](std::string const& picture, int count, std::chrono::milliseconds pause) {
        return [=](int pipe) {
            for (int i = 0; i < count; ++i) {
                send(pipe, picture);
                std::this_thread::sleep_for(pause);
            }
        };
    };
    Arguments const press = {"--press-every", "50ms", "--stall-timeout", "2s"};
    Json result = resultOfPipe(frames(small, 60, 10ms), press, 1);
    EXPECT_EQ(result["camera"]["end"], "the source has ended");
    EXPECT_EQ(result["camera"]["clock"], "arrival");
    EXPECT_EQ(result["verdict"]["reasons"][0]["word"], "cameraBrokeOff");
    EXPECT_GT(result["summary"]["captures"], 2);
    EXPECT_EQ(result["summary"]["captures"], result["summary"]["answeredCaptures"]);

    result = resultOfPipe(
        [&](int pipe) {
            frames(small, 60, 10ms)(pipe);
            std::this_thread::sleep_for(3s);
        },
        press, 1);
    EXPECT_EQ(result["camera"]["end"], "no picture for 2s");

    result = resultOfPipe(
        [&](int pipe) {
            frames(small, 40, 10ms)(pipe);
            send(pipe, small.substr(0, small.size() / 2));
            frames(jpeg(96, 64, 80), 20, 10ms)(pipe);
        },
        press, 1);
    EXPECT_EQ(result["camera"]["resizedPictures"], 1);
    EXPECT_EQ(result["camera"]["width"], 160);
    EXPECT_THAT(mOutcome.err, HasSubstr("1 picture of another size than the one before\n"));

    result = resultOfPipe(
        [&](int pipe) {
            frames(small, 40, 10ms)(pipe);
            // All at once, which nobody can decode at once.
            frames(jpeg(1280, 960, 80), 80, 0ms)(pipe);
        },
        press, 1);
    Json const camera = result["camera"];
    EXPECT_GT(camera["droppedPictures"], 0);
    EXPECT_EQ(camera["pictures"], result["sensor"]["arrivedFrames"]);

    result = resultOf({"lavfi:testsrc2=size=64x48:rate=50:duration=1,setpts='mod(N\\,25)'",
                       "--press-every", "100ms"},
                      0);
    EXPECT_EQ(result["camera"]["replacedTimes"], 1);
    EXPECT_EQ(result["sensor"]["arrivedFrames"], 50);

    TestVideo video;
    video.rotation = 90;
    result = resultOf({writeTestVideo(path("video.mp4"), video), "--press-every", "100ms"}, 0);
    EXPECT_EQ(result["camera"]["pictures"], video.timesMs.size());
    EXPECT_EQ(result["camera"]["width"], video.height);
    EXPECT_EQ(result["camera"]["end"], "the source is over");
}

TEST_F(Camera, TakesAPictureWheneverItIsAskedTo) {
    sigset_t signals;
    sigset_t before;
    sigemptyset(&signals);
    for (int const signal : {SIGINT, SIGUSR1}) {
        sigaddset(&signals, signal);
    }
    // Blocked here, they wait for whoever watches for them.
    pthread_sigmask(SIG_BLOCK, &signals, &before);
    auto const ignored = std::signal(SIGINT, SIG_DFL);
    int const standard = dup(STDIN_FILENO);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    dup2(ends[0], STDIN_FILENO);
    std::thread user([&] {
        std::this_thread::sleep_for(600ms);
        send(ends[1], "\nnow\n");
        kill(getpid(), SIGUSR1);
        std::this_thread::sleep_for(400ms);
        kill(getpid(), SIGINT);
    });
    Json const result = resultOf({"lavfi:testsrc2=size=64x48:rate=50", "--offset", "40ms"}, 0);
    user.join();
    dup2(standard, STDIN_FILENO);
    for (int const end : {standard, ends[0], ends[1]}) {
        close(end);
    }
    std::signal(SIGINT, ignored);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    EXPECT_EQ(result["summary"]["captures"], 3);
    EXPECT_EQ(result["summary"]["answeredCaptures"], 3);
    EXPECT_EQ(result["endedBySignal"], SIGINT);
    EXPECT_TRUE(result["plannedNs"].is_null());
    EXPECT_EQ(result["camera"]["end"], nullptr);
}

TEST_F(Camera, RefusesWhatIsNone) {
    std::string const text = write("notes.txt", "neither pictures nor sound\n");
    std::string const pipe = path("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    expectRefused(
        {"camera", "--stall-timeout", "100ms"},
        {{{}, "expected SOURCE"},
         {{"-"}, "SOURCE: expected a camera; standard input is for presses"},
         {{path("missing")}, "missing: expected a camera, found No such file"},
         {{text}, text + ": expected a camera, found Invalid data"},
         {{pipe}, pipe + ": expected a camera, found no picture for 0.1s"},
         {{"tcp://127.0.0.1:9/"},
          "tcp://127.0.0.1:9/: expected a camera, found Connection refused"},
         {{"lavfi:nonsense"}, "lavfi:nonsense: expected a camera, found"},
         {{"lavfi:sine"}, "lavfi:sine: expected a video, found lavfi without pictures (audio)"},
         {{"lavfi:testsrc2", "--input-option", "nonsense=1"},
          "--input-option nonsense: lavfi:testsrc2, which FFmpeg reads as lavfi, knows no such"},
         {{"lavfi:testsrc2", "--pictures", text}, "--pictures " + text + ": cannot be made"},
         {{"lavfi:testsrc2", "--press-every", "0s"},
          "--press-every: expected a time from 0.001s"}});
}

}  // namespace
}  // namespace zebcam::tool
