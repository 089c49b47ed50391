#include <gtest/gtest.h>
#include <metadata/MetadataTags.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "recording/RecordingGenerator.h"
#include "report/Page.h"
#include "report/Reports.h"

namespace zebcam::tool {
namespace {

using Json = nlohmann::ordered_json;

using Paths = std::set<std::string>;

std::string join(std::string const& path, std::string const& key) {
    return path.empty() ? key : path + "." + key;
}

/// The paths of all fields, lists looked through; keys that a user named as the page has them.
void addPaths(Json const& json, std::string const& path, Paths& paths) {
    for (auto const& [key, value] : json.items()) {
        if (json.is_array()) {
            addPaths(value, path, paths);
        } else if (json.is_object()) {
            std::string const name = path.ends_with("properties") || path.ends_with("policyOptions")
                                         ? "KEY"
                                     : path.ends_with("strikes") ? "KIND"
                                     : path.ends_with(".fields") ? "FIELD"
                                                                 : key;
            paths.insert(join(path, name));
            addPaths(value, join(path, name), paths);
        }
    }
}

/// What docs/json.md lists, by heading: fields and the heading of what is below each.
class Page {
public:
    Page() {
        std::ifstream file(std::filesystem::path(ZSL_ROOT) / "docs/json.md");
        std::regex const field("`([^`]+)`");
        std::regex const link(R"(\(#([a-z]+)\))");
        std::string heading;
        for (std::string line; std::getline(file, line);) {
            heading = line.starts_with("## ") ? line.substr(3) : heading;
            std::string const cell =
                line.starts_with("| `") ? line.substr(0, line.find(" | ")) : "";
            std::smatch part;
            std::string const below = std::regex_search(line, part, link) ? part[1].str() : "";
            for (std::sregex_iterator i(cell.begin(), cell.end(), field), end; i != end; ++i) {
                mFields[heading].emplace_back(
                    std::regex_replace((*i)[1].str(), std::regex(R"(\[\])"), ""), below);
            }
        }
    }

