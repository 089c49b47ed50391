#define ATRACE_TAG ATRACE_TAG_CAMERA
#include <cutils/trace.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <platform/VirtualClock.h>
#include <ulog/ULogger.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "log/Explainer.h"
#include "pipeline/Schedule.h"
#include "recording/RecordingGenerator.h"
#include "report/Reports.h"
#include "report/TraceTracks.h"
#include "run/ProcessorSections.h"
#include "tool/SteadyRecording.h"

namespace zebcam::tool {
namespace {

using Json = nlohmann::ordered_json;

using testing::Contains;
using testing::ElementsAre;

struct Slice {
    std::string name, parent;
    int64_t beginNs = 0;
    int64_t endNs = 0;
    Json args;
};

using TrackId = std::pair<int, int64_t>;

/// A trace as a viewer reads it. What breaks the rules of the format fails the test.
struct ReadTrace {
    explicit ReadTrace(std::string const& text) : root(Json::parse(text)) {
        for (Json const& event : root.at("traceEvents")) {
            read(event, event.at("ph").get<std::string>());
        }
        for (auto const& [track, stack] : open) {
            EXPECT_TRUE(stack.empty()) << "open at the end";
            EXPECT_EQ(names.count(track), 1U) << "track " << track.second << " has no name";
            EXPECT_EQ(processes.count(track.first), 1U) << track.first << " has no name";
        }
        for (auto& [id, marks] : flows) {
            std::stable_sort(marks.begin(), marks.end(), [](Json const& a, Json const& b) {
                return a.at("ns").get<int64_t>() < b.at("ns").get<int64_t>();
            });
            std::string phases;
            for (Json const& mark : marks) {
                phases += mark.at("ph").get<std::string>();
                EXPECT_EQ(mark.at("name"), marks.front().at("name"));
            }
            EXPECT_TRUE(phases == "sf" || phases == "stf") << phases;
        }
    }

    void read(Json const& event, std::string const& phase) {
        TrackId const track(event.at("pid"), event.value("tid", int64_t{0}));
        if (phase == "M") {
            if (event.at("name") == "thread_name") {
                EXPECT_TRUE(names.emplace(track, event.at("args").at("name")).second);
            } else if (event.at("name") == "process_name") {
                EXPECT_TRUE(processes.insert(track.first).second);
            }
            return;
        }
        EXPECT_GE(event.at("ts"), 0.0);
        int64_t const ns = START + std::llround(event.at("ts").get<double>() * 1000);
        auto& stack = open[track];
        auto& slicesHere = slices[track];
        if (phase == "B" || phase == "E") {
            EXPECT_LE(lastNs[track], ns) << event;
            lastNs[track] = ns;
        }
        if (phase == "B") {
            std::string const parent = stack.empty() ? "" : slicesHere[stack.back()].name;
            stack.push_back(slicesHere.size());
            slicesHere.push_back({event.at("name"), parent, ns, -1, event.at("args")});
        } else if (phase == "E") {
            ASSERT_FALSE(stack.empty()) << "an end too many";
            slicesHere[stack.back()].endNs = ns;
            stack.pop_back();
        } else if (phase == "C") {
            counters[event.at("name")].emplace_back(ns, event.at("args").at("frames"));
            open.erase(track);
        } else if (phase == "i") {
            EXPECT_EQ(event.at("s"), "t");
            Json instant = event;
            instant["ns"] = ns;
            instants.push_back(instant);
        } else {
            readFlow(event, ns, stack, slicesHere);
        }
    }

    void readFlow(Json mark, int64_t ns, std::vector<size_t> const& stack,
                  std::vector<Slice> const& slicesHere) {
        ASSERT_FALSE(stack.empty()) << "a flow outside of any slice: " << mark;
        EXPECT_EQ(mark.at("bp"), "e");
        EXPECT_LE(slicesHere[stack.back()].beginNs, ns);
        mark["ns"] = ns;
        mark["slice"] = slicesHere[stack.back()].name;
        flows[mark.at("id")].push_back(mark);
    }

    /// `capture 1 frame 0: > press > frame 11 > result of capture 1` for each flow.
    std::multiset<std::string> flowTexts() const {
        std::multiset<std::string> texts;
        for (auto const& [id, marks] : flows) {
            std::string text = marks.front().at("name").get<std::string>() + ":";
            for (Json const& mark : marks) {
                text += " > " + mark.at("slice").get<std::string>();
            }
            texts.insert(text);
        }
        return texts;
    }

