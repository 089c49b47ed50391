#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>

#include "pipeline/Schedule.h"
#include "report/Page.h"
#include "report/Reports.h"
#include "run/Verdict.h"
#include "tool/CliFixture.h"
#include "tool/SteadyRecording.h"

namespace zebcam::tool {
namespace {

using testing::HasSubstr;
using testing::Not;

pipeline::ReplayOptions failing(pipeline::ReplayOptions options,
                                std::vector<std::string> const& faults, uint64_t randomSeed = 1) {
    for (std::string const& fault : faults) {
        options.faults.rules.push_back(pipeline::parseFault(fault));
    }
    options.faults.randomSeed = randomSeed;
    return options;
}

TEST(Faults, AreParsed) {
    for (char const* const text : {"late", "late:0", "late:1", "lost:0.125", "no-history@1.5s",
                                   "wrong-clock", "callback-gone@0s", "policy-slow@604800s"}) {
        EXPECT_EQ(toString(pipeline::parseFault(text)), text);
    }
    for (pipeline::FaultTraits const& traits : pipeline::FAULT_KINDS) {
        EXPECT_EQ(pipeline::parseFault(std::string(traits.name)),
                  (pipeline::FaultRule{traits.kind, {}, {}}));
        EXPECT_EQ(pipeline::traitsOf(traits.kind).name, traits.name);
    }
    std::vector<std::pair<std::string, std::string>> const refused = {
        {"", "found \"\" (zsl list faults)"},
        {"Late", "found \"Late\""},
        {":0.5", "KIND:RATE"},
        {"late:", "expected a rate from 0 to 1 after \"late:\", found \"\""},
        {"late:1.01", "found \"1.01\""},
        {"late:-0.1", "found \"-0.1\""},
        {"late:nan", "found \"nan\""},
        {"late:0.1x", "found \"0.1x\""},
        {"late@", "after \"late@\": expected a time with its unit"},
        {"late@5", "found \"5\""},
        {"late@-1ms", "expected a time from 0s to 604800s"},
        {"late@604801s", "found \"604801s\""},
        {"late:0.1@2s", "not both"},
        {"late@2s:0.1", "not both"},
        {"wrong-clock:0.5", "wrong-clock begins and lasts, so that it has no rate"},
        {"callback-gone:1", "found \"callback-gone:1\""},
    };
    for (auto const& [text, expected] : refused) {
        EXPECT_THAT(errorOf([&, &fault = text] { pipeline::parseFault(fault); }),
                    HasSubstr(expected));
    }
}

/// How often the run's only kind has struck.
uint64_t strikesOf(run::ReplayResult const& result) {
    return result.faults && result.faults->strikes.size() == 1
               ? result.faults->strikes.front().second
               : 0;
}

/// How many frames, tries and captures are marked with a kind.
size_t marksOf(run::ReplayResult const& result, pipeline::FaultKind kind) {
    auto const has = [kind](auto const& faults) { return faults[static_cast<size_t>(kind)]; };
    size_t marks = 0;
    for (pipeline::ReportedFrame const& frame : result.reported) {
        marks += has(frame.faults.kinds) ? 1 : 0;
    }
    bool const isOfTries = pipeline::traitsOf(kind).scope == pipeline::FaultScope::Try;
    for (pipeline::CaptureRecord const& capture : result.captures) {
        marks += !isOfTries && has(capture.faults) ? 1 : 0;
        for (pipeline::TryRecord const& attempt : capture.tries) {
            marks += has(attempt.faults) ? 1 : 0;
        }
    }
    return marks;
}

struct FaultCase {
    char const* fault;
    pipeline::ReplayOptions options;
    uint64_t strikes;
    char const* expected;
    bool (*isAsExpected)(run::ReplayResult const&) = [](run::ReplayResult const&) { return true; };
};

bool isInFlightLater(run::ReplayResult const& result) {
    auto const& inFlight = result.captures.at(1).tries.front().inFlightFrames;
    return std::find(inFlight.begin(), inFlight.end(), 11U) != inFlight.end();
}

bool arrivedFirstInTime(run::ReplayResult const& result) {
    return result.arrivalsNs.at(10) == START + 1130 * MS;
}

bool wasNothingOffered(run::ReplayResult const& result) {
    auto const& tries = result.captures.front().tries;
    return tries.at(0).historyFrames.empty() && tries.at(1).historyFrames.size() == 8;
}

bool onlyTheFirstHeardOfAShutter(run::ReplayResult const& result) {
    return result.captures.at(0).earlyShutterNs && !result.captures.at(1).earlyShutterNs;
}

bool wasPressedLate(run::ReplayResult const& result) {
    return result.captures.at(1).pressNs == START + 1250 * MS;
}

std::vector<FaultCase> faultCases() {
    // Frame 11 begins at 1 s and, all being well, serves a press at that moment.
    pipeline::ReplayOptions const one = pressing({1000});
    pipeline::ReplayOptions const two = pressing({1000}, 2);
    pipeline::ReplayOptions const ready = with(one, [](auto& o) { o.offsetMs = 250; });
    auto const multiframe = with(one, [](auto& o) {
        o.policy.kind = pipeline::PolicyKind::Multiframe;
        o.timeoutMs = 60'000;
    });
    return {
        {"late@1s", two, 1, "F12 100 230 waited, F11 0 330 waited"},
        {"lost@1s", pressing({1000, 2000}), 1, "F12 100 230 waited, F21 0 130 waited",
         isInFlightLater},
        {"duplicate@1s", two, 1, "F11 0 130 waited, F11 0 230 waited", arrivedFirstInTime},
        {"reorder@1s", two, 1, "F12 100 230 waited, F11 0 255 waited"},
        {"image-error@1s", one, 1, "F12 100 230 waited"},
        {"missing-metadata@1s", one, 1, "F12 100 230 waited"},
        {"absurd-metadata:1", pressing({1000}, 3), 60,
         "F12 100 230 waited, F14 300 430 waited, F15 400 530 waited"},
        {"locked-metadata@1s", one, 1, "F12 100 230 waited"},
        {"locked-metadata:1", one, 60, "F33 2200 3030 timed out"},
        {"wrong-clock", one, 60, "F33 -40320800 3030 timed out"},
        {"wrong-clock@1.1s", two, 49, "F11 0 130 waited, F33 -40320800 3030 timed out"},
        {"no-history@1s", ready, 1, "F9 -200 30 waited", wasNothingOffered},
        {"callback-gone@1.5s", pressing({1000, 2000}), 1, "F11 0 130 waited, F21 0 130 waited",
         onlyTheFirstHeardOfAShutter},
        {"flush:1", pressing({1000, 2000}), 2, "50 flushed, 50 flushed"},
        {"flush@1.1s", one, 1, "100 flushed"},
        {"policy-throws:1", one, 1, "F33 2200 3030 timed out"},
        {"policy-throws:1", multiframe, 1, "F33 2200 3030 timed out"},
        {"policy-throws@0s", pressing({5000, 5300}), 1, "1030 flushed, F54 0 130 waited"},
        {"policy-slow@1s", pressing({1000, 1100}), 1, "F11 0 250 waited, F14 50 180 waited",
         wasPressedLate},
        {"policy-slow@3.9s", with(one, [](auto& o) { o.offsetMs = -20'000; }), 1,
         "F32 2100 3230 timed out"},
        {"policy-nonsense:1", pressing({1000, 2000, 2500}, 2), 3,
         "F10 -100 30 waited, 30 waited, 0 at once, 0 at once, F24 -200 0 at once, 0 at once"},
    };
}

TEST(Faults, DoToCapturesWhatTheyShould) {
    for (FaultCase const& c : faultCases()) {
        SCOPED_TRACE(c.fault);
        run::ReplayResult const result =
            run::replay(steadyRecording(), failing(c.options, {c.fault}));
        EXPECT_EQ(outcomesOf(result), c.expected);
        EXPECT_EQ(strikesOf(result), c.strikes);
        EXPECT_EQ(marksOf(result, result.faults->strikes.front().first), c.strikes);
        EXPECT_TRUE(c.isAsExpected(result));
        EXPECT_TRUE(result.isClean());
    }
}

std::string jsonOf(pipeline::ReplayOptions const& options) {
    std::ostringstream json;
    report::writeJson(report::toJson({}, run::replay(steadyRecording(), options), nullptr), json);
    return json.str();
}

TEST(Faults, RepeatWithTheirSeedWhateverElseIsAsked) {
    pipeline::FaultOptions const few =
        failing({}, {"late:0.3", "no-history:0.3", "flush:0.3"}).faults;
    pipeline::FaultOptions const many =
        failing({}, {"lost", "policy-slow", "late@1s", "late:0.3", "no-history:0.3", "flush:0.3"})
            .faults;
    pipeline::FaultInjector forwards(few, START, 100 * MS);
    pipeline::FaultInjector backwards(many, START, 100 * MS);
    constexpr size_t kFrames = 2000;
    std::vector<int64_t> latenesses(kFrames);
    size_t late = 0;
    for (size_t i = 0; i < kFrames; ++i) {
        latenesses[i] = forwards.ofFrame(i, START).lateNs;
        late += latenesses[i] > 0 ? 1 : 0;
    }
    EXPECT_NEAR(static_cast<double>(late), 0.3 * kFrames, 100);
    for (size_t i = kFrames; i-- > 0;) {
        EXPECT_EQ(backwards.ofFrame(i, START).lateNs, latenesses[i]);
        EXPECT_EQ(backwards.ofTry(i, i % 3, START).noHistory,
                  forwards.ofTry(i, i % 3, START).noHistory);
        EXPECT_EQ(backwards.flushAfter(i, START), forwards.flushAfter(i, START));
    }
    std::vector<std::string> const all = {"late", "lost", "no-history", "policy-nonsense"};
    pipeline::ReplayOptions const options = pressing({1000, 2000, 3000, 4000}, 2);
    EXPECT_EQ(jsonOf(failing(options, all, 7)), jsonOf(failing(options, all, 7)));
    EXPECT_NE(jsonOf(failing(options, all, 7)), jsonOf(failing(options, all, 8)));
}

TEST(Faults, ResultsLoseEveryStateOrTellOneThatIsAbsurd) {
    recording::Recording recording = steadyRecording();
    for (recording::SensorFrame& frame : recording.frames) {
        frame.frameSync = 0;
    }
    auto const reported = [&recording](char const* fault) {
        pipeline::ReplayOptions const options = failing({}, {fault});
        pipeline::FaultInjector injector(options.faults, START, 100 * MS);
        return pipeline::sensorEvents(recording, options, &injector, START).frames;
    };
    std::set<int> seen;
    for (pipeline::ReportedFrame const& told : reported("absurd-metadata:1")) {
        recording::SensorFrame const& frame = told.frame;
        recording::SensorFrame truth = recording.frames.at(frame.frameNo - 1);
        if (frame.afState == 200 && frame.lensState == 200) {
            truth.afState = truth.lensState = 200, seen.insert(1);
        } else if (frame.aeStable < 0) {
            truth.aeStable = frame.aeStable, seen.insert(2);
        } else if (frame.frameSync > int64_t{1} << 60) {
            truth.frameSync = frame.frameSync, seen.insert(3);
        } else if (frame.sensorMode > 1'000'000) {
            truth.sensorMode = frame.sensorMode, seen.insert(4);
        }
        EXPECT_NE(frame, recording.frames.at(frame.frameNo - 1));
        EXPECT_EQ(frame, truth);
    }
    EXPECT_EQ(seen, (std::set<int>{1, 2, 3, 4}));
    for (pipeline::ReportedFrame const& told : reported("missing-metadata:1")) {
        recording::SensorFrame truth = recording.frames.at(told.frame.frameNo - 1);
        truth.afMode = truth.afState = truth.lensState = {};
        truth.aeStable = truth.sensorId = truth.sensorMode = {};
        truth.frameSync = {};
        EXPECT_EQ(told.frame, truth);
    }
}

TEST(Faults, GoOnThroughThePassesOfARecording) {
    recording::Recording const recording = steadyRecording();
    pipeline::ReplayOptions const options = failing({}, {"lost:0.5", "image-error@7s"});
    pipeline::FaultInjector injector(options.faults, START, 100 * MS);
    pipeline::SensorEvents const first =
        pipeline::sensorEvents(recording, options, &injector, START);
    pipeline::SensorEvents const second =
        pipeline::sensorEvents(recording, options, &injector, START, 1);
    auto const arrivals = [](pipeline::SensorEvents const& pass) {
        std::vector<size_t> frames;
        for (pipeline::SensorEvent const& event : pass.events) {
            if (event.kind == pipeline::SensorEventKind::Arrival) {
                frames.push_back(event.frame);
            }
        }
        return frames;
    };
    EXPECT_NE(arrivals(first), arrivals(second)) << "a pass has its own faults";
    EXPECT_TRUE(std::is_sorted(second.events.begin(), second.events.end()));
    EXPECT_EQ(second.events.front().timeNs, START + 6000 * MS);
    for (size_t i = 0; i < 60; ++i) {
        EXPECT_EQ(second.frames[i].frame.frameNo, 61 + i);
        EXPECT_EQ(second.frames[i].frame.timestampNs,
                  first.frames[i].frame.timestampNs + 6000 * MS);
        EXPECT_FALSE(first.frames[i].frame.hasError);
        EXPECT_EQ(second.frames[i].frame.hasError, i == 10) << "7 s after the first pass began";
    }
}

TEST(Faults, AllAtOnceLoseNoFrameAndNoBuffer) {
    std::vector<std::string> faults = {"wrong-clock@3s", "callback-gone@2s", "flush@4s"};
    for (pipeline::FaultTraits const& traits : pipeline::FAULT_KINDS) {
        if (traits.scope != pipeline::FaultScope::State) {
            faults.emplace_back(traits.name);
        }
    }
    std::vector<pipeline::PolicyOption> const policies = {
        {pipeline::PolicyKind::Default, {}},
        {pipeline::PolicyKind::CShot, {}},
        {pipeline::PolicyKind::Multiframe, {}},
        {pipeline::PolicyKind::BestShot, {}},
        {pipeline::PolicyKind::Plugin, SELECTOR_FOLDER "/selector_hoarder.so"},
        {pipeline::PolicyKind::Plugin, SELECTOR_FOLDER "/selector_cloner.so"}};
    recording::Recording const recording = steadyRecording();
    for (pipeline::PolicyOption const& policy : policies) {
        for (uint64_t randomSeed = 0; randomSeed < 8; ++randomSeed) {
            SCOPED_TRACE(policy.name() + ", random seed " + std::to_string(randomSeed));
            pipeline::ReplayOptions options;
            options.captures = 20;
            options.framesPerCapture = 3;
            options.policy = policy;
            run::ReplayResult const result =
                run::replay(recording, failing(options, faults, randomSeed));
            EXPECT_TRUE(result.isClean()) << (result.failures.empty() ? "" : result.failures[0]);
            for (auto const& [kind, count] : result.faults->strikes) {
                EXPECT_GT(count, 0U) << pipeline::traitsOf(kind).name;
            }
        }
    }
}

/// `LEVEL WORD COUNT/TOTAL` of each reason.
std::string reasonsOf(run::Verdict const& verdict) {
    std::string text;
    for (run::VerdictReason const& reason : verdict.reasons) {
        text += fmt::format("{}{} {} {}/{}", text.empty() ? "" : ", ", toString(reason.level),
                            reason.word, reason.count, reason.total);
    }
    return text;
}

TEST(Verdict, TellsWhatWasAnsweredAndIsStillNotGood) {
    struct {
        std::vector<std::string> faults;
        pipeline::ReplayOptions options;
        char const* reasons;
    } const table[] = {
        {{}, pressing({1000, 2000}), "good answered 2/2"},
        {{"policy-throws@0s"},
         pressing({1000, 2000, 3000}),
         "doubtful longLag 1/3, doubtful timedOut 1/3, good answered 3/3, good injectedFaults 1/1"},
        {{"flush@1.1s"},
         pressing({1000}),
         "bad flushed 1/1, good answered 1/1, good injectedFaults 1/1"},
        {{"wrong-clock"},
         pressing({1000}),
         "bad wrongClock 1/1, bad timedOut 1/1, good answered 1/1, good injectedFaults 60/60"},
    };
    for (auto const& [faults, options, reasons] : table) {
        run::ReplayResult const result = run::replay(steadyRecording(), failing(options, faults));
        EXPECT_EQ(reasonsOf(verdictOf(result)), reasons);
    }
}

TEST(Verdict, HoldsAReplayAgainstItsDevice) {
    run::ReplayResult result;
    result.summary.captures = result.summary.answeredCaptures = 1;
    result.summary.frames = 2;
    result.device = {9, 2, 2, 0, {}};
    EXPECT_EQ(reasonsOf(verdictOf(result)), "good sameDecisions 2/2, good answered 1/1");
    // A device's recording may end while the processor has something.
    result.summary.unanswered = 1;
    result.ledger.handedOut = 5;
    result.ledger.withProcessor = 1;
    EXPECT_EQ(reasonsOf(verdictOf(result)),
              "doubtful unanswered 1/2, doubtful unbalancedLedger 1/5, good sameDecisions 2/2");
    result.device = {9, 2, 1, 3, {"at 1 s: F7 for F8"}};
    run::Verdict const verdict = verdictOf(result);
    EXPECT_EQ(reasonsOf(verdict).substr(0, 23), "bad otherDecisions 3/9,");
    EXPECT_EQ(verdict.reasons.front().details, result.device->differences);
}

TEST(Faults, DoNotExcuseOtherFailures) {
    pipeline::ReplayOptions options = failing(pressing({1000, 2000}), {"policy-throws@2s"});
    options.policy = {pipeline::PolicyKind::Plugin, SELECTOR_FOLDER "/selector_thrower.so"};
    run::ReplayResult const result = run::replay(steadyRecording(), options);
    EXPECT_FALSE(result.isClean());
    EXPECT_EQ(strikesOf(result), 1U);
    for (std::string const& failure : result.failures) {
        EXPECT_NE(failure.find("exception: no idea"), std::string::npos) << failure;
    }
}

using FaultCli = CliTest;

TEST_F(FaultCli, TellsOfFaultsInEveryResult) {
    std::string const file = steadyFile(path("recording.csv"), 20);
    Outcome const done = zsl(
        plus({"replay", file, "--fault", "lost@1s", "--fault", "lost@1.2s", "--fault", "late:0",
              "--seed", "9", "--trace", path("trace"), "--json", path("json")},
             report::reportPage() != nullptr ? Arguments{"--report", path("page")} : Arguments()));
    EXPECT_EQ(done.status, 0) << done.err;
    EXPECT_THAT(done.out, HasSubstr("\nFaults     late 0, lost 2 (random seed 9)\n"));
    auto const faults = nlohmann::json::parse(contentOf(path("json"))).at("faults");
    EXPECT_EQ(faults.dump(),
              R"({"frames":[{"faults":["lost"],"frameNo":11},{"faults":["lost"],"frameNo":13}],)"
              R"("randomSeed":9,"rules":["lost@1s","lost@1.2s","late:0"],)"
              R"("strikes":{"late":0,"lost":2}})");
    auto const trace = nlohmann::json::parse(contentOf(path("trace")));
    EXPECT_EQ(trace.at("otherData").at("faults"), "late 0, lost 2 (random seed 9)");
    EXPECT_EQ(std::count_if(trace.at("traceEvents").begin(), trace.at("traceEvents").end(),
                            [](auto const& event) {
                                return event.contains("args") && event["args"].contains("isLost");
                            }),
              2);
    if (report::reportPage() != nullptr) {
        EXPECT_THAT(contentOf(path("page")), HasSubstr("\"strikes\":{\"late\":0,\"lost\":2}"));
    }
    EXPECT_THAT(zsl({"replay", file}).out, Not(HasSubstr("\nFaults")));
    expectRefused({"replay", file},
                  {{{"--seed", "2"}, "--seed: expected --fault as well"},
                   {{"--fault", "lost", "--seed", "-1"}, "expected a whole number from 0"},
                   {{"--fault", "lost@3s"}, "--fault 3s: after the recording's last frame"}});
}

}  // namespace
}  // namespace zebcam::tool
