#define ATRACE_TAG ATRACE_TAG_CAMERA
#include <cutils/trace.h>
#include <errno.h>
#include <gmock/gmock.h>
#include <signal.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <future>
#include <nlohmann/json.hpp>
#include <thread>

#include "CliFixture.h"
#include "base/Distribution.h"
#include "base/LineWriter.h"
#include "device/DeviceRecordingReader.h"
#include "pipeline/ReplayOptions.h"
#include "report/Reports.h"
#include "run/DeviceReplay.h"
#include "run/LiveRun.h"
#include "tool/SteadyRecording.h"

namespace zebcam::tool {
namespace {

using testing::AllOf;
using testing::Each;
using testing::HasSubstr;
using testing::Not;
using testing::Property;

class Live : public CliTest {
protected:
    /// Runs `source` to its end, and gives what its recorder wrote beside the result.
    std::pair<run::LiveResult, device::DeviceRecording> record(recording::Recording const& source,
                                                               run::LiveOptions options) {
        options.recordPath = path("live.zslrec");
        run::RecordedFrames frames(source, options.replay, options.durationNs.has_value());
        run::LiveRun run(
            frames, options,
            {.log = [this](std::string const& lines) { mLog += lines; }, .press = {}, .frame = {}});
        run.start();
        while (!run.isOver()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        run::LiveResult const result = run.finish();
        return {result, device::readDeviceRecording(*options.recordPath)};
    }

    std::string mLog;
};

TEST_F(Live, KeepsToItsScheduleThroughThePasses) {
    recording::Recording source = steadyRecording(12, 10);
    for (int32_t i = 0; i < 12; ++i) {
        source.frames[i].sensorMode = i;
    }
    run::LiveOptions options;
    options.durationNs = 400 * MS;
    options.pressEveryNs = 10 * MS;
    options.replay.reprocessDelayNs = 3'600'000 * MS;
    options.replay.faults.rules = {pipeline::parseFault("flush@200ms")};
    auto const [result, recorded] = record(source, options);
    EXPECT_TRUE(result.isClean());
    uint32_t presses = 0;
    bool hasResult = false;
    for (device::DeviceOperation const& operation : recorded.operations) {
        hasResult = hasResult || std::holds_alternative<device::ResultCall>(operation.call);
        if (auto const* const call = std::get_if<device::SubmitCall>(&operation.call)) {
            ++presses;
            EXPECT_FALSE(hasResult) << "an hour has not passed";
            EXPECT_GE(operation.begun.bootNs, result.startNs + presses * 10 * MS);
            EXPECT_EQ(call->sensorModes,
                      (std::vector<std::pair<uint32_t, uint32_t>>{{0, presses % 12}}));
        }
    }
    EXPECT_TRUE(hasResult);
    EXPECT_EQ(presses, result.status.captures.captures);
    EXPECT_EQ(result.faults->text(), "flush 1 (random seed 1)");
    EXPECT_EQ(result.lateness.count(), result.status.arrivedFrames);
    EXPECT_GT(result.lateness.max(), 0);
    EXPECT_GT(presses, 12U);
    EXPECT_GT(recorded.frames.back().frameNo, 12U);
    for (device::DeviceFrame const& frame : recorded.frames) {
        EXPECT_EQ(frame.timestampNs, result.startNs + (frame.frameNo - 1) * 10 * MS);
    }
}

TEST(Results, AreCleanOnlyWithoutAnyFailure) {
    EXPECT_TRUE(run::LiveResult().isClean() && run::ReplayResult().isClean());
    run::LiveResult live[4];
    live[0].status.captures.captures = 1;
    live[1].status.ledger.lost = 1;
    live[2].failures = {"an exception"};
    live[3].recorder.emplace();
    EXPECT_THAT(live, Each(Property(&run::LiveResult::isClean, false)));
    run::ReplayResult replayed[3];
    replayed[0].summary.unanswered = 1;
    replayed[1].ledger.lost = 1;
    replayed[2].failures = {"an exception"};
    EXPECT_THAT(replayed, Each(Property(&run::ReplayResult::isClean, false)));
}

TEST(SectionRecorder, TimesTheOperations) {
    auto const wait = [] { std::this_thread::sleep_for(std::chrono::milliseconds(2)); };
    run::SectionRecorder recorder(run::SectionRecorder::Kept::Times);
    ATRACE_BEGIN("submitZslRequest");
    wait();  // for the lock
    for (int selection = 0; selection < 2; ++selection) {
        ATRACE_BEGIN("selectBuf_Locked");
        ATRACE_END();
        wait();
    }
    ATRACE_END();
    for (int waiting = 0; waiting < 2; ++waiting) {
        ATRACE_BEGIN("processZslPendingRequest");
        if (waiting > 0) {
            ATRACE_BEGIN("selectBuf_Locked");
            ATRACE_END();
        }
        ATRACE_END();
    }
    run::OperationTimes const times = recorder.times();
    EXPECT_EQ(times.submission.count(), 1U);
    EXPECT_GE(times.submission.min(), 6 * MS);
    EXPECT_EQ(times.lockHeld.count(), 2U);
    EXPECT_GE(times.lockHeld.max(), 4 * MS);
    EXPECT_LE(times.lockHeld.max(), times.submission.max() - 2 * MS);
    EXPECT_EQ(times.retry.count(), 1U);
    EXPECT_EQ(recorder.finish().size(), 0U);
}

TEST_F(Live, TellsTheOffsetThatTheProcessorUses) {
    std::vector<std::pair<std::string, int64_t>> const table = {
        {"99999999999999999999", 7}, {"0x14", 27}, {"-12 ms", -5}};
    for (auto const& [text, offsetMs] : table) {
        run::LiveOptions options;
        options.replay.logLevel = 3;
        options.replay.properties = {{pipeline::OFFSET_PROPERTY, text},
                                     {"ro.vendor.camera3.zsl.project", "7"}};
        auto const [result, recorded] = record(steadyRecording(12, 10), options);
        EXPECT_EQ(result.offsetMs, offsetMs);
        EXPECT_EQ(run::replayDevice(recorded).replay.offsetMs, offsetMs);
        EXPECT_THAT(mLog, HasSubstr("zsdOffsetMs(" + std::to_string(offsetMs) + ")"));
    }
}

TEST_F(Live, ReplaysAsItWasRecorded) {
    std::string const file = path("live.zslrec");
    for (Arguments const& options :
         {Arguments{"--fps", "240", "--offset", "20ms", "--frames", "2"},
          {"--fps", "480", "--policy", "cshot", "--fault", "late", "--fault", "image-error"},
          {"--fps", "120", "--policy", "multiframe", "--timeout-ms", "40", "--fault", "no-history"},
          {"--fps", "120", "--fault", "policy-nonsense", "--fault", "policy-throws", "--fault",
           "flush", "--fault", "callback-gone@100ms"}}) {
        SCOPED_TRACE(testing::PrintToString(options));
        Outcome const outcome = zsl(plus({"live", "--press-every", "10ms", "--dump-every", "20ms",
                                          "--json", "-", "--duration", "200ms", "--record", file},
                                         options));
        EXPECT_EQ(outcome.status, 0) << outcome.out << outcome.err;
        Json const lived = Json::parse(outcome.out);
        EXPECT_GT(lived["summary"]["captures"], 5);
        EXPECT_EQ(lived["summary"]["captures"], lived["summary"]["answeredCaptures"]);
        EXPECT_EQ(lived["times"]["submission"]["count"], lived["summary"]["captures"]);
        EXPECT_GE(lived["times"]["lockHeld"]["count"], lived["summary"]["captures"]);
        EXPECT_GT(lived["dumpCount"], 2);
        EXPECT_GT(lived["ledger"]["handedOut"], 0);
        EXPECT_EQ(lived["recorder"]["end"], "finished");
        Outcome const replayed = zsl({"replay", file, "--json", "-"});
        EXPECT_EQ(replayed.status, 0) << zsl({"replay", file}).out;
        Json const device = Json::parse(replayed.out)["device"];
        EXPECT_TRUE(device["isSame"]);
        EXPECT_EQ(device["operations"], lived["recorder"]["operations"]);
        EXPECT_EQ(device["builtFrames"], device["sameFrames"]);
    }
    expectRefused(
        {"replay", file},
        {{{"--press", "1s"}, "--press: " + file + " is a recording of a device, which fixes"},
         {{"--captures=3"}, "--captures: " + file},
         {{"--policy=cshot"}, "--policy: " + file},
         {{"--frame-sync"}, "--frame-sync: " + file}});
}

TEST_F(Live, EndsCleanlyWhenInterrupted) {
    std::string const file = path("result.json");
    // A shell that starts the tests in the background has them ignore the signal.
    auto const ignored = std::signal(SIGINT, SIG_DFL);
    // Blocked here, the signal waits for whoever watches for it.
    sigset_t interrupt;
    sigemptyset(&interrupt);
    sigaddset(&interrupt, SIGINT);
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, &interrupt, &before);
    std::thread user([] {
        std::this_thread::sleep_for(std::chrono::milliseconds(400));
        kill(getpid(), SIGINT);
    });
    Outcome const outcome =
        zsl({"live", "--duration", "3600s", "--press-every", "1ms", "--json", file});
    user.join();
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    std::signal(SIGINT, ignored);

    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_THAT(outcome.out,
                AllOf(HasSubstr(" of 3600.000 s (Interrupt)"), Not(HasSubstr("Recorded"))));
    Json const result = Json::parse(contentOf(file));
    EXPECT_EQ(result["endedBySignal"], SIGINT);
    EXPECT_GT(result["summary"]["flushed"], 0);
    EXPECT_TRUE(result["isClean"]);
}

TEST_F(Live, RefusesWhatItCannotRun) {
    std::string const missing = path("missing/file");
    std::string const csv = write("recording.csv", "Timestamp[nanosec]\n1\n2\n");
    std::vector<Refusal> const table = {
        {{"--fps", "29"}, "--fps: expected a whole number from 30 to 960, found \"29\""},
        {{csv, "--fps", "30"}, "--fps: the RECORDING tells its own rate"},
        {{"--duration", "0s"}, "--duration: expected a time from 0.001s to 604800s"},
        {{"--press-every", "999us"}, "--press-every: expected a time from 0.001s"},
        {{"--dump-every", "soon"}, "--dump-every: expected"},
        {{"--record", "-"}, "--record: expected the name of a file"},
        {{"--record", missing}, missing + ": cannot be written: No such file"},
        {{"--json", missing}, missing},
        {{missing}, missing},
        {{"--policy", missing + ".so"}, "there is no such file"},
        {{"--fault", "earthquake"}, "--fault: expected"},
        {{"--press", "1s"}, "--press"},
    };
    expectRefused({"live"}, table);
}

TEST(LiveText, TellsWhatBecameOfARun) {
    run::LiveResult result;
    result.source = "a.csv";
    result.fps = 29.94;
    result.startNs = 1'000'000'000;
    result.options.replay.framesPerCapture = 2;
    result.options.replay.frameSync = true;
    result.plannedNs = 60'000'000'000;
    result.signal = SIGTERM;
    result.options.recordPath = "a.zslrec";
    result.offsetMs = 20;
    result.status.elapsedNs = 3'014'000'000;
    result.status.arrivedFrames = 90;
    result.status.captures = {
        3, 2, 6, {{pipeline::Served::AtOnce, 4}, {pipeline::Served::Flushed, 1}}};
    result.status.ledger.handedOut = 7;
    result.status.ledger.withFrameBuilder = 1;
    result.status.occupancy = {8, 2, 1};
    result.times.submission.add(20);
    result.times.submission.add(2'500);
    for (int64_t const lagMs : {-80, -80, -80, 30}) {
        result.status.captures.lag.add(lagMs * MS);
    }
    result.times.lockHeld.add(30'140'000);
    result.times.selection.add(15'070'000);
    result.lateness.add(1'500'000);
    result.log = {.lines = 9, .dropped = 2};
    result.droppedFrames = 5;
    result.unsettled = {{.frameNo = 4, .forRequestNo = 3, .sinceNs = 2'500'000'000}};
    result.recorder = {.end = NSCam::v3::pipeline::model::ZslRecordingEnd::WRITE_FAILED,
                       .writeError = ENOSPC,
                       .operations = 11,
                       .unrecorded = 2,
                       .bytesWritten = 222};
    result.errorLines = 1;
    result.failures = {"at 1 s: no idea"};
    EXPECT_EQ(report::liveReport(result), R"(Verdict    BAD: 1 kind of failure
           at 1 s: no idea
           BAD: the recording ended early: write failed
           BAD: the buffer ledger does not balance: 1 set still out, 0 lost
Live       a.csv, 29.94 frames/s, interrupted after 3.014 s of 60.000 s (Terminated)
Captures   policy default, 2 frames every 500.00 ms, history of 8 frames, ZSL offset 20 ms, frame
           sync
Sensor     90 frames arrived, 5 dropped from the history; late by 1500 us at most, 95 % by 1500 us

Times (us)    count     median       95 %       99 %    maximum
submission        2        0.0        2.5        2.5        2.5
retry             0        0.0        0.0        0.0        0.0
lock held         1    30140.0    30140.0    30140.0    30140.0
selection         1    15070.0    15070.0    15070.0    15070.0

Lock       held 1.00 % of the time; 50 % of that selecting, a built-in policy's own part does not
           show
Served     4 at once, 0 waited, 0 timed out, 1 flushed, of 6 frames
Lag        minimum -80.00, median -79.69, 95th percentile 30.00, maximum 30.00 ms after the press
Ledger     7 handed out, 0 returned, 0 consumed, 0 released; 1 still out, 0 lost
           frame 4, handed out for capture 3 at 1.500 s: processor
Recorded   11 operations, 222 bytes in a.zslrec: ENDED EARLY, write failed (No space left on device)
Log        2 of 9 lines DROPPED, because standard error takes them too slowly
Log        1 error line (--log error shows them)
Failure    at 1 s: no idea
Result     BAD: 2 of 3 captures answered, the ledger DOES NOT BALANCE
)");
    EXPECT_EQ(report::statusLine(result.status),
              "  3.014 s       90 frames  history   8, in flight  2, locked  1  captures     3, "
              "waiting   1  lost 0\n");
    result.source.clear();
    result.recorder->end = NSCam::v3::pipeline::model::ZslRecordingEnd::FINISHED;
    result.recorder->writeError = 0;
    result.signal.reset();
    result.log->hasFailed = true;
    result.times.policy.add(7'535'000);
    std::string const whole = report::liveReport(result);
    EXPECT_THAT(whole, HasSubstr("Live       generated frames, 29.94 frames/s, 3.014 s\n"));
    EXPECT_THAT(whole, HasSubstr("\npolicy            1     7535.0"));
    EXPECT_THAT(whole, HasSubstr("selecting, the policy's own 25 %\n"));
    EXPECT_THAT(whole, HasSubstr("because standard error cannot be written\n"));
    EXPECT_THAT(whole, HasSubstr("222 bytes in a.zslrec: whole\n"));
}

TEST(Distribution, TellsQuantilesToWithinASixteenth) {
    base::Distribution times;
    EXPECT_EQ(times.quantile(0.5), 0);
    for (int64_t ns = 1; ns <= 100'000; ++ns) {
        times.add(ns * 1'000);
    }
    EXPECT_EQ(times.count(), 100'000U);
    EXPECT_EQ(times.min(), 1'000);
    EXPECT_EQ(times.max(), 100'000'000);
    EXPECT_EQ(times.total(), 5'000'050'000'000);
    EXPECT_EQ(times.quantile(0), 1'023) << "the end of its bucket";
    EXPECT_EQ(times.quantile(1), 100'000'000);
    for (double const share : {0.01, 0.5, 0.95, 0.99}) {
        double const exact = share * 1e8;
        EXPECT_GE(static_cast<double>(times.quantile(share)), exact - 1e3) << share;
        EXPECT_LE(static_cast<double>(times.quantile(share)), exact * 17 / 16 + 1e3) << share;
    }
    base::Distribution lags;
    for (int64_t const ns : {INT64_MIN, -1'000'000L, -33L, -1L, 0L, 1L, INT64_MAX}) {
        lags.add(ns);
    }
    EXPECT_EQ(lags.min(), INT64_MIN);
    EXPECT_LE(lags.quantile(2 / 7.0), -1'000'000 * 15 / 16);
    EXPECT_GE(lags.quantile(2 / 7.0), -1'000'000);
    EXPECT_EQ(lags.quantile(3 / 7.0), -33);
    EXPECT_EQ(lags.quantile(4 / 7.0), -1);
    EXPECT_EQ(lags.quantile(5 / 7.0), 0);
    EXPECT_EQ(lags.quantile(6 / 7.0), 1);
    EXPECT_EQ(lags.spread().max, INT64_MAX);
}

/// Takes nothing until it is told to, as a terminal that was stopped.
class StoppedReader : public std::stringbuf {
public:
    void waitUntilAsked() { mAsked.get_future().wait(); }
    void goOn() { mGoesOn.set_value(); }
    std::streamsize most() const { return mMost; }  ///< bytes that it was given at once

protected:
    std::streamsize xsputn(char const* text, std::streamsize size) override {
        if (std::exchange(mIsFirst, false)) {
            mAsked.set_value();
            mGoesOn.get_future().wait();
        }
        mMost = std::max(mMost, size);
        return std::stringbuf::xsputn(text, size);
    }

private:
    bool mIsFirst = true;
    std::streamsize mMost = 0;
    std::promise<void> mAsked;
    std::promise<void> mGoesOn;
};

TEST(LineWriter, NeverWaitsForTheReader) {
    for (bool const goesOn : {true, false}) {
        StoppedReader reader;
        std::ostream stream(&reader);
        {
            base::LineWriter lines(stream, 10);
            lines.push("under way\n");
            reader.waitUntilAsked();
            for (char const* const line : {"waits\n", "is too long\n", "is\n", "no\n"}) {
                lines.push(line);
            }
            if (goesOn) {
                reader.goOn();
            }
            auto const counts = lines.finish(std::chrono::milliseconds(goesOn ? 60'000 : 10));
            EXPECT_EQ(counts.lines, 5U);
            EXPECT_EQ(counts.dropped, goesOn ? 2U : 4U);
            EXPECT_FALSE(counts.hasFailed);
            if (!goesOn) {
                reader.goOn();
            }
        }
        EXPECT_EQ(reader.str(), goesOn ? "under way\nwaits\nis\n" : "under way\n");
    }
    // Whoever takes some bytes a second holds up the end for a few lines only.
    StoppedReader slow;
    std::ostream stream(&slow);
    {
        base::LineWriter lines(stream, 1'000'000);
        lines.push("under way\n");
        slow.waitUntilAsked();
        for (int i = 0; i < 500; ++i) {
            lines.push(std::string(999, 'x') + '\n');
        }
        slow.goOn();
        EXPECT_EQ(lines.finish(std::chrono::seconds(60)).dropped, 0U);
    }
    EXPECT_EQ(slow.str().size(), 500'010U);
    EXPECT_LE(slow.most(), 4096);
    std::ostream closed(nullptr);
    base::LineWriter lines(closed, 10);
    lines.push("lost\n");
    auto const counts = lines.finish(std::chrono::seconds(60));
    EXPECT_EQ(counts.dropped, 1U);
    EXPECT_TRUE(counts.hasFailed);
}

std::atomic<bool> gIsHungUp = false;

TEST_F(Live, IsNotHeldUpByWhoReadsItsLog) {
    auto const before = std::signal(SIGHUP, [](int) { gIsHungUp = true; });
    StoppedReader reader;
    std::ostream err(&reader);
    std::ostringstream out;
    std::string const file = path("result.json");
    bool canBeEnded = false;
    std::thread user([&, command = pthread_self()] {
        auto const waitFor = [](auto const& hasCome) {
            for (int i = 0; i < 3'000 && !hasCome(); ++i) {
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            }
        };
        // The result is there although nobody has read a line, and who does not want to wait for
        // the reader need not.
        waitFor([&] { return std::filesystem::exists(file); });
        pthread_kill(command, SIGHUP);
        waitFor([] { return gIsHungUp.load(); });
        canBeEnded = gIsHungUp;
        reader.goOn();
    });
    Arguments const command = {"zsl",   "live",  "--duration",    "0.3s", "--fps",  "120",
                               "--log", "debug", "--press-every", "10ms", "--json", file};
    std::vector<char const*> argv;
    for (std::string const& argument : command) {
        argv.push_back(argument.c_str());
    }
    EXPECT_EQ(commands::runCli(static_cast<int>(argv.size()), argv.data(), {out, err}), 0);
    user.join();
    std::signal(SIGHUP, before);
    EXPECT_TRUE(canBeEnded);
    EXPECT_THAT(out.str(), HasSubstr(" DROPPED, because standard error takes them too slowly\n"));
    Json const result = Json::parse(contentOf(file));
    EXPECT_GT(result["log"]["droppedLines"], 100);
    EXPECT_GE(result["log"]["lines"], result["log"]["droppedLines"]);
    EXPECT_GT(result["sensor"]["arrivedFrames"], 20);
}

}  // namespace
}  // namespace zebcam::tool