    void addPaths(std::string const& heading, std::string const& path, Paths& paths) const {
        for (auto const& [field, below] : mFields.at(heading)) {
            for (size_t end = field.find('.'); end != std::string::npos;
                 end = field.find('.', end + 1)) {
                paths.insert(join(path, field.substr(0, end)));
            }
            paths.insert(join(path, field));
            if (!below.empty()) {
                addPaths(below, join(path, field), paths);
            }
        }
    }

private:
    std::map<std::string, std::vector<std::pair<std::string, std::string>>> mFields;
};

/// An explanation, captures and results with at least one of everything that can be listed.

log::Explanation fullExplanation() {
    log::TryExplanation attempt;
    attempt.ageMs = 30;
    attempt.wanted = {{}};
    attempt.candidates.resize(3);
    attempt.candidates[0].criterion = log::Criterion::Time;
    attempt.candidates[0].wantedNumber = attempt.candidates[0].foundNumber = 5;
    attempt.candidates[1].criterion = log::Criterion::Exposure;
    attempt.candidates[1].wantedNumber = attempt.candidates[1].foundNumber = 1;
    attempt.candidates[2].criterion = log::Criterion::SensorMode;
    attempt.candidates[2].wanted = attempt.candidates[2].found = "[0] = 3";
    attempt.served = {{0, 7, log::Source::TimedOut}};
    attempt.parked = {{1, 8}};
    attempt.orders = {{}};
    attempt.locked = {{"Hoarder", {9}}};
    log::CaptureExplanation capture;
    capture.requestNo = 1;
    capture.tries = {attempt};
    return {{capture}, {{}}, {{}}, {}, {}};
}

pipeline::ReplayOptions fullOptions() {
    pipeline::ReplayOptions options;
    options.properties = {{"a.b", "1"}};
    options.policyParameters = {{"c", "2"}};
    options.faults.rules = {{pipeline::FaultKind::Late, 0.5, {}}};
    return options;
}

pipeline::FaultTally const kTally{1, {{pipeline::FaultKind::Late, 2}}};

run::ReplayResult fullReplay() {
    pipeline::CaptureRecord capture;
    capture.requestNo = 1;
    capture.sensorModes = {{0, 3}};
    capture.frames.resize(1);
    capture.frames[0].chosen.emplace().picture.emplace();
    capture.tries.resize(1);
    run::ReplayResult result;
    result.options = fullOptions();
    result.captures = {capture};
    result.unsettled = {{}};
    result.dumps = {{}};
    result.faults = kTally;
    result.reported.resize(1);
    result.reported[0].faults.kinds.set();
    result.limits = {{}};
    result.device.emplace();
    result.facts.dataColumns = {{}};
    result.facts.video.emplace();
    return result;
}

run::LiveResult fullLive() {
    run::LiveResult result;
    result.options.replay = fullOptions();
    result.options.recordPath = "a.zslrec";
    result.recorder.emplace().end = NSCam::v3::pipeline::model::ZslRecordingEnd::MEMORY_FULL;
    result.unsettled = {{}};
    result.faults = kTally;
    result.log.emplace();
    return result;
}

run::LiveResult fullCamera() {
    run::LiveResult result = fullLive();
    result.camera.emplace();
    result.captures = fullReplay().captures;
    return result;
}

TEST(Json, HasTheFieldsThatItsPageLists) {
    log::Explanation const explanation = fullExplanation();
    recording::GeneratorOptions const generator;
    recording::Recording recording = recording::generate(generator);
    recording.dataColumns = {{}};
    recording.video.emplace();
    compare::ComparisonRow row;
    row.options = fullOptions();
    row.numbers.emplace();
    row.ownRefusals = {{"softness", 1}};
    row.video.emplace();
    compare::Comparison comparison;
    comparison.limits = {compare::Limit("frames==0")};
    comparison.rows = {row, {}};
    comparison.totals.rows = {row};
    comparison.rankings = {{&compare::fieldOf("waited"), {{}}}};
    comparison.since.emplace().changes = {{.field = &compare::fieldOf("waited")}};
    std::map<std::string, Json> const documents = {
        {"replay", report::toJson({}, fullReplay(), &explanation)},
        {"live", report::toJson(fullLive(), &recording)},
        {"camera", report::toJson(fullCamera(), nullptr)},
        {"compare", report::toJson(comparison)},
        {"explain", report::toJson(explanation)},
        {"generate", report::toJson(generator, recording)}};
    Page const page;
    for (auto const& [command, document] : documents) {
        SCOPED_TRACE(command);
        EXPECT_EQ(document.at("format"), 2);
        EXPECT_EQ(document.at("command"), command);
        Paths listed;
        page.addPaths("Every document", "", listed);
        page.addPaths("zsl " + command, "", listed);
        Paths found;
        addPaths(document, "", found);
        for (std::string const& path : found) {
            EXPECT_EQ(listed.erase(path), 1U) << path << " is not on the page";
        }
        // Null there, as the page says, and so without what is below.
        std::erase_if(listed, [&command = command](std::string const& path) {
            return (command == "camera" && path.starts_with("captures.tries.explanation.")) ||
                   path.starts_with("summary.distance.") || path.starts_with("summary.chosen.") ||
                   path.starts_with("rows.ledger.unsettled.") ||
                   path.starts_with("totals.rows.ledger.unsettled.");
        });
        EXPECT_EQ(listed, Paths{}) << "on the page only";
    }
}

/// Each value at its own place, in the order of the page.
TEST(Json, HasTheNumbersOfItsParts) {
    run::ReplayResult result = fullReplay();
    result.path = "a.csv";
    result.firstTimestampNs = 3;
    result.facts = {11,
                    12,
                    13.5,
                    14,
                    15,
                    16,
                    17,
                    18,
                    19,
                    {21, 22, 23, 24, 25, 26, 27},
                    28,
                    29,
                    {recording::Column::Exposure, recording::Column::AfMode},
                    {{"x", 30}},
                    {{"v.mp4", 122, 123, 90, 121, recording::PictureMatch::Start, 124}}};
    result.options.policy.kind = pipeline::PolicyKind::Multiframe;
    result.options.timeoutMs = 31;
    result.options.history = 32;
    result.options.deliveryDelayNs = 33;
    result.offsetMs = -34;
    result.options.input.fromNs = 38;
    result.options.pressesNs = {35, 36};
    result.options.pressBootTimesNs = {39};
    result.options.flushesNs = {37};
    pipeline::FrameOutcome& frame = result.captures[0].frames[0];
    frame = {pipeline::Served::TimedOut, 41, 42, 43, 44, 45, 46};
    frame.chosen.emplace().exposureNs = 91;
    frame.chosen->iso = 92;
    frame.chosen->focusDistance = 93.5F;
    frame.chosen->afState = NSCam::AF_STATE_FOCUSED_LOCKED;
    frame.chosen->lensState = 94;
    frame.chosen->videoFrame = 111;
    frame.chosen->picture = {112.5F, 113.5F, 114.5F, 0.5F};
    frame.sharpnessShare = 0.25;
    frame.pictureFile = "a.jpg";
    result.captures[0].tries[0] = {47, 48, true, {49}, {50, 51}, {52}, {0}, {}, 53, 54};
    result.captures[0].pressNs = 40;
    result.summary = {51, 52, 53, 54, 55, 56, 57, 58, 59, {1, 61, 62, 63, 64}, {0, 0, 0, 0, 0}};
    result.summary.focusSettled = {95, 96};
    result.summary.exposureSettled = {97, 98};
    result.summary.iso = {1, 99, 100, 101, 102};
    result.summary.pictures = {103, 104.5, 0.105, 0.106, 107};
    result.droppedFrames = 65;
    result.errorLines = 66;
    result.ledger = {.handedOut = 1,
                     .returned = 2,
                     .released = 3,
                     .consumed = 4,
                     .lost = 7,
                     .withProcessor = 5,
                     .withFrameBuilder = 6};
    result.longestHeldNs = 71;
    result.unsettled = {{72, 73, 0, 74, 75, 76, true, host::BufferHolder::FrameBuilder}};
    Json const replay = report::toJson({}, result, nullptr);
    EXPECT_EQ(replay["recording"].dump(),
              R"({"path":"a.csv","frames":11,"framesWithError":28,"firstTimestampNs":3,)"
              R"("lengthNs":12,"framesPerSecond":13.5,"medianIntervalNs":14,"minIntervalNs":15,)"
              R"("maxIntervalNs":16,"jitterNs":17,"gaps":18,"largestGapNs":19,"missingStates":)"
              R"({"afMode":21,"afState":22,"lensState":23,"aeStable":24,"frameSync":25,)"
              R"("sensorId":26,"sensorMode":27},"absentColumns":["exposureNs","afMode"],)"
              R"("dataColumns":[{"name":"x","tag":30}],"video":{"path":"v.mp4","pictures":121,)"
              R"("width":122,"height":123,"rotation":90,"matchedBy":"start",)"
              R"("framesWithoutPicture":124},"notes":[]})");
    EXPECT_EQ(
        replay["options"].dump(),
        R"({"policy":"multiframe","policyName":null,"policyOptions":{"c":"2"},)"
        R"("timeoutNs":31000000,"framesPerCapture":1,)"
        R"("historySize":32,"deliveryDelayNs":33,"reprocessDelayNs":null,)"
        R"("offsetNs":-34000000,"frameSync":false,"fromNs":38,"toNs":null,"anyRate":false,"video":null,)"
        R"("pressAtNs":[35,36],"pressAtBootNs":[39],"flushAtNs":[37],)"
        R"("dumpAtNs":[],"properties":{"a.b":"1"}})");
    EXPECT_EQ(
        replay["captures"][0]["frames"][0].dump(),
        R"({"index":0,"served":"timedOut","try":41,"frameNo":43,"timestampNs":44,)"
        R"("lagNs":4,"waitNs":2,"resultNs":45,"reportedTimestampNs":46,"pictureFile":"a.jpg","chosen":)"
        R"({"exposureNs":91,"iso":92,"focusDistance":93.5,"afMode":null,)"
        R"("afState":"focusedLocked","lensState":"94","isFocusSettled":true,)"
        R"("isExposureSettled":null,"hasImageError":false,"picture":{"videoFrame":111,)"
        R"("sharpness":112.5,"sharpnessShare":0.25,"motion":113.5,"brightness":114.5,)"
        R"("clipped":0.5}}})");
    EXPECT_EQ(replay["captures"][0]["tries"][0].dump(),
              R"({"timeNs":47,"ageNs":48000000,"isRetry":true,"historyFrames":[49],)"
              R"("inFlightFrames":[50,51],"lockedFrames":[52],"builtFrames":[0],"faults":[],)"
              R"("repeats":53,"lastRepeatNs":54,"explanation":null})");
    EXPECT_EQ(replay["summary"].dump(),
              R"({"captures":51,"answeredCaptures":52,"frames":53,"atOnce":54,"waited":55,)"
              R"("timedOut":56,"flushed":57,"unanswered":58,"withoutHistory":59,"lag":{"count":1,)"
              R"("minNs":61,"medianNs":62,"p95Ns":63,"maxNs":64},"wait":{"count":0,"minNs":null,)"
              R"("medianNs":null,"p95Ns":null,"maxNs":null},"distance":{"count":0,"minNs":null,)"
              R"("medianNs":null,"p95Ns":null,"maxNs":null},"chosen":{"focusSettled":{"count":95,)"
              R"("told":96},"exposureSettled":{"count":97,"told":98},"exposure":{"count":0,)"
              R"("minNs":null,"medianNs":null,"p95Ns":null,"maxNs":null},"iso":{"count":1,)"
              R"("min":99,"median":100,"p95":101,"max":102},"pictures":{"count":103,)"
              R"("medianSharpness":104.5,"medianSharpnessShare":0.105,"p5SharpnessShare":0.106,)"
              R"("belowHalf":107}},"droppedFrames":65,)"
              R"("logErrorLines":66})");
    EXPECT_EQ(replay["ledger"].dump(),
              R"({"balances":false,"handedOut":1,"returned":2,"released":3,"consumed":4,)"
              R"("withProcessor":5,"withFrameBuilder":6,"lost":7,"longestHeldNs":71,"unsettled":)"
              R"([{"frameNo":73,"requestNo":74,"sinceNs":75,"isClone":true,)"
              R"("holder":"frameBuilder"}]})");
}

TEST(Json, IsTheSameWhenItIsWrittenCaptureByCapture) {
    log::Explanation const explanation = fullExplanation();
    run::ReplayResult result = fullReplay();
    result.path = "\n  \"captures\": []";
    for (size_t const captures : {0, 1, 3}) {
        result.captures.resize(captures);
        std::ostringstream streamed;
        report::writeJson({}, result, &explanation, {}, streamed);
        std::ostringstream whole;
        report::writeJson(report::toJson({}, result, &explanation), whole);
        EXPECT_EQ(streamed.str(), whole.str());
    }
}

TEST(Json, HasThePicturesOfAPageInBase64) {
    if (report::reportPage() == nullptr) {
        GTEST_SKIP() << "built without the page";
    }
    run::ReplayResult result = fullReplay();
    auto const data = [&result] {
        std::ostringstream page;
        report::writeHtmlReport({}, result, nullptr, {}, page);
        constexpr std::string_view kBegin = "<script type=\"application/json\" id=\"data\">";
        std::string const rest = page.str().substr(page.str().find(kBegin) + kBegin.size());
        return Json::parse(rest.substr(0, rest.find("</script>")));
    };
    EXPECT_FALSE(data().contains("pictures")) << "of a replay without a video";
    result.pictures = {
        {3, {"\xff\xd8\xfb<", 4, 5}}, {6, {"\xff\xd8", 4, 5}}, {7, {"\xff\xd8\x3e", 5, 4}}};
    EXPECT_EQ(data()["pictures"].dump(), R"([{"frameNo":3,"width":4,"height":5,"jpeg":"/9j7PA=="},)"
                                         R"({"frameNo":6,"width":4,"height":5,"jpeg":"/9g="},)"
                                         R"({"frameNo":7,"width":5,"height":4,"jpeg":"/9g+"}])");
}

TEST(Json, HasNumbersWordsAndNulls) {
    log::Explanation const explanation = fullExplanation();
    Json const replay = report::toJson({}, fullReplay(), &explanation);
    Json const attempt = replay["captures"][0]["tries"][0]["explanation"];
    EXPECT_EQ(attempt["ageNs"], 30'000'000);
    EXPECT_EQ(attempt["servedFrames"][0]["source"], "timedOut");
    Json const candidates = attempt["candidates"];
    EXPECT_EQ(candidates[0]["wanted"], (Json{{"ns", 5}, {"op", ">="}}));
    EXPECT_EQ(candidates[1]["found"], (Json{{"value", 1}}));
    EXPECT_EQ(candidates[2]["criterion"], "sensorMode");
    EXPECT_EQ(candidates[2]["wanted"], (Json{{"text", "[0] = 3"}}));
    EXPECT_EQ(replay["faults"]["strikes"], (Json{{"late", 2}}));

    run::LiveResult lived = fullLive();
    lived.status.elapsedNs = 81;
    lived.signal = 2;
    lived.status.arrivedFrames = 82;
    lived.status.dumps = 83;
    lived.status.captures.lag.add(-84);
    lived.times.policy.add(85);
    lived.offsetMs = INT64_MAX;  // of a property that holds any number
    lived.status.captures.served[pipeline::Served::Flushed] = 4;
    recording::Recording const played = recording::generate({});
    Json const live = report::toJson(lived, &played);
    Json other = live;
    other.merge_patch({{"summary", {{"flushed", 4}, {"atOnce", 0}}},
                       {"recorder", {{"end", "memoryFull"}}},
                       {"options", {{"offsetNs", INT64_MAX}}},
                       {"isClean", false},
                       {"elapsedNs", 81},
                       {"endedBySignal", 2},
                       {"sensor", {{"arrivedFrames", 82}}},
                       {"dumpCount", 83}});
    EXPECT_EQ(live, other);
    EXPECT_EQ(live["summary"]["lag"]["minNs"], -84);
    EXPECT_TRUE(live["recording"]["path"].is_null());

    log::Explanation lines = explanation;
    lines.counts = {1, 2, 3, 4, 5, 6, 7, 10, 8, 9};
    lines.errors = {{7, "no idea"}};
    Json const told = report::toJson(lines, "a.log");
    EXPECT_EQ(told["log"].dump(),
              R"({"path":"a.log","lines":1,"processorLines":2,"foreignLines":3,"cutLines":4,)"
              R"("outOfOrderLines":5,"interleavedLines":6,"unassignedLines":7,)"
              R"("dumpLines":10,"unrecognisedLines":8,"errorLines":9})");
    EXPECT_EQ(told["errors"][0]["line"], 7);
    EXPECT_FALSE(told["isClean"]);
    EXPECT_TRUE(report::toJson(explanation)["isClean"]);
    EXPECT_TRUE(attempt["line"].is_null());
}

}  // namespace
}  // namespace zebcam::tool
