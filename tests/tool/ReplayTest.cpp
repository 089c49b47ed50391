#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ulog/ULogger.h>

#include <sstream>
#include <string>

#include "log/Explainer.h"
#include "log/Logcat.h"
#include "pipeline/Schedule.h"
#include "tool/SteadyRecording.h"

namespace zebcam::tool {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Not;

struct ReplayCase {
    char const* name;
    pipeline::ReplayOptions options;
    char const* expected;
    void (*change)(recording::Recording&) = nullptr;
};

std::vector<ReplayCase> replayCases() {
    auto const cshot = [](pipeline::ReplayOptions& o) {
        o.policy.kind = pipeline::PolicyKind::CShot;
    };
    auto const multiframe = [](pipeline::ReplayOptions& o) {
        o.policy.kind = pipeline::PolicyKind::Multiframe;
        o.timeoutMs = 300;
    };
    // No frame is late enough for this offset, so that captures wait for their time-out.
    auto const hopeless = [](pipeline::ReplayOptions& o) { o.offsetMs = -20'000; };
    auto const lastModeOnly = [](recording::Recording& r) {
        for (size_t i = 11; i < r.frames.size(); ++i) {
            r.frames[i].sensorMode = 1;
        }
    };
    return {
        {"first frame that begins after the press", pressing({1000}), "F11 0 130 waited"},
        {"offset reaches back", with(pressing({1000}), [](auto& o) { o.offsetMs = 250; }),
         "F9 -200 0 at once"},
        {"arrival comes before a press at the same instant",
         with(pressing({930}), [](auto& o) { o.offsetMs = 130; }), "F9 -130 0 at once"},
        {"a press just before the arrival waits for it",
         with(pressing({929}), [](auto& o) { o.offsetMs = 130; }), "F9 -129 1 waited"},
        {"delivery delay", with(pressing({1000}), [](auto& o) { o.deliveryDelayNs = 0; }),
         "F11 0 30 waited"},
        {"presses in any order, the earlier one is served first", pressing({1050, 1000}),
         "F11 0 130 waited, F12 50 180 waited"},
        {"continuous shot takes the oldest of a short history",
         with(pressing({1000}, 2), [&](auto& o) { cshot(o), o.history = 3; }),
         "F7 -400 0 at once, F8 -300 0 at once"},
        {"multi-frame ends its run at the press", with(pressing({1000}, 3), multiframe),
         "F7 -400 0 at once, F8 -300 0 at once, F9 -200 0 at once"},
        {"multi-frame time-out at 330 ms, with fewer frames than asked for",
         with(pressing({1000}, 3), [&](auto& o) { multiframe(o), o.history = 2; }),
         "F12 100 330 timed out, F13 200 330 timed out, 330 timed out"},
        {"age 3000 is no time-out", with(pressing({1030}), hopeless), "F34 2270 3100 timed out"},
        {"age 3030 is one", with(pressing({1000}), hopeless), "F33 2200 3030 timed out"},
        {"the frames of a capture come one by one", pressing({5500}, 2),
         "F56 0 130 waited, F57 100 230 waited"},
        {"one try that chooses a frame and lets the other time out",
         with(pressing({1000}, 2), [](auto& o) { o.offsetMs = -2900; }),
         "F40 2900 3030 waited, F33 2200 3030 timed out"},
        {"flush", with(pressing({1000}, 2), [](auto& o) { o.flushesNs = {1150 * MS}; }),
         "F11 0 130 waited, 150 flushed"},
        {"flush at the end of the recording", pressing({5850}, 2),
         "F60 50 180 waited, 180 flushed"},
        {"unusable images are passed over", pressing({1000}), "F13 200 330 waited",
         [](recording::Recording& r) { r.frames[10].hasError = r.frames[11].hasError = true; }},
        {"sensors that are to be synchronised",
         with(pressing({1000}), [](auto& o) { o.frameSync = true; }), "F12 100 230 waited",
         [](recording::Recording& r) { r.frames[10].frameSync = 1; }},
        {"mode of the sensor at the press", pressing({1100}), "F12 0 130 waited", lastModeOnly},
        {"mode that the sensor has left", pressing({1050}), "F34 2250 3080 timed out",
         lastModeOnly},
    };
}

TEST(Replay, ServesCaptures) {
    for (ReplayCase const& c : replayCases()) {
        SCOPED_TRACE(c.name);
        recording::Recording recording = steadyRecording();
        if (c.change != nullptr) {
            c.change(recording);
        }
        run::ReplayResult const result = run::replay(recording, c.options);
        EXPECT_EQ(outcomesOf(result), c.expected);
        EXPECT_TRUE(result.isClean());
    }
}

TEST(Replay, ShowsWhatEachTryWasOffered) {
    pipeline::ReplayOptions options = pressing({1000, 1000});
    options.history = 3;
    std::vector<run::OccupancySample> samples;
    run::ReplayListener listener;
    listener.occupancy = &samples;
    run::ReplayResult const result = run::replay(steadyRecording(), options, listener);
    for (size_t i = 1; i < samples.size(); ++i) {
        EXPECT_LT(samples[i - 1].bootTimeNs, samples[i].bootTimeNs);
    }
    EXPECT_EQ(samples.front().occupancy, (pipeline::Occupancy{0, 3, 0})) << "after all at START";
    std::vector<pipeline::TryRecord> const& tries = result.captures[1].tries;
    ASSERT_EQ(tries.size(), 4U);
    EXPECT_THAT(tries[0].historyFrames, ElementsAre(7, 8, 9));
    EXPECT_THAT(tries[0].inFlightFrames, ElementsAre(10, 11, 12, 13));
    // Frame 11 goes to the first capture, so that the second is offered less in the same walk.
    EXPECT_THAT(result.captures[0].tries.back().historyFrames, ElementsAre(9, 10, 11));
    EXPECT_THAT(tries[2].historyFrames, ElementsAre(9, 10));
    EXPECT_THAT(tries[3].historyFrames, ElementsAre(9, 10, 12));
    EXPECT_THAT(tries[3].builtFrames, ElementsAre(0));
}

TEST(Replay, BooksTheAgesThatTheProcessorDecidesBy) {
    pipeline::ReplayOptions options = pressing({});
    // By the ns it is 2999 ms at frame 40's arrival; the processor, which counts in us, says 3000.
    options.pressesNs = {1030 * MS + 500, 1030 * MS + 1'000};
    options.offsetMs = -20'000;
    options.logLevel = NSCam::Utils::ULog::LOG_LEVEL_DEBUG;
    log::Explainer explainer;
    run::ReplayListener listener;
    listener.log = feeding(explainer);
    run::ReplayResult const result = run::replay(steadyRecording(), options, listener);
    log::Explanation const told = explainer.finish();
    std::vector<int64_t> booked[2];
    std::vector<int64_t> decided[2];
    for (size_t capture = 0; capture < 2; ++capture) {
        for (pipeline::TryRecord const& attempt : result.captures[capture].tries) {
            booked[capture].push_back(attempt.ageMs);
        }
        for (log::TryExplanation const& attempt : told.captures[capture].tries) {
            decided[capture].push_back(*attempt.ageMs);
        }
        EXPECT_EQ(booked[capture], decided[capture]);
    }
    EXPECT_THAT(booked[0], Contains(3000));
    EXPECT_THAT(booked[1], Contains(2999));
}

TEST(Replay, KeepsTriesThatCameToTheSameOnce) {
    // Each press has the processor try all that wait; nothing else happens in between. Ten frames
    // arrive before the time-out, so that some are served and some time out.
    std::vector<int64_t> presses;
    for (int64_t ms = 1'035; ms < 1'050; ++ms) {
        presses.push_back(ms);
    }
    pipeline::ReplayOptions options = pressing(presses);
    options.logLevel = NSCam::Utils::ULog::LOG_LEVEL_DEBUG;
    for (bool const folds : {true, false}) {
        log::Explainer explainer;
        log::Explainer whole;
        run::ReplayListener listener;
        listener.log = [&](int64_t timeNs, host::LogLine const& line) {
            feeding(explainer)(timeNs, line);
            feeding(whole)(timeNs, line);
        };
        listener.isRepeat = [&](uint32_t number, bool) {
            return folds && explainer.foldRepeat(number);
        };
        run::ReplayResult const result = run::replay(steadyRecording(20, 300), options, listener);
        EXPECT_GT(result.summary.waited, 0U);
        EXPECT_GT(result.summary.timedOut, 0U);
        log::Explanation const folded = explainer.finish();
        log::Explanation const all = whole.finish();
        for (size_t i = 0; i < presses.size(); ++i) {
            pipeline::CaptureRecord const& capture = result.captures[i];
            size_t const made = all.captures[i].tries.size();
            EXPECT_EQ(capture.tryCount(), made);
            EXPECT_EQ(folded.captures[i].tryCount(), made);
            EXPECT_EQ(folded.captures[i].tries.size(), capture.tries.size());
            size_t const last = *capture.frames[0].tryIndex;
            EXPECT_EQ(last, capture.tries.size() - 1);
            EXPECT_THAT(capture.tries[last].builtFrames, ElementsAre(0));
            EXPECT_EQ(folded.captures[i].tries[last].ageMs, all.captures[i].tries.back().ageMs);
        }
        pipeline::TryRecord const& second = result.captures[0].tries[1];
        EXPECT_EQ(second.repeats, folds ? 13U : 0U);
        EXPECT_EQ(second.lastRepeatNs.has_value(), folds);
        EXPECT_EQ(second.lastRepeatNs.value_or(START + 1'049 * MS), START + 1'049 * MS);
    }
}

TEST(Replay, KeepsAsManyTriesThatDifferAsMemoryHasRoomFor) {
    pipeline::CaptureBook book(pipeline::CaptureBook::Tries::All);
    size_t const capture = book.open({}, 1);
    auto const tryWith = [&](uint32_t frameNo) {
        pipeline::TryRecord offer;
        offer.historyFrames.assign(60'000, frameNo);
        book.beginTry(capture, std::move(offer));
        book.endTry(0);
        return book.repeatOf(capture);
    };
    using enum pipeline::CaptureBook::Repeat;
    for (uint32_t frameNo = 0; frameNo < 4; ++frameNo) {
        EXPECT_EQ(tryWith(frameNo), None) << frameNo;
    }
    for (uint32_t frameNo = 4; frameNo < 6; ++frameNo) {
        EXPECT_EQ(tryWith(frameNo), Unlike) << frameNo;
        book.foldRepeat(capture, Unlike);
    }
    EXPECT_EQ(tryWith(3), Alike);
    EXPECT_EQ(book.unlikeRepeats(), 2U);
    pipeline::CaptureRecord const record = book.records().at(0);
    EXPECT_EQ(record.tryCount(), 7U);
    EXPECT_EQ(record.tries.size(), 5U);
}

TEST(Replay, KeepsThePluginsFramesAccountedFor) {
    struct {
        char const* plugin;
        char const* expected;
        size_t lockedAtTheEnd;
        std::vector<std::string> failures;
    } const table[] = {
        // On its last try it locks frame 33 and leaves 34 for the time-out.
        {"hoarder", "F34 2300 3030 timed out", 31, {}},
        {"cloner", "F9 -200 0 at once, F33 2200 3030 timed out", 0, {}},
        // Asked at the press and at each of the frames after it until the time-out.
        {"thrower",
         "F33 2200 3030 timed out",
         0,
         {"32 times, from 1.000 to 4.030 s: policy: exception: no idea"}},
    };
    for (auto const& [plugin, expected, lockedAtTheEnd, failures] : table) {
        SCOPED_TRACE(plugin);
        pipeline::ReplayOptions options = pressing({1000}, plugin == std::string("cloner") ? 2 : 1);
        options.policy = {pipeline::PolicyKind::Plugin,
                          SELECTOR_FOLDER "/selector_" + std::string(plugin) + ".so"};
        run::ReplayResult const result = run::replay(steadyRecording(), options);
        EXPECT_EQ(outcomesOf(result), expected);
        EXPECT_EQ(result.captures[0].tries.back().lockedFrames.size(), lockedAtTheEnd);
        EXPECT_EQ(result.failures, failures);
        EXPECT_TRUE(result.ledger.balances());
    }
}

TEST(Replay, AssumesWhatTheFileDoesNotTell) {
    std::stringstream csv("Timestamp[nanosec]\n", std::ios::in | std::ios::out | std::ios::ate);
    for (recording::SensorFrame const& frame : steadyRecording().frames) {
        csv << frame.timestampNs << '\n';
    }
    pipeline::ReplayOptions options = pressing({1000});
    options.frameSync = true;
    run::ReplayResult const result =
        run::replay(recording::readRecording(csv, "list.csv"), options);
    EXPECT_EQ(result.captures[0].frames[0].historyFrame, 11U);
    EXPECT_EQ(result.errorLines, 0U) << "the processor missed a tag";
}

TEST(Replay, TellsWhatTheDebuggeesSay) {
    pipeline::ReplayOptions options = pressing({1000});
    options.dumpsNs = {1100 * MS, 1150 * MS};
    run::ReplayResult const result = run::replay(steadyRecording(), options);
    ASSERT_EQ(result.dumps.size(), 2U);
    EXPECT_THAT(result.dumps[0].lines, Contains("  requestNo:1"));
    EXPECT_THAT(result.dumps[1].lines, Not(Contains("  requestNo:1")));
}

TEST(Replay, SpreadsCapturesEvenlyAndMeasuresLag) {
    pipeline::ReplayOptions options;
    options.captures = 4;
    run::ReplayResult const result = run::replay(steadyRecording(41), options);
    // Presses at 500, 1500, 2500 and 3500 ms, each the start of a frame.
    EXPECT_EQ(result.captures[0].pressNs, START + 500 * MS);
    EXPECT_EQ(result.captures[3].pressNs, START + 3500 * MS);
    options.captures = 3;
    EXPECT_EQ(pipeline::pressTimes(steadyRecording(2), options),
              (std::vector<int64_t>{16'666'666, 50'000'000, 83'333'333}));
    EXPECT_EQ(result.summary.lag.max, 0);
    base::Spread const spread = base::spreadOf({40, 10, -20, 30});
    EXPECT_EQ((std::vector{spread.min, spread.median, spread.p95, spread.max}),
              (std::vector<int64_t>{-20, 20, 40, 40}));
}

}  // namespace
}  // namespace zebcam::tool