    std::vector<Slice> slicesOn(std::string const& trackPrefix) const {
        std::vector<Slice> found;
        for (auto const& [track, name] : names) {
            if (name.starts_with(trackPrefix) && slices.count(track) > 0) {
                found.insert(found.end(), slices.at(track).begin(), slices.at(track).end());
            }
        }
        return found;
    }

    Json root;
    std::map<TrackId, std::string> names;
    std::set<int> processes;
    std::map<TrackId, std::vector<size_t>> open;
    std::map<TrackId, int64_t> lastNs;
    std::map<TrackId, std::vector<Slice>> slices;
    std::map<std::string, std::vector<std::pair<int64_t, int64_t>>> counters;
    std::map<int64_t, std::vector<Json>> flows;
    std::vector<Json> instants;
};

/// A replay with everything that a trace shows of it.
struct Traced {
    Traced(recording::Recording r, pipeline::ReplayOptions options) : recording(std::move(r)) {
        options.logLevel = NSCam::Utils::ULog::LOG_LEVEL_DEBUG;
        log::Explainer explainer;
        run::ReplayListener listener;
        listener.log = feeding(explainer);
        listener.occupancy = &occupancy;
        run::SectionRecorder sectionRecorder;
        result = run::replay(recording, options, listener);
        sections = sectionRecorder.finish();
        explanation = explainer.finish();
    }

    ReadTrace trace() const {
        std::ostringstream out;
        report::writeTrace({recording, result, &explanation, occupancy, sections}, out);
        return ReadTrace(out.str());
    }

