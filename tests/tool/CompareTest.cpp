#include <cutils/properties.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <metadata/MetadataTags.h>
#include <platform/Properties.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "CliFixture.h"
#include "compare/ComparisonFields.h"
#include "recording/Recording.h"
#include "recording/RecordingGenerator.h"
#include "report/Page.h"
#include "report/Reports.h"

namespace zebcam::tool {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/// A capture at 1 s with a frame chosen at once, one that came later and one that nothing served.
run::ReplayResult handMade() {
    run::ReplayResult result;
    pipeline::CaptureRecord capture;
    capture.pressNs = 1'000'000'000;
    capture.frames = {{pipeline::Served::AtOnce, 0, 1'000'000'000, 1, 966'700'000, {}, {}},
                      {pipeline::Served::Waited, 1, 1'066'660'000, 2, 1'033'300'000, {}, {}},
                      {}};
    recording::SensorFrame scanning;
    scanning.exposureNs = 10'000'000;
    scanning.iso = 400;
    scanning.afMode = NSCam::AF_MODE_CONTINUOUS_PICTURE;
    scanning.afState = NSCam::AF_STATE_PASSIVE_SCAN;
    capture.frames[0].chosen = scanning;
    capture.frames[1].chosen.emplace().lensState = NSCam::LENS_STATE_STATIONARY;
    capture.frames[1].chosen->aeStable = 1;
    result.captures = {capture};
    result.summary = run::summarize(result.captures, 20);
    result.ledger.handedOut = 5;
    result.ledger.lost = 1;
    result.longestHeldNs = 250'000;
    result.offsetMs = 20;
    return result;
}

compare::RunNumbers handMadeNumbers() {
    compare::RefusalCounts refusals;
    refusals[log::Criterion::Time] = 3;
    refusals[log::Criterion::Focus] = 40;
    return compare::numbersOf(handMade(), refusals);
}

TEST(ComparisonNumbers, AreTakenFromTheResult) {
    compare::RunNumbers const numbers = handMadeNumbers();
    std::istringstream expected(
        "captures 1 frames 3 at_once 1 waited 1 unanswered 1 min_lag_ms -33.3 median_lag_ms 0 "
        "p95_lag_ms 33.3 min_wait_ms 0 max_wait_ms 66.66 median_wait_ms 33.33 refused 43 "
        "refused_focus 40 refused_sync 0 max_held_ms 0.25 buffers_lost 1 buffers_out 0 "
        "median_distance_ms 33.3 max_distance_ms 53.3 settled_focus 1 settled_focus_percent 50 "
        "settled_exposure 1 settled_exposure_percent 100 max_exposure_ms 10 median_iso 400");
    for (std::string name, text; expected >> name >> text;) {
        compare::ComparisonField const* const field = compare::findField(name);
        ASSERT_NE(field, nullptr) << name;
        EXPECT_EQ(compare::asText(field->value(numbers)), text) << name;
    }
    EXPECT_EQ(numbers.refusals.text(), "focus 40, time 3");
    EXPECT_EQ(compare::problemsOf(handMade()),
              (std::vector<std::string>{"1 of 3 frames unanswered",
                                        "the ledger does not balance: 0 buffer sets out, 1 lost"}));
    for (char const* const name : {"p95_lag_ms", "max_wait_ms", "max_held_ms", "at_once_percent",
                                   "max_distance_ms", "settled_focus", "median_iso"}) {
        EXPECT_EQ(compare::asText(compare::findField(name)->value({})), "")
            << name << " without frames";
    }
}

TEST(ComparisonLimit, HoldsOrIsBroken) {
    compare::RunNumbers const numbers = handMadeNumbers();
    std::vector<std::pair<std::string, bool>> const limits = {
        {"p95_lag_ms>33.3", false},   {"p95_lag_ms>=33.3", true},  {" min_lag_ms < -33 ", true},
        {"min_lag_ms<-33.3", false},  {"min_lag_ms<=-33.3", true}, {"refused==43", true},
        {"refused == 42.5", false},   {"refused_sync!=0", false},  {"timed_out!=0", false},
        {"at_once_percent<50", true}, {"captures\t!=\t2", true}};
    for (auto const& [text, isBroken] : limits) {
        EXPECT_EQ(compare::Limit(text).brokenBy(numbers).has_value(), isBroken) << text;
    }
    EXPECT_EQ(compare::Limit(" p95_lag_ms>5 ").brokenBy(numbers),
              "p95_lag_ms is 33.3 (--fail-if p95_lag_ms>5)");
    EXPECT_EQ(compare::Limit("p95_lag_ms>5").brokenBy({}),
              "p95_lag_ms has no value (--fail-if p95_lag_ms>5)");
    EXPECT_FALSE(compare::Limit("refused>0").brokenBy({}));
    std::vector<std::pair<std::string, std::string>> const bad = {
        {"", "expected a field, one of < <= > >= == != and a number"},
        {"p95_lag_ms", "found \"p95_lag_ms\""},
        {"p95_lag_ms=5", "expected a field, one of"},
        {"p95>5", "expected a field, found \"p95\" (zsl list fields); did you mean p95_lag_ms?"},
        {">5", "found \"\""},
        {"refused>", "expected a decimal number after the comparison, found \"\""},
        {"refused=>5", "expected a field, one of"},
        {"refused>>5", "found \">5\""},
        {"refused>5ms", "found \"5ms\""},
        {"refused>nan", "found \"nan\""},
        {"refused>1 2", "found \"1 2\""}};
    for (auto const& [text, expected] : bad) {
        EXPECT_THAT(errorOf([&, &limit = text] { compare::Limit{limit}; }), HasSubstr(expected));
    }
}

TEST(ComparisonOutput, QuotesAndFitsItsColumns) {
    compare::RunNumbers wide = handMadeNumbers();
    wide.summary.lag = {
        .count = 1, .min = 0, .median = 49'999, .p95 = -99'999'940'000, .max = -50'000};
    for (uint64_t& count : wide.refusals.byCriterion) {
        count = 123'456'789;
    }
    compare::ComparisonRow row;
    row.recording = "a \"b\",\n.csv";
    row.numbers = wide;
    row.options.policy = {pipeline::PolicyKind::Plugin, "old/lib.so", "Sharp|est"};
    compare::ComparisonRow other = row;
    other.options.framesPerCapture = 2;
    other.options.history = 100'000;
    other.options.policy.pluginPath = "new/lib.so";
    other.options.policyParameters = {{"age", "5"}};
    other.numbers->offsetMs = -123'456;
    other.broken = {"p95_lag_ms, y"};
    compare::ComparisonRow failed = other;
    failed.numbers.reset();
    failed.problems = {std::string(200, 'z')};
    compare::Comparison comparison;
    comparison.rows = {row, other, failed};
    comparison.totals = compare::totalsOf(comparison.rows, 3);

    std::string const whole = report::comparisonTable(comparison);
    std::istringstream table(whole);
    for (std::string line; std::getline(table, line);) {
        EXPECT_LE(line.size(), 100U) << line;
    }
    for (char const* const part :
         {"Sharp|est (old/lib.so)  old/lib.so\nSharp|est (new/lib.so)  new/lib.so\n",
          "\n! Sharp|est (new/lib.so)    5  -123456       2   100000", "0.0  -99999.9  -0.1"}) {
        EXPECT_THAT(whole, HasSubstr(part));
    }
    std::ostringstream csv;
    report::writeCsv(comparison, csv);
    EXPECT_THAT(csv.str(),
                HasSubstr("\n\"a \"\"b\"\",\n.csv\",new/lib.so,Sharp|est,age=5,-123456,2,"
                          "100000,limit,\"p95_lag_ms, y\",1,"));
    std::ostringstream markdown;
    report::writeMarkdown(comparison, markdown);
    EXPECT_THAT(markdown.str(), HasSubstr("\n| **limit** | Sharp\\|est (new/lib.so), age 5, offset "
                                          "-123456 ms, frames 2, history 100000 | 1 | 1 | 0 |"));
}

/// A row of the setting with so many ISO and so many frames at once.
compare::ComparisonRow rowWith(std::string const& policy, std::vector<int64_t> const& isos) {
    compare::ComparisonRow row;
    row.options.policy = {pipeline::PolicyKind::Plugin, policy};
    for (int64_t const iso : isos) {
        row.frames.emplace_back().served = pipeline::Served::AtOnce;
        row.frames.back().iso = iso;
    }
    row.numbers.emplace().summary = run::summarize(row.frames);
    row.numbers->summary.captures = isos.size();
    row.numbers->longestHeldNs = isos.front();
    row.numbers->ledger.handedOut = isos.size();
    return row;
}

TEST(ComparisonTotals, AreOfTheRecordingsThatEverySettingHas) {
    std::vector<compare::ComparisonRow> rows = {rowWith("a", {100, 200}), rowWith("b", {400}),
                                                rowWith("a", {300}),      rowWith("b", {50}),
                                                rowWith("a", {9'000}),    rowWith("b", {1})};
    rows[5].numbers.reset();
    compare::Totals const totals = compare::totalsOf(rows, 2);
    EXPECT_EQ(totals.recordings, 2U);
    EXPECT_EQ(totals.leftOut, 1U);
    run::ReplaySummary const& sum = totals.rows.at(0).numbers->summary;
    EXPECT_EQ(sum.captures, 3U);
    EXPECT_EQ(sum.iso.median, 200) << "of all frames, and not of the recordings' medians";
    EXPECT_EQ(totals.rows[0].numbers->longestHeldNs, 300);
    EXPECT_EQ(totals.rows[0].numbers->ledger.handedOut, 3U);

    auto const rankings = compare::rank(totals.rows);
    auto const of = [&](char const* name) {
        return std::find_if(rankings.begin(), rankings.end(),
                            [&](auto const& ranking) { return ranking.field->name == name; });
    };
    ASSERT_NE(of("max_iso"), rankings.end());
    EXPECT_EQ(of("max_iso")->places.at(1).setting, 1U) << "less is better";
    EXPECT_DOUBLE_EQ(of("max_iso")->places[1].ratio.value(), 400.0 / 300);
    ASSERT_NE(of("at_once"), rankings.end());
    EXPECT_EQ(of("at_once")->places.at(0).setting, 0U) << "more is better";
    EXPECT_EQ(of("frames"), rankings.end()) << "has no better end";
    EXPECT_EQ(of("timed_out"), rankings.end()) << "is alike";
}

TEST(ChildPool, CarriesWhatFitsNoPipeAndTellsHowOthersEnd) {
    std::vector<compare::ChildOutcome> outcomes(4);
    std::string const large(1'000'000, 'x');
    compare::runInChildren(
        outcomes.size(), {.jobs = 2}, base::SignalWatch(),
        [&](size_t task) {
            std::cout << large << "\nlast words of " << task << "\n \r\n" << std::flush;
            if (task == 1) {
                throw std::runtime_error(large);
            }
            if (task > 1) {
                std::_Exit(task == 2 ? 7 : 0);
            }
            return large;
        },
        [&](size_t task, compare::ChildOutcome outcome) { outcomes[task] = std::move(outcome); });
    EXPECT_EQ(outcomes[0].data, large);
    EXPECT_EQ(outcomes[0].failure, "");
    EXPECT_EQ(outcomes[1].failure, large);
    EXPECT_EQ(outcomes[2].failure, "the run ended early with status 7: last words of 2");
    EXPECT_EQ(outcomes[3].failure, "the run ended early with status 0: last words of 3");
}

/// Two recordings, and one that breaks off in a row.
class Compare : public CliTest {
protected:
    Compare() {
        for (uint64_t const value : {1, 2}) {
            recording::GeneratorOptions options;
            options.frames = 90;
            options.seedValue = value;
            recording::writeRecording(recording::generate(options),
                                      path("r" + std::to_string(value) + ".csv"));
        }
        write("broken.csv", "Timestamp[nanosec]\n1000\nnoon\n");
    }

    /// Has pages written, if this build can.
    Arguments pagesIn(std::string const& folder) const {
        return report::reportPage() != nullptr ? Arguments{"--reports", path(folder)} : Arguments();
    }

    std::string const mSelectors = SELECTOR_FOLDER "/selector_";
};

TEST_F(Compare, GoesOnAfterAFailingFileAndKeepsTheOrder) {
    auto const withJobs = [&](std::string const& jobs) {
        Arguments const arguments = {"compare",
                                     path("r1.csv"),
                                     path("broken.csv"),
                                     path("r2.csv"),
                                     "--policy",
                                     "multiframe",
                                     "--policy",
                                     "default",
                                     "--offset",
                                     "50ms",
                                     "--csv",
                                     "-",
                                     "--jobs",
                                     jobs,
                                     "--json",
                                     path("out" + jobs)};
        return zsl(plus(arguments, pagesIn("pages")));
    };
    write("pages/0001-r1-multiframe.html", "of the last time");
    write("pages/notes", "");
    Outcome const one = withJobs("1");
    Outcome const two = withJobs("2");
    EXPECT_EQ(one.status, 1);
    EXPECT_EQ(one.out, two.out);
    EXPECT_EQ(one.err, two.err);
    std::string const broken = path("broken.csv") + ":";
    EXPECT_THAT(one.err, StartsWith("zsl compare: " + broken + "3: column "));
    EXPECT_EQ(std::count(one.err.begin(), one.err.end(), '\n'), 1) << "one file, one complaint";

    auto const rows = nlohmann::json::parse(contentOf(path("out2")))["rows"];
    std::vector<std::string> found;
    for (auto const& row : rows) {
        found.push_back(std::filesystem::path(row["recording"]["path"]).stem().string() + " " +
                        row["options"]["policy"].get<std::string>() + " " +
                        row["status"].get<std::string>());
        EXPECT_EQ(row["summary"].is_null(), row["status"] == "failed");
    }
    EXPECT_THAT(found, ElementsAre("r1 multiframe ok", "r1 default ok", "broken multiframe failed",
                                   "broken default failed", "r2 multiframe ok", "r2 default ok"));
    EXPECT_GT(rows[1]["refusals"]["time"], 0);
    EXPECT_LT(rows[1]["summary"]["lag"]["minNs"], 0) << "the offset has no effect";
    if (report::reportPage() != nullptr) {
        EXPECT_EQ(rows[5]["report"], path("pages/0006-r2-default.html"));
        EXPECT_TRUE(rows[2]["report"].is_null()) << "of a run that failed";
        for (auto const& row : {rows[0], rows[5]}) {
            std::string const page = contentOf(row["report"]);
            EXPECT_THAT(page, HasSubstr(row["recording"]["path"].get<std::string>() + " - replay"));
            EXPECT_THAT(page, HasSubstr("</html>"));
        }
        EXPECT_THAT(files("pages"), testing::SizeIs(5)) << "four pages, and what was there";
    }
}

TEST_F(Compare, ReportsPlugInsThatCrashHangOrThrow) {
    Arguments arguments = {"compare", path("r1.csv"), "--jobs", "4"};
    for (char const* const name : {"aborter", "thrower", "refuser", "cloner"}) {
        arguments = plus(arguments, {"--policy", mSelectors + name + ".so"});
    }
    Outcome const outcome = zsl(arguments);
    EXPECT_EQ(outcome.status, 1);
    for (char const* const expected :
         {"aborter.so, frames 1, history 8): the run was ended by signal 6 (Aborted): the tables "
          "are gone\n",
          "s: policy: exception: no idea\n", "create() threw: not today\n"}) {
        EXPECT_THAT(outcome.err, HasSubstr(expected));
    }
    EXPECT_THAT(outcome.out, HasSubstr("\n  Cloner ")) << "the last one is good";
    Outcome const hanging = zsl(plus(
        {"compare", path("r1.csv"), "--time-limit", "300ms", "--policy", mSelectors + "sleeper.so"},
        pagesIn("pages")));
    EXPECT_FALSE(std::filesystem::exists(path("pages"))) << "for nothing came into it";
    EXPECT_EQ(hanging.status, 1);
    EXPECT_THAT(hanging.err, HasSubstr("no result after 0.3s, killed (--time-limit)\n"));
}

TEST_F(Compare, SweepsTheParametersOfPolicies) {
    std::string const every = "vendor.debug.camera3.zsl.policy.every";
    property_set(every.c_str(), "3");
    Outcome const swept =
        zsl({"compare", path("r1.csv"), "--frames", "2", "--policy", "default", "--policy",
             mSelectors + "cloner.so", "--policy-option", "every=1,2", "--json", "-"});
    auto const rows = nlohmann::json::parse(swept.out)["rows"];
    std::string found;
    for (auto const& row : rows) {
        found += row["options"]["policyName"].dump() + row["options"]["policyOptions"].dump() +
                 row["summary"]["flushed"].dump() + " ";
    }
    // Cloned at once, or every second frame waits for the flush at the end.
    EXPECT_EQ(found, R"(null{}0 "Cloner"{"every":"1"}0 "Cloner"{"every":"2"}10 )");
    Outcome const replayed = zsl({"replay", path("r1.csv"), "--frames", "2", "--policy",
                                  mSelectors + "cloner.so", "--policy-option", "every=1"});
    EXPECT_THAT(replayed.out, HasSubstr("Cloner"));
    EXPECT_THAT(replayed.out, HasSubstr(" 0 timed out, 0 flushed, of 20 frames\n"));
    EXPECT_EQ(property_get_int32(every.c_str(), 0), 3) << "not put back";
    platform::clearProperty(every);
}

TEST_F(Compare, TellsAPolicysOwnReasonsByTheirNames) {
    std::string const file = path("own.json");
    Outcome const outcome = zsl({"compare", path("r1.csv"), path("r2.csv"), "--captures", "2",
                                 "--policy", mSelectors + "picky.so", "--json", file});
    auto const document = nlohmann::json::parse(contentOf(file));
    uint64_t all = 0;
    for (auto const& row : document["rows"]) {
        auto const& refusals = row["refusals"];
        EXPECT_EQ(refusals["own"].at(0)["criterion"], "softness");
        EXPECT_EQ(refusals["own"].at(0)["count"], refusals["unknown"]);
        all += refusals["unknown"].get<uint64_t>();
        EXPECT_THAT(outcome.out, HasSubstr("softness " + refusals["unknown"].dump()));
    }
    EXPECT_GT(all, 0U);
    EXPECT_EQ(document["totals"]["rows"][0]["refusals"]["own"][0]["count"], all);
    EXPECT_THAT(outcome.out, Not(HasSubstr("unknown")));
}

TEST_F(Compare, AnInterruptionEndsItAndLeavesNoFile) {
    Arguments const arguments = {
        "compare",      path("r1.csv"), "--json",   path("result.json"),
        "--time-limit", "30s",          "--policy", mSelectors + "interrupter.so"};
    Outcome const outcome = zsl(plus(arguments, pagesIn("pages")));
    EXPECT_EQ(outcome.status, 143);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "zsl compare: interrupted: Terminated\n");
    EXPECT_THAT(files(), testing::UnorderedElementsAre("r1.csv", "r2.csv", "broken.csv"));
}

TEST_F(Compare, LimitsDecideTheStatus) {
    auto const withLimit = [&](std::string const& limit) {
        return zsl({"compare", path("r1.csv"), path("r2.csv"), "--policy", "default", "--policy",
                    "cshot", "--fail-if", limit});
    };
    Outcome const good = withLimit("at_once>10");
    EXPECT_EQ(good.status, 0);
    EXPECT_EQ(good.err, "");
    EXPECT_THAT(good.out, Not(HasSubstr("! ")));
    Outcome const broken = withLimit("max_wait_ms==0");
    EXPECT_EQ(broken.status, 1);
    EXPECT_EQ(std::count(broken.err.begin(), broken.err.end(), '\n'), 2) << broken.err;
    EXPECT_THAT(broken.err, HasSubstr("r2.csv (policy cshot, offset 0 ms, frames 1, history 8): "
                                      "max_wait_ms is 0 (--fail-if max_wait_ms==0)\n"));
    EXPECT_THAT(broken.out, HasSubstr("\n! cshot"));

    Outcome const replayed = zsl({"replay", path("r1.csv"), "--fail-if", "refused!=0", "--fail-if",
                                  "p95_wait_ms > 1000", "--json", path("replay.json")});
    EXPECT_EQ(replayed.status, 1);
    EXPECT_THAT(replayed.out, HasSubstr("(--fail-if refused!=0): BROKEN\n"));
    EXPECT_THAT(replayed.out, HasSubstr("(--fail-if p95_wait_ms > 1000): kept\n"));
    ASSERT_EQ(zsl({"compare", path("r1.csv"), "--json", path("compare.json")}).status, 0);
    auto const row = nlohmann::json::parse(contentOf(path("compare.json")))["rows"][0];
    auto const limits = nlohmann::json::parse(contentOf(path("replay.json")))["limits"];
    EXPECT_EQ(limits[0]["found"], row["refusals"]["total"]) << "counted otherwise than by compare";
    EXPECT_EQ(limits[1]["found"], row["fields"]["p95_wait_ms"]);
    EXPECT_EQ(zsl({"replay", path("r1.csv"), "--fail-if", "refused==0"}).status, 0);
}

TEST_F(Compare, TellsWhatChangedSinceABaseline) {
    Arguments const again = {"compare", path("r1.csv"), path("r2.csv"),          "--policy",
                             "default", "--policy",     mSelectors + "cloner.so"};
    ASSERT_EQ(zsl(plus(again, {"--json", path("old.json")})).status, 0);
    Arguments const since = plus(again, {"--baseline", path("old.json")});
    Outcome const same = zsl(since);
    EXPECT_EQ(same.status, 0) << same.err;
    EXPECT_THAT(unwrapped(same.out), HasSubstr("4 of 4 runs matched, nothing changed"));

    auto old = nlohmann::json::parse(contentOf(path("old.json")));
    auto& fields = old["rows"][0]["fields"];
    double const wait = fields["max_wait_ms"];
    fields["max_wait_ms"] = wait / 1.04;  // it was a little better
    old["rows"][1]["options"]["policy"] = "/built/elsewhere/cloner.so";
    old["totals"]["rows"][1]["fields"]["at_once"] = 1'000;
    write("old.json", old.dump());
    Outcome const worse = zsl(since);
    EXPECT_EQ(worse.status, 1);
    EXPECT_THAT(unwrapped(worse.out), HasSubstr("4 of 4 runs matched, 2 values got worse"));
    EXPECT_THAT(worse.err, HasSubstr("r1.csv (policy default, offset 0 ms, frames 1, history 8): "
                                     "worse than in " +
                                     path("old.json") + ": max_wait_ms "));
    EXPECT_THAT(worse.err, HasSubstr("all recordings (policy Cloner, offset 0 ms"));
    for (auto const& [tolerance, isEnough] : {std::pair{"3%", false},
                                              {"max_wait_ms=5%", true},
                                              {"max_wait_ms=50", true},
                                              {"max_lag_ms=50%", false}}) {
        Outcome const told =
            zsl(plus(since, {"--tolerance", tolerance, "--tolerance", "at_once=1000"}));
        EXPECT_EQ(told.status, isEnough ? 0 : 1) << tolerance << "\n" << told.err;
    }
    old["rows"][0]["options"]["pressAtBootNs"] = {1};
    write("presses.json", old.dump());
    Outcome const otherPresses = zsl(plus(again, {"--baseline", path("presses.json")}));
    EXPECT_THAT(unwrapped(otherPresses.out), HasSubstr("3 of 4 runs matched"));
    Outcome const other = zsl(plus(since, {"--captures", "3", "--json", path("other.json")}));
    EXPECT_EQ(other.status, 1);
    EXPECT_THAT(other.err, HasSubstr("none of its runs has recording and settings"));
    EXPECT_THAT(contentOf(path("other.json")), HasSubstr("4 of 4 runs have no like in the"))
        << "a verdict that is good";

    ASSERT_EQ(zsl({"replay", path("r1.csv"), "--json", path("replay.json")}).status, 0);
    old["format"] = 1;
    write("format.json", old.dump());
    old["format"] = 2;
    old["rows"][2]["fields"] = "none";
    write("rows.json", old.dump());
    expectRefused(again, {{{"--baseline", path("replay.json")}, "found what zsl replay wrote"},
                          {{"--baseline", path("r1.csv")}, "found no JSON"},
                          {{"--baseline", path("format.json")}, "in format 2, found format 1"},
                          {{"--baseline", path("rows.json")}, "with rows that have fields"},
                          {{"--baseline", path("gone.json")}, "expected a readable file"},
                          {{"--tolerance", "5%"}, "--tolerance: expected --baseline with it"},
                          {{"--tolerance", "5"}, "--tolerance: expected N% for every field"},
                          {{"--tolerance", "x=5"}, "--tolerance: expected a field, found"}});
}

TEST_F(Compare, RefusesWhatItCannotDo) {
    std::string const file = path("r1.csv");
    std::vector<Refusal> const table = {
        {{}, "expected RECORDING, found nothing"},
        {{"-"}, "-: expected a file, because each run reads it anew, found standard input"},
        {{file, "--policy", "best"}, "--policy: expected default, cshot, multiframe or best-shot"},
        {{file, "--policy", "./gone.so"}, "--policy ./gone.so: there is no such file"},
        {{file, "--fail-if", "lag>5"}, "--fail-if: expected a field, found \"lag\""},
        {{file, "--frames", "2", "--frames", "0"}, "--frames: expected a whole number from 1"},
        {{file, "--policy-option", "a=1"},
         "--policy-option: expected best-shot, a library or a rule"},
        {{file, "--policy-option", "a b=1"}, "--policy-option: expected NAME=VALUE, with a name"},
        {{file, "--policy-option", "a=1,"}, "--policy-option: expected NAME=VALUE, with a value"},
        {{file, "--policy", "default,cshot"},
         "--policy: expected one value, found \"default,cshot\"; repeat the option to try several"},
        {{file, "--offset", "50ms,100ms"},
         "--offset: expected one value, found \"50ms,100ms\"; rep"},
        {{file, "--jobs", "0"}, "--jobs: expected a whole number from 1 to 1024"},
        {{file, "--time-limit", "0s"}, "--time-limit: expected a time longer than 0s"},
        {{file, "--json", "-", "--csv", "-"}, "--csv: --json goes to '-' as well"},
        {{file, "--csv", path("no/folder.csv")}, "no/folder.csv"},
        {{file, "--offset", "0ms", "--property", "vendor.debug.camera3.zsl.timestamp=2"},
         "--offset: --property sets"},
    };
    expectRefused({"compare"}, table);
    if (report::reportPage() != nullptr) {
        expectRefused({"compare", file, "--json", path("x")},
                      {{{"--report", path("x")}, "--report: --json goes to"},
                       {{"--report", file}, "' is what is read, and would be lost"},
                       {{"--reports", "/proc/self/exe"}, "cannot write to the folder"},
                       {{"--reports", path("no/pages")}, "No such file"}});
    }
    EXPECT_THAT(zsl({"compare", file}, true).err, HasSubstr("\r1 of 1 runs"));
}

}  // namespace
}  // namespace zebcam::tool
