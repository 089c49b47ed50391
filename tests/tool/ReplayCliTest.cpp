#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "CliFixture.h"
#include "base/Text.h"

namespace zebcam::tool {
namespace {

class ReplayCli : public CliTest {
protected:
    /// Frames 1, 2, ... every 100 ms; frame n is exposed for 10 ms and read out in 20 ms.
    std::string recording(int frames) const {
        std::string text =
            "Frame No.,Timestamp[nanosec],Exposure time[nanosec],Frame readout time[nanosec]\n";
        for (int i = 0; i < frames; ++i) {
            text += std::to_string(i + 1) + "," +
                    std::to_string(1'000'000'000LL + i * 100'000'000LL) + ",10000000,20000000\n";
        }
        return write("recording.csv", text);
    }
};

TEST_F(ReplayCli, PrintsFactsTableAndSummary) {
    std::string const file = recording(12);
    Outcome const outcome =
        zsl({"replay", file, "--press", "500ms", "--press", "1.05s", "--frames", "2"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
    std::string const table = outcome.out.substr(outcome.out.find("capture  pressed"));
    EXPECT_EQ(table,
              "capture  pressed (s)  frame  history frame    lag (ms)  served      waited (ms)"
              "  early shutter (ms)\n"
              "      1        0.500      0              6        0.00  waited           130.00"
              "             -200.00\n"
              "      1        0.500      1              7      100.00  waited           230.00"
              "             -200.00\n"
              "      2        1.050      0             12       50.00  waited           180.00"
              "             -150.00\n"
              "      2        1.050      1              -           -  flushed          180.00"
              "             -150.00\n"
              "\n"
              "Served     0 at once, 3 waited, 0 timed out, 1 flushed, of 4 frames; 1 without a "
              "history frame\n"
              "Lag        minimum 0.00, median 50.00, 95th percentile 100.00, maximum 100.00 ms "
              "after the press\n"
              "Ledger     45 handed out, 42 returned, 3 consumed, 0 released; 0 still out, 0 "
              "lost\n"
              "Result     2 of 2 captures answered, the ledger balances\n");
    EXPECT_NE(outcome.out.find("12 frames in 1.100 s, 10.00 frames/s, median interval 100.00 ms, "
                               "no gaps\n"),
              std::string::npos);
    for (char const c : outcome.out) {
        EXPECT_TRUE(c == '\n' || (c >= ' ' && c <= '~')) << "control character " << int{c};
    }
}

TEST_F(ReplayCli, RefusesWhatItCannotDo) {
    std::string const file = recording(12);
    std::string const broken = write("broken.csv", "Timestamp[nanosec]\n1000\nnoon\n");
    std::string const selectors = SELECTOR_FOLDER "/selector_";
    std::vector<std::pair<std::vector<std::string>, std::string>> const table = {
        {{},
         "zsl: expected the command replay, live, generate, explain or compare\ntry zsl --help\n"},
        {{"play"}, "found \"play\""},
        {{"replay"}, "try zsl replay --help"},
        {{"replay", path("missing.csv")}, "missing.csv: expected a readable file"},
        {{"replay", testing::TempDir()}, "found a folder"},
        {{"replay", broken}, "broken.csv:3: column \"Timestamp[nanosec]\": expected"},
        {{"replay", file, "--press", "-1ms"}, "--press -0.001s: before the recording's first"},
        {{"replay", file, "--press", "1.1001s"}, "last frame (expected 0s to 1.1s)"},
        {{"replay", file, "--dump-at", "2s"}, "--dump-at 2s: after"},
        {{"replay", file, "--press", "5"}, "--press: expected a time with its unit"},
        {{"replay", file, "--captures", "0"}, "--captures: expected a whole number from 1"},
        {{"replay", file, "--history", "8x"}, "--history: expected a whole number from 1"},
        {{"replay", file, "--delivery-delay", "-1ms"}, "expected a time from 0s to 3600s"},
        {{"replay", file, "--delivery-delay", "3600.1s"}, "expected a time from 0s to 3600s"},
        {{"replay", file, "--offset", "1500us"}, "--offset: expected whole milliseconds"},
        {{"replay", file, "--offset", "1ms", "--property", "vendor.debug.camera3.zsl.timestamp=2"},
         "--property sets"},
        {{"replay", file, "--property", "=1"}, "--property: expected KEY=VALUE"},
        {{"replay", file, "--log", "loud"}, "--log: expected error, warning, info or debug"},
        {{"replay", file, "--colour"}, "not expected: --colour"},
        {{"replay", file, "--json", path("no/folder.json")}, "no/folder.json"},
        {{"replay", file, "--policy", "best"}, "--policy: expected default, cshot, multiframe"},
        {{"replay", file, "--policy", path("gone.so")}, "gone.so: there is no such file"},
        {{"replay", file, "--policy", broken}, "cannot be loaded: "},
        {{"replay", file, "--policy", selectors + "nameless.so"}, "no function \"create\""},
        {{"replay", file, "--policy", selectors + "nothing.so"}, "create() gave null"},
        {{"replay", file, "--policy", selectors + "refuser.so"}, "create() threw: not today"},
    };
    for (auto const& [arguments, expected] : table) {
        Outcome const outcome = zsl(arguments);
        EXPECT_EQ(outcome.status, 2) << expected;
        EXPECT_EQ(outcome.out, "") << expected;
        EXPECT_NE(outcome.err.find(expected), std::string::npos) << outcome.err;
        EXPECT_LE(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 2) << outcome.err;
    }
}

TEST_F(ReplayCli, WritesJsonToAFileOrInsteadOfTheText) {
    std::string const file = recording(12);
    std::vector<std::string> arguments = {"replay",   file,         "--press", "500ms",
                                          "--policy", "multiframe", "--json",  path("result.json")};
    Outcome const toFile = zsl(arguments);
    EXPECT_EQ(toFile.status, 0);
    EXPECT_NE(toFile.out.find("at once"), std::string::npos);
    EXPECT_EQ(toFile.out.find("try 1"), std::string::npos) << "nobody asked for reasons";
    arguments.back() = "-";
    Outcome const toOutput = zsl(arguments);
    std::ifstream written(path("result.json"));
    auto const json = nlohmann::json::parse(written);
    EXPECT_EQ(json, nlohmann::json::parse(toOutput.out));
    EXPECT_EQ(json["captures"][0]["frames"][0]["lagNs"], -200'000'000);
    EXPECT_EQ(json["options"]["timeoutNs"], 3'000'000'000);
    EXPECT_EQ(json["recording"]["path"], file);
}

TEST_F(ReplayCli, PrintsWhatItsPageShows) {
    std::filesystem::path const root = std::filesystem::path(__FILE__).parent_path() / "../..";
    std::ifstream page(root / "docs/replay.md");
    std::string expected;
    for (std::string line; std::getline(page, line) && !expected.ends_with("balances\n");) {
        expected += line.starts_with("    Recording ") || !expected.empty()
                        ? (line.empty() ? line : line.substr(4)) + "\n"
                        : "";
    }
    std::string const demo = "tools/zsl/demo/demo_30fps.csv";
    std::string out =
        zsl({"replay", root / demo, "--captures", "4", "--frames", "2", "--offset", "100ms"}).out;
    out.replace(out.find(root.string()), root.string().size() + 1, "");
    EXPECT_EQ(out, expected);
}

TEST_F(ReplayCli, SaysWhenItsOutputIsFull) {
    std::string const file = recording(12);
    std::ostream full(nullptr);
    std::ostringstream err;
    char const* const argv[] = {"zsl", "replay", file.c_str()};
    EXPECT_EQ(commands::runCli(3, argv, {full, err, false}), 2);
    EXPECT_EQ(err.str(), "zsl replay: standard output cannot be written\n");
}

TEST_F(ReplayCli, SaysWhenSomethingWentWrong) {
    Outcome const outcome = zsl({"replay", recording(12), "--press", "500ms", "--policy",
                                 SELECTOR_FOLDER "/selector_thrower.so"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.out.find("Failure    at 0.500 s: policy: exception: no idea\n"),
              std::string::npos);
}

TEST_F(ReplayCli, PropertiesLastOnlyForTheReplay) {
    std::string const file = recording(12);
    std::vector<std::string> const press = {"replay", file, "--press", "500ms"};
    auto offset = press;
    offset.insert(offset.end(), {"--property", "ro.vendor.camera3.zsl.default=150", "--offset",
                                 "50ms", "--log", "info"});
    Outcome const outcome = zsl(offset);
    EXPECT_NE(outcome.out.find("ZSL offset 200 ms"), std::string::npos);
    EXPECT_NE(outcome.err.find("zsdOffsetMs(200) = default(150)+project(0)+user(50)"),
              std::string::npos);
    EXPECT_NE(zsl(press).out.find("ZSL offset 0 ms"), std::string::npos);
}

using Json = nlohmann::json;

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
        Outcome const replayed = zsl({"replay", file, "--policy", policy, "--captures", "6",
                                      "--frames", "3", "--frame-sync", "--offset", "100ms",
                                      "--timeout-ms", "60", "--log", "debug", "--json", "-"});
        Outcome const explained =
            zsl({"explain", write("replay.log", replayed.err), "--json", path("log.json")});
        ASSERT_EQ(explained.status, 0) << explained.err;
        Json const captures = Json::parse(replayed.out)["captures"];
        Json const reasons = Json::parse(std::ifstream(path("log.json")))["captures"];
        ASSERT_EQ(captures.size(), reasons.size());
        for (size_t i = 0; i < captures.size(); ++i) {
            Json tries = Json::array();
            for (Json const& attempt : captures[i]["tries"]) {
                tries.push_back(attempt["explanation"]);
                Json came = Json::array();
                for (size_t const index : attempt["builtFrames"]) {
                    came.push_back({index, captures[i]["frames"][index]["frameNo"]});
                }
                Json told = Json::array();
                for (Json const& served : tries.back()["servedFrames"]) {
                    told.push_back({served["index"], served["frameNo"]});
                }
                EXPECT_EQ(told, came) << "capture " << i + 1;
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
    EXPECT_NE(all.find("Capture 7 "), std::string::npos);
    EXPECT_NE(all.find("Capture 8     flushed, 0 tries, process 1\n"), std::string::npos);
    std::string const one = zsl({"explain", "--request", "8", log, "--json", path("log.json")}).out;
    EXPECT_EQ(one.find("Capture 7 "), std::string::npos);
    Json const captures = Json::parse(std::ifstream(path("log.json"))).at("captures");
    ASSERT_EQ(captures.size(), 1U);
    EXPECT_EQ(captures[0].at("requestNo"), 8);

    std::tuple<std::vector<std::string>, int, std::string> const table[] = {
        {{path("none.log")}, 2, "none.log: cannot be read: No such file"},
        {{testing::TempDir()}, 2, "cannot be read: it is a folder"},
        {{"/proc/self/mem"}, 2, "/proc/self/mem: cannot be read: Input/output error"},
        {{write("foreign.log", "a\nb\n")}, 1, "no line of ZebCam/ZslProc among 2 lines"},
        {{log, "--request", "9"}, 1, "--request 9: the log has no line on this capture"},
        {{log, "--request", "x"}, 2, "--request"},
        {{log, "--json", path("no/a.json")}, 2, "cannot write"},
        {{log, log}, 2, "zsl explain: "},
    };
    for (auto [arguments, status, message] : table) {
        arguments.insert(arguments.begin(), {"explain", "--json", path("left.json")});
        if (message == "cannot write") {
            arguments.erase(arguments.begin() + 1, arguments.begin() + 3);
        }
        Outcome const outcome = zsl(arguments);
        EXPECT_EQ(outcome.status, status) << message;
        EXPECT_NE((outcome.out + outcome.err).find(message), std::string::npos) << outcome.err;
        EXPECT_FALSE(std::filesystem::exists(path("left.json"))) << message;
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
