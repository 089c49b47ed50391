#include <gtest/gtest.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "CliFixture.h"
#include "base/AtomicFile.h"
#include "base/Text.h"
#include "tool/SteadyRecording.h"

namespace zebcam::tool {
namespace {

using testing::HasSubstr;
using testing::Not;

class ReplayCli : public CliTest {
protected:
    /// Frames 1, 2, ... every 100 ms; frame n is exposed for 10 ms and read out in 20 ms.
    std::string const mRecording = steadyFile(path("recording.csv"), 12);
};

TEST_F(ReplayCli, TellsOfFramesThatAFlushLeftWithoutHistory) {
    Outcome const outcome =
        zsl({"replay", mRecording, "--press", "500ms", "--press", "1.05s", "--frames", "2"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
    for (char const* const part :
         {"      2        1.050      0             12       50.00  waited           180.00"
          "             -150.00\n"
          "      2        1.050      1              -           -  flushed          180.00"
          "             -150.00\n\n",
          "0 timed out, 1 flushed, of 4 frames; 1 without a history frame\n",
          "median interval 100.00 ms, no gaps\n"}) {
        EXPECT_THAT(outcome.out, HasSubstr(part));
    }
}

TEST_F(ReplayCli, RefusesWhatItCannotDo) {
    std::string const& file = mRecording;
    std::string const broken = write("broken.csv", "Timestamp[nanosec]\n1000\nnoon\n");
    std::string const selectors = SELECTOR_FOLDER "/selector_";
    std::vector<Refusal> const table = {
        {{}, "zsl: expected the command replay, live, camera, generate, explain, compare, list, "},
        {{}, "version, found nothing; see zsl help\n"},
        {{"repaly"}, "found \"repaly\"; did you mean replay?\n"},
        {{"help", "rep"}, "found \"rep\"; did you mean replay?\n"},
        {{"list", "field"}, "found \"field\"; did you mean fields?\n"},
        {{"--nope"}, "zsl: --nope: there is no such option; see zsl help\n"},
        {{"replay"}, "zsl replay: expected RECORDING, found nothing; see zsl help replay\n"},
        {{"replay", ""}, "zsl replay: RECORDING: expected the name of a file, found \"\""},
        {{"replay", file, "b", "c"}, "expected nothing more, found \"b\" \"c\""},
        {{"replay", "--explian", "3", file}, "--explian: there is no such option; did you mean "},
        {{"replay", file, "--explain=3"}, "--explain: expected no value"},
        {{"replay", file, "--explain=false"}, "--explain: expected no value"},
        {{"replay", file, "--offset", "1ms", "--offset", "2ms"}, "--offset: expected once"},
        {{"replay", file, "--json"}, "--json: expected FILE, found nothing"},
        {{"replay", file, "--json", file}, "--json: '" + file + "' is what is read, and would"},
        {{"explain", file, "--json", file}, "--json: '" + file + "' is what is read"},
        {{"explain", "-f", testing::TempDir()}, "Is a directory"},
        {{"replay", file, "--json", ""}, "--json: expected the name of a file, or -"},
        {{"replay", file, "--press", "1s", "--captures", "2"}, "--press: --captures is given as"},
        {{"replay", file, "--seed", "2"}, "--seed: expected --fault as well"},
        {{"replay", file, "--timeout-ms", "5"}, "--timeout-ms: expected --policy multiframe"},
        {{"replay", file, "--property", "vendor.debug.camera3.zsl.timestmp=1"},
         "did you mean vendor.debug.camera3.zsl.timestamp?\n"},
        {{"replay", file, "--fault", "lat"}, "found \"lat\" (zsl list faults); did you mean late?"},
        {{"replay", path("missing.csv")}, "missing.csv: expected a readable file"},
        {{"replay", testing::TempDir()}, "found a folder"},
        {{"replay", "/proc/self/mem"}, "mem:1: expected a readable line, found a read error"},
        {{"replay", broken}, "broken.csv:3: column \"Timestamp[nanosec]\": expected"},
        {{"replay", file, "--press", "-1ms"}, "--press -0.001s: before the recording's first"},
        {{"replay", file, "--press", "1.1001s"}, "last frame (expected 0s to 1.1s)"},
        {{"replay", file, "--dump-at", "2s"}, "--dump-at 2s: after"},
        {{"replay", file, "--press", "@4999.95s"}, "--press @4999950000000: before the recording"},
        {{"replay", file, "--press", "@5001.3"},
         "@5001300000000: after the recording's last frame "
         "(expected @5000000000001 to @5001100000001)"},
        {{"replay", file, "--press", "@noon"}, "--press: expected a boot time after @"},
        {{"replay", file, "--from", "2s"}, "--from 2s: outside of the recording (expected 0s to 1"},
        {{"replay", file, "--to", "-1s"}, "--to -1s: outside of the recording"},
        {{"replay", file, "--from", "0.5s", "--to", "0.51s"},
         "recording.csv: expected at least two frames from 0.5s to 0.51s, found 1"},
        {{"replay", file, "--to", "0.5s", "--press", "0.6s"}, "expected 0s to 0.5s"},
        {{"replay", file, "--press", "5"}, "--press: expected a time with its unit"},
        {{"replay", file, "--captures", "0"}, "--captures: expected a whole number from 1"},
        {{"replay", file, "--captures", "3001", "--trace", path("t.json")},
         "--trace: expected at most 3000 captures, found 3001; more may take more than 1 GB"},
        {{"replay", file, "--captures", "10001"},
         "--captures: expected a whole number from 1 to 10000, found \"10001\"; more may take more "
         "than 1 GB"},
        {{"replay", file, "--history", "8x"}, "--history: expected a whole number from 1"},
        {{"replay", file, "--delivery-delay", "-1ms"}, "expected a time from 0s to 3600s"},
        {{"replay", file, "--delivery-delay", "3600.1s"}, "expected a time from 0s to 3600s"},
        {{"replay", file, "--offset", "1500us"}, "--offset: expected whole milliseconds"},
        {{"replay", file, "--offset", "1ms", "--property", "vendor.debug.camera3.zsl.timestamp=2"},
         "--property sets"},
        {{"replay", file, "--property", "=1"}, "--property: expected KEY=VALUE"},
        {{"replay", file, "--log", "loud"}, "--log: expected error, warning, info or debug"},
        {{"replay", file, "--colour"}, "--colour: there is no such option; see zsl help replay"},
        {{"replay", file, "--json", path("no/folder.json")}, "no/folder.json"},
        {{"replay", file, "--policy", "best"},
         "--policy: expected default, cshot, multiframe or best-shot"},
        {{"replay", file, "--policy", "multi-frame"}, "did you mean multiframe?"},
        {{"replay", file, "--policy", path("gone.so")}, "gone.so: there is no such file"},
        {{"replay", file, "--policy", broken}, "cannot be loaded: "},
        {{"replay", file, "--policy", selectors + "nameless.so"}, "no function \"create\""},
        {{"replay", file, "--policy", selectors + "nothing.so"}, "create() gave null"},
        {{"replay", file, "--policy", selectors + "refuser.so"}, "create() threw: not today"},
    };
    expectRefused({}, table);
}

TEST_F(ReplayCli, TakesAPartAndPressesByItsClock) {
    Arguments const part = {"replay", mRecording, "--from", "300ms", "--to", "1s", "--json", "-"};
    Json const byClock = Json::parse(zsl(plus(part, {"--press", "@5000.800000001"})).out);
    EXPECT_EQ(byClock["recording"]["frames"], 8);
    EXPECT_EQ(byClock["recording"]["firstTimestampNs"], START + 300 * MS);
    EXPECT_THAT(byClock["recording"]["notes"].dump(), HasSubstr("8 of 12 frames, from 0.3s to 1s"));
    EXPECT_EQ(byClock["captures"][0]["pressNs"], START + 800 * MS);
    // What is left out has no part in it: the same as a file that begins there.
    Json const byPart = Json::parse(zsl(plus(part, {"--press", "500ms"})).out);
    EXPECT_EQ(byPart["captures"], byClock["captures"]);
}

TEST_F(ReplayCli, WritesJsonToAFileOrInsteadOfTheText) {
    Arguments const command = {"replay", mRecording, "--press", "500ms", "--json"};
    Outcome const toFile = zsl(plus(command, {path("result.json")}));
    EXPECT_EQ(toFile.status, 0);
    EXPECT_THAT(toFile.out, HasSubstr("at once"));
    EXPECT_THAT(toFile.out, Not(HasSubstr("try 1"))) << "nobody asked for reasons";
    Outcome const toOutput = zsl(plus(command, {"-"}));
    Json written = Json::parse(contentOf(path("result.json")));
    Json printed = Json::parse(toOutput.out);
    EXPECT_EQ(printed["recording"]["path"], mRecording);
    EXPECT_EQ(printed["run"]["commandLine"],
              "zsl replay " + mRecording + " --press 500ms --json -");
    written.erase("run");
    printed.erase("run");
    EXPECT_EQ(written, printed);
}

TEST_F(ReplayCli, PrintsWhatItsPageShows) {
    std::filesystem::path const root = ZSL_ROOT;
    std::ifstream page(root / "docs/replay.md");
    std::string expected;
    for (std::string line;
         std::getline(page, line) && !expected.ends_with("the ledger balances\n");) {
        expected += line.starts_with("    Verdict ") || !expected.empty()
                        ? (line.empty() ? line : line.substr(4)) + "\n"
                        : "";
    }
    std::string const demo = "tools/zsl/demo/demo_30fps.csv";
    std::string out =
        zsl({"replay", root / demo, "--captures", "4", "--frames", "2", "--offset", "100ms"}).out;
    out.replace(out.find(root.string()), root.string().size() + 1, "");
    EXPECT_EQ(out, expected);
}

TEST_F(ReplayCli, TellsTheSameWhetherRepeatsAreReadOrSkipped) {
    for (std::string const policy : {"default", "cshot"}) {
        std::vector<Json> told;
        // With a shown log every line is read.
        for (Arguments const& log : {Arguments{}, {"--log", "error"}}) {
            Arguments const command = {"replay", mRecording, "--captures", "30",     "--offset",
                                       "-20s",   "--policy", policy,       "--json", "-"};
            told.push_back(Json::parse(zsl(plus(command, log)).out));
            told.back().erase("run");
        }
        EXPECT_EQ(told[0], told[1]) << policy;
        size_t repeats = 0;
        for (Json const& capture : told[0]["captures"]) {
            for (Json const& attempt : capture["tries"]) {
                repeats += attempt["repeats"].get<size_t>();
            }
        }
        EXPECT_GT(repeats, 0U) << policy;
    }
}

TEST_F(ReplayCli, ExplainsTheWantedCaptures) {
    Arguments const command = {"replay",  mRecording, "--press",  "500ms",
                               "--press", "700ms",    "--offset", "-10s"};
    std::string const one = zsl(plus(command, {"--request", "2"})).out;
    EXPECT_THAT(one, Not(HasSubstr("Capture 1 ")));
    for (char const* const part :
         {"\n              The flush at the end of the recording, 530 ms after the press, ended",
          "    F1 to F6     refused  time          began 10700 to 10200 ms too early\n",
          "; in flight F7 to F10\n", "wanted    frame 0 MAIN: image HalImage_FullRaw, HAL ",
          "  then        6 more tries alike, until 530 ms after the press, when F12 arrived\n"}) {
        EXPECT_THAT(one, HasSubstr(part));
    }
    std::string const verbose = zsl(plus(command, {"-v"})).out;
    EXPECT_THAT(verbose, HasSubstr("Capture 1 "));
    EXPECT_THAT(verbose, HasSubstr("    F6           refused  time          found 5000500000001 ns "
                                   "(-10200 ms), wanted >= "));
    expectRefused(command, {{{"--request", "3", "--json", path("none.json")},
                             "--request: there is no capture 3: they are numbered 1 to 2"}});
}

TEST_F(ReplayCli, TellsOfTheChosenFramesWhatTheRecordingTells) {
    std::string const head = "Timestamp[nanosec],ISO";
    std::string rows;
    for (int i = 1; i < 60; ++i) {
        rows += std::to_string(i * 33'000'000) + (i % 2 == 0 ? ",144\n" : ",\n");
    }
    Outcome const outcome =
        zsl({"replay", write("few.csv", head + "\n" + rows), "--json", path("few.json")});
    EXPECT_THAT(outcome.out, HasSubstr("\ncapture  frame  history frame  ISO\n"));
    auto const frame =
        nlohmann::json::parse(contentOf(path("few.json")))["captures"][0]["frames"][0]["chosen"];
    for (char const* const untold : {"exposureNs", "focusDistance", "afMode", "afState",
                                     "lensState", "isFocusSettled", "isExposureSettled"}) {
        EXPECT_TRUE(frame.at(untold).is_null()) << untold;
    }
}

TEST_F(ReplayCli, SaysWhenSomethingWentWrong) {
    std::ostream full(nullptr);
    std::ostringstream err;
    char const* const argv[] = {"zsl", "replay", mRecording.c_str()};
    EXPECT_EQ(commands::runCli(3, argv, {full, err, false}), 2);
    EXPECT_EQ(err.str(), "zsl replay: standard output cannot be written\n");
    Outcome const outcome = zsl({"replay", mRecording, "--press", "500ms", "--policy",
                                 SELECTOR_FOLDER "/selector_thrower.so"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(
        outcome.out,
        HasSubstr("Failure    9 times, from 0.500 to 1.230 s: policy: exception: no idea\n"));
}

TEST_F(ReplayCli, HasTheLastWordWhenAPolicyTakesItAlong) {
    std::string const recording = steadyFile(path("recording.csv"), 60);
    std::string const result = write("result.json", "of another run");
    struct {
        char const* policy;
        int status;
        char const* told;
    } const table[] = {
        {"aborter", 128 + SIGABRT, "crashed in select\\(\\) for capture 1: signal 6 \\(Aborted\\)"},
        {"sleeper", 2, "gave no answer to select\\(\\) for capture 1 within 0.05s"},
    };
    for (auto const& [policy, status, told] : table) {
        for (char const* const command : {"replay", "live"}) {
            std::string const library = SELECTOR_FOLDER "/selector_" + std::string(policy) + ".so";
            auto const run = [&] {
                zsl({command, recording, "--policy", library, "--time-limit", "50ms", "--json",
                     result});
            };
            EXPECT_EXIT(run(), testing::ExitedWithCode(status),
                        "zsl " + std::string(command) + ": policy .*" + policy + ".so " + told);
            EXPECT_EQ(contentOf(result), "of another run");
            EXPECT_THAT(files(), testing::UnorderedElementsAre("recording.csv", "result.json"));
        }
    }
}

TEST_F(ReplayCli, LeavesNothingBehindWhenThereIsNoMemory) {
    std::string const result = write("result.json", "of another run");
    auto const fill = [&] {
        base::AtomicFile file(result);
        file.stream() << "half of it" << std::flush;
        commands::endForWantOfMemory();
    };
    EXPECT_EXIT(fill(), testing::ExitedWithCode(2), "^zsl: out of memory; [^\n]*\n$");
    EXPECT_EQ(contentOf(result), "of another run");
    EXPECT_THAT(files(), testing::UnorderedElementsAre("recording.csv", "result.json"));
}

TEST_F(ReplayCli, PropertiesLastOnlyForTheReplay) {
    Arguments const press = {"replay", mRecording, "--press", "500ms"};
    Outcome const outcome = zsl(plus(press, {"--property", "ro.vendor.camera3.zsl.default=150",
                                             "--offset", "50ms", "--log", "info"}));
    EXPECT_THAT(outcome.out, HasSubstr("ZSL offset 200 ms"));
    EXPECT_THAT(outcome.err, HasSubstr("zsdOffsetMs(200) = default(150)+project(0)+user(50)"));
    EXPECT_THAT(zsl(press).out, HasSubstr("ZSL offset 0 ms"));
}

/// The tries of a capture, each without what only a log has.
Json withoutLogPlaces(Json tries) {
    for (Json& attempt : tries) {
        attempt.erase("line");
        attempt.erase("time");
    }
    return tries;
}

TEST_F(ReplayCli, ItsLogExplainsWhatItsJsonTells) {
    std::string const file = path("phone.csv");
    ASSERT_EQ(zsl({"generate", "--output", file, "--frames", "240", "--error-rate", "0.1",
                   "--missing-af-state-rate", "0.3", "--unsynced-rate", "0.3"})
                  .status,
              0);
    for (char const* policy : {"default", "cshot", "multiframe"}) {
        SCOPED_TRACE(policy);
        Arguments const timeout = std::string_view(policy) == "multiframe"
                                      ? Arguments{"--timeout-ms", "60"}
                                      : Arguments();
        Outcome const replayed =
            zsl(plus({"replay", file, "--policy", policy, "--captures", "6", "--frames", "3",
                      "--frame-sync", "--offset", "100ms", "--log", "debug", "--json", "-"},
                     timeout));
        Outcome const explained =
            zsl({"explain", write("replay.log", replayed.err), "--json", path("log.json")});
        ASSERT_EQ(explained.status, 0) << explained.err;
        // A pipe, for a file would be followed until a signal comes.
        std::string const pipe = path("pipe");
        ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
        std::thread writer([&] { std::ofstream(pipe) << replayed.err; });
        EXPECT_EQ(zsl({"explain", "--follow", pipe, "--trace", path("log.trace")}).out,
                  explained.out);
        writer.join();
        std::filesystem::remove(pipe);
        std::string const trace = contentOf(path("log.trace"));
        for (int i = 1; i <= 6; ++i) {
            EXPECT_THAT(trace, HasSubstr("\"name\":\"capture " + std::to_string(i) + "\""));
        }
        EXPECT_EQ(Json::parse(trace).at("otherData").at("log"), pipe);
        Json const captures = Json::parse(replayed.out)["captures"];
        Json const reasons = Json::parse(std::ifstream(path("log.json")))["captures"];
        ASSERT_EQ(captures.size(), reasons.size());
        for (size_t i = 0; i < captures.size(); ++i) {
            Json tries = Json::array();
            for (Json const& attempt : captures[i]["tries"]) {
                tries.push_back(attempt["explanation"]);
                Json const& told = tries.back()["servedFrames"];
                ASSERT_EQ(told.size(), attempt["builtFrames"].size()) << "capture " << i + 1;
                for (size_t k = 0; k < told.size(); ++k) {
                    Json const& index = attempt["builtFrames"][k];
                    EXPECT_EQ(told[k]["index"], index);
                    EXPECT_EQ(told[k]["frameNo"], captures[i]["frames"][size_t{index}]["frameNo"]);
                }
            }
            EXPECT_EQ(withoutLogPlaces(tries), withoutLogPlaces(reasons[i]["tries"]))
                << "capture " << i + 1;
        }
    }
}

TEST_F(ReplayCli, ExplainsTheWantedCapturesOfALog) {
    auto const line = [](std::string const& text) {
        return "01-02 12:00:00.000  1  1 W ZebCam/ZslProc: " + text + "\n";
    };
    std::string const log =
        write("a.log", line("[select] [CShotSelector] zslReqNo(7) hbs[F3] O => select") +
                           line("[flush] [requestNo:8]: change pending to normal capture (fra"));
    std::string const all = zsl({"explain", log}).out;
    EXPECT_THAT(all, HasSubstr("Capture 7 "));
    EXPECT_THAT(all, HasSubstr("Capture 8     flushed, 0 tries, process 1\n"));
    std::string const one = zsl({"explain", "--request", "8", log, "--json", path("log.json")}).out;
    EXPECT_THAT(one, Not(HasSubstr("Capture 7 ")));
    Json const captures = Json::parse(contentOf(path("log.json"))).at("captures");
    ASSERT_EQ(captures.size(), 1U);
    EXPECT_EQ(captures[0].at("requestNo"), 8);

    expectRefused({"explain"},
                  {{{path("none.log")}, "none.log: cannot be read: No such file"},
                   {{testing::TempDir()}, "cannot be read: it is a folder"},
                   {{"/proc/self/mem"}, "/proc/self/mem: cannot be read: Input/output"},
                   {{log, "--request", "x"}, "--request"},
                   {{log, "--json", path("no/a.json")}, "cannot write"},
                   {{log, log}, "zsl explain: "}});
    for (auto const& [arguments, told] : std::vector<Refusal>{
             {{write("foreign.log", "a\nb\n")}, "no line of ZebCam/ZslProc among 2 lines"},
             {{log, "--request", "9"}, "--request 9: the log has no line on this capture"}}) {
        Outcome const outcome = zsl(plus({"explain", "--json", path("left.json")}, arguments));
        EXPECT_EQ(outcome.status, 1) << told;
        EXPECT_THAT(outcome.out + outcome.err, HasSubstr(told));
        EXPECT_FALSE(std::filesystem::exists(path("left.json"))) << told;
    }
}

TEST(Text, WrapsBetweenWords) {
    base::Wrapping const narrow{.indent = 4, .columns = 12};
    EXPECT_EQ(base::wrap("a", "one two three", narrow), "a   one two\n    three\n");
    EXPECT_EQ(base::wrap("a", "one2two2 three", narrow), "a   one2two2\n    three\n");
    EXPECT_EQ(base::wrap("a", "of indivisible", narrow), "a   of\n    indivisible\n");
    EXPECT_EQ(base::wrap("a long head", "a b c three", narrow), "a long head a b c\n    three\n")
        << "half a line is left";
    EXPECT_EQ(base::wrap("", "", narrow), "\n");
    EXPECT_EQ(base::wrap("", "x 1, yy 2, z 3", {.indent = 2, .columns = 12, .breakAfter = ", "}),
              "  x 1, yy 2,\n  z 3\n");
    EXPECT_EQ(base::wrap("", "indivisible", {.indent = 2, .columns = 8, .cutsWords = true}),
              "  indivi\n  sible\n");
}

TEST(Duration, ReadsWhatItWrites) {
    std::vector<std::pair<std::string, int64_t>> const good = {
        {"1.2s", 1'200'000'000}, {"-20ns", -20},    {".5ms", 500'000},
        {"+1.s", 1'000'000'000}, {"1.50us", 1'500}, {"9223372036.854775807s", INT64_MAX}};
    for (auto const& [text, ns] : good) {
        EXPECT_EQ(base::parseDuration(text), ns) << text;
        EXPECT_EQ(base::parseDuration(base::formatDuration(ns)), ns) << text;
    }
    for (char const* bad : {"", "s", "1", ".s", "-s", "1 s", "1m", "1e3s", "1.5ns", "--1s", "0x1s",
                            "9223372036.854775808s", "99999999999999999999ns"}) {
        EXPECT_THROW(base::parseDuration(bad), std::invalid_argument) << bad;
    }
    EXPECT_EQ(base::formatMs(-12'345'678), "-12.35");
    EXPECT_EQ(base::formatMs(-4'999), "0.00");
    EXPECT_EQ(base::formatSeconds(1'999'500'000), "2.000");
}

}  // namespace
}  // namespace zebcam::tool