    recording::Recording recording;
    run::ReplayResult result;
    log::Explanation explanation;
    std::vector<run::OccupancySample> occupancy;
    std::vector<run::ProcessorSection> sections;
};

struct TraceCase {
    char const* name;
    recording::Recording recording;
    pipeline::ReplayOptions options;
    bool locks = false;
    bool fillsRows = false;
};

std::vector<TraceCase> traceCases() {
    recording::GeneratorOptions generator;
    generator.frames = 160;
    generator.fps = 960;
    generator.startNs = START;
    recording::Recording const fast = recording::generate(generator);
    recording::Recording instantly = steadyRecording(40);
    for (recording::SensorFrame& frame : instantly.frames) {
        frame.exposureNs = frame.readoutNs = 0;
    }
    return {
        {"chosen after the press", steadyRecording(40), pressing({1000, 1040})},
        {"under way at the press", steadyRecording(40),
         with(pressing({929, 1000}), [](auto& o) { o.offsetMs = 130; })},
        {"frames of no length, results at once", instantly,
         with(pressing({1000}), [](auto& o) { o.deliveryDelayNs = o.reprocessDelayNs = 0; })},
        {"locks, time-outs and late captures", steadyRecording(40),
         with(pressing({500, 510, 3800}, 2),
              [](auto& o) {
                  o.policy = {pipeline::PolicyKind::Plugin, SELECTOR_FOLDER "/selector_hoarder.so"};
              }),
         true},
        {"more frames on their way than rows", fast,
         with(pressing({}), [](auto& o) { o.captures = 3, o.deliveryDelayNs = 90 * MS; }), false,
         true},
    };
}

void checkSensor(Traced const& run, ReadTrace const& trace) {
    auto const times = pipeline::frameTimes(run.recording, run.result.options);
    size_t tracks = 0;
    for (auto const& [track, name] : trace.names) {
        tracks += name.find("frames") != std::string::npos ? 1 : 0;
    }
    EXPECT_LE(tracks, 65U);
    auto slices = trace.slicesOn("frames ");
    auto const cut = trace.slicesOn("more frames");
    slices.insert(slices.end(), cut.begin(), cut.end());
    EXPECT_EQ(tracks == 65, !cut.empty());
    ASSERT_EQ(slices.size(), run.recording.frames.size());
    std::set<uint32_t> seen;
    for (Slice const& slice : slices) {
        auto const frameNo = slice.args.at("frameNo").get<uint32_t>();
        size_t const i = frameNo - run.recording.frames.front().frameNo;
        recording::SensorFrame const& frame = run.recording.frames.at(i);
        EXPECT_TRUE(seen.insert(frameNo).second);
        EXPECT_EQ(slice.beginNs, frame.timestampNs);
        bool const isCut = slice.args.contains("isCutShort");
        EXPECT_TRUE(isCut ? slice.endNs < times[i].arrivalNs : slice.endNs == times[i].arrivalNs);
        EXPECT_EQ(slice.args.at("arrivalNs"), times[i].arrivalNs);
        EXPECT_EQ(slice.args.at("afState"), frame.afState ? Json(*frame.afState) : Json());
    }
}

/// The flows go through all that the replay knows of.
std::multiset<std::string> expectedFlows(run::ReplayResult const& result) {
    std::multiset<std::string> texts;
    for (pipeline::CaptureRecord const& capture : result.captures) {
        for (size_t i = 0; i < capture.frames.size(); ++i) {
            auto const& historyFrame = capture.frames[i].historyFrame;
            texts.insert(fmt::format(
                "capture {0} frame {1}: > press{2} > result of capture {0}", capture.requestNo, i,
                historyFrame ? fmt::format(" > frame {}", *historyFrame) : ""));
        }
    }
    return texts;
}

void checkCounters(Traced const& run, ReadTrace const& trace) {
    for (auto const& [name, values] : trace.counters) {
        for (size_t i = 0; i < values.size(); ++i) {
            EXPECT_GE(values[i].second, 0) << name;
            EXPECT_GE(values[i].first, values[i - std::min<size_t>(i, 1)].first) << name;
        }
    }
    /// What a counter showed at an instant: all at it, and what it had before.
    auto const shown = [&](char const* name, int64_t ns) {
        auto const& values = trace.counters.at(name);
        auto const at = [](auto const& value) { return value.first; };
        auto first = std::ranges::lower_bound(values, ns, {}, at);
        auto const end = std::ranges::upper_bound(values, ns, {}, at);
        first -= first != values.begin() ? 1 : 0;
        std::vector<int64_t> found;
        std::transform(first, end, std::back_inserter(found),
                       [](auto const& value) { return value.second; });
        return found;
    };
    for (pipeline::CaptureRecord const& capture : run.result.captures) {
        for (pipeline::TryRecord const& attempt : capture.tries) {
            EXPECT_THAT(shown("history", attempt.timeNs), Contains(attempt.historyFrames.size()));
            EXPECT_THAT(shown("locked", attempt.timeNs), Contains(attempt.lockedFrames.size()));
        }
    }
}

TEST(TraceExport, KeepsTheRulesOfTheFormat) {
    for (TraceCase const& c : traceCases()) {
        SCOPED_TRACE(c.name);
        Traced const run(c.recording, c.options);
        ReadTrace const trace = run.trace();
        EXPECT_EQ(trace.root.at("otherData").at("bootTimeOfZeroNs"), START);
        checkSensor(run, trace);
        checkCounters(run, trace);
        auto const sections = trace.slicesOn("sections of thread 1");
        EXPECT_EQ(sections.size(), run.sections.size());
        for (Slice const& slice : sections) {
            EXPECT_GE(slice.beginNs, slice.args.at("bootTimeNs"));
            EXPECT_EQ(slice.endNs - slice.beginNs, slice.args.at("realDurationNs"));
        }
        EXPECT_EQ(trace.counters.at("locked").size() > 1, c.locks);
        EXPECT_EQ(!trace.slicesOn("more frames").empty(), c.fillsRows);
        EXPECT_EQ(trace.flowTexts(), expectedFlows(run.result));
    }
}

TEST(TraceExport, DrawsTogetherWhatIsFarFromAnyCapture) {
    recording::Recording recording = steadyRecording(6'000);
    recording.frames[3'000].hasError = true;
    Traced const run(recording, pressing({50'000, 450'000}, 2));
    ReadTrace const trace = run.trace();
    EXPECT_EQ(trace.flowTexts(), expectedFlows(run.result));
    checkCounters(run, trace);
    std::set<std::string> names;
    size_t frames = 0;
    for (Slice const& slice : trace.slicesOn("frames ")) {
        names.insert(slice.name);
        frames += slice.args.value("frames", size_t{1});
    }
    EXPECT_EQ(frames, 6'000U);
    EXPECT_LT(names.size(), 100U);
    EXPECT_THAT(names, testing::IsSupersetOf({"frame 3001", "frames 1 to 491"}));
    for (pipeline::CaptureRecord const& capture : run.result.captures) {
        for (uint32_t const frameNo : capture.tries.back().historyFrames) {
            EXPECT_THAT(names, Contains(fmt::format("frame {}", frameNo)));
        }
    }
    EXPECT_LT(trace.counters.at("in flight").size(), 200U);
    EXPECT_LT(trace.slicesOn("sections").size(), 400U);
}

TEST(TraceExport, ShowsThePhasesOfACapture) {
    pipeline::ReplayOptions options = pressing({1000, 1040}, 2);
    options.flushesNs = {1150 * MS};
    ReadTrace const trace = Traced(steadyRecording(40), options).trace();
    std::vector<std::string> texts;
    auto const add = [&](std::string const& name, int64_t beginNs, int64_t endNs) {
        texts.push_back(
            fmt::format("{} {}-{}", name, (beginNs - START) / MS, (endNs - START) / MS));
    };
    for (char const* track : {"captures 1", "captures 2", "results"}) {
        for (Slice const& slice : trace.slicesOn(track)) {
            add(slice.parent + "/" + slice.name, slice.beginNs, slice.endNs);
        }
    }
    EXPECT_THAT(texts,
                ElementsAre("/capture 1 1000-1250", "capture 1/waiting 1000-1130",
                            "waiting/press 1000-1005", "capture 1/waiting 1130-1150",
                            "/capture 2 1040-1250", "capture 2/waiting 1040-1150",
                            "waiting/press 1040-1045", "/reprocessing capture 1 1130-1230",
                            "/result of capture 1 1230-1235", "/exposing capture 1 1150-1250",
                            "/result of capture 1 1250-1255", "/exposing capture 2 1150-1250",
                            "/result of capture 2 1250-1255"));
    texts.clear();
    for (Json const& instant : trace.instants) {
        if (instant.at("cat") == "capture") {
            add(instant.at("name"), instant.at("ns"), instant.at("ns"));
        }
    }
    EXPECT_THAT(texts,
                ElementsAre("early shutter 1000-1000", "built 1130-1130", "flushed 1150-1150",
                            "early shutter 1040-1040", "flushed 1150-1150"));
}

TEST(TraceExport, WaitsToTheEndForWhatIsNeverAnswered) {
    pipeline::CaptureRecord capture;
    capture.pressNs = 100;
    capture.frames.resize(2);
    capture.frames[0].answeredNs = 130;
    report::CaptureShape const shape = report::shapeOf(capture, 0, 5, 1000);
    ASSERT_EQ(shape.waits.size(), 2U);
    EXPECT_EQ(shape.waits[1].beginNs, 130);
    EXPECT_EQ(shape.waits[1].endNs, 1000);
    EXPECT_EQ(shape.waits[1].frames, 1U);
    EXPECT_EQ(shape.pressEndNs, 105);
    EXPECT_EQ(shape.endNs, 1000);
}

TEST(TraceExport, TellsWhyFramesWereRefused) {
    recording::Recording recording = steadyRecording(40);
    recording.frames[10].aeStable = 0;
    recording.frames[11].afState.reset();
    pipeline::ReplayOptions options;
    options.pressesNs = {1000 * MS - 400'000, 1040 * MS};  // ages are whole ms
    Traced const run(recording, options);
    std::set<std::string> found;
    for (Json const& instant : run.trace().instants) {
        if (instant.at("cat") == "refusal") {
            int64_t const ms = (instant.at("ns").get<int64_t>() - START) / MS;
            found.insert(fmt::format("{} at {}", instant.at("name").get<std::string>(), ms));
        }
    }
    EXPECT_THAT(found, testing::IsSupersetOf({"frame 10 refused: time at 1030",
                                              "frame 11 refused: exposure at 1130",
                                              "frame 12 refused: focus at 1230"}));
}

TEST(SectionRecorder, HearsTheSectionsOfEachThread) {
    platform::VirtualClock clock({.bootTimeNs = 7});
    run::SectionRecorder recorder;
    ATRACE_END();  // opened before anybody listened
    ATRACE_BEGIN("outer");
    clock.advance(1);
    std::thread([] {
        ATRACE_BEGIN("elsewhere");
        ATRACE_END();
    }).join();
    ATRACE_BEGIN("cut off");
    std::this_thread::sleep_for(std::chrono::microseconds(1));
    auto const sections = recorder.finish();
    ATRACE_END();
    EXPECT_EQ(atrace_get_enabled_tags(), 0U);

    std::vector<std::string> texts;
    for (run::ProcessorSection const& section : sections) {
        texts.push_back(fmt::format("{} thread {} depth {} at {}", section.name, section.thread,
                                    section.depth, section.bootTimeNs));
        EXPECT_LE(section.realDurationNs, sections.front().realDurationNs);
    }
    EXPECT_THAT(texts, ElementsAre("outer thread 0 depth 0 at 7", "elsewhere thread 1 depth 0 at 8",
                                   "cut off thread 0 depth 1 at 8"));
    EXPECT_GE(sections.back().realDurationNs, 1000) << "the virtual clock was read";
}

}  // namespace
}  // namespace zebcam::tool
