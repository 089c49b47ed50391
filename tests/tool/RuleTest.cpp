#include <cmath>
#include <set>

#include "CliFixture.h"
#include "picture/VideoFile.h"
#include "tool/SteadyRecording.h"

namespace zebcam::tool {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

std::string const kDocument = ZSL_ROOT "/docs/policies.md";

class Rule : public CliTest {
protected:
    /// Of a generated frame; 0: nobody measured it.
    static double sharpnessOf(int frameNo) {
        return frameNo % 9 == 0 ? 0 : (1 + frameNo * 37 % 101) / 8.0;
    }

    /// Generated frames, each but some with a sharpness.
    std::string measuredFile() const {
        std::string const file = path("generated.csv");
        zsl({"generate", "--output", file, "--frames", "240", "--error-rate", "0.1",
             "--missing-af-state-rate", "0.2", "--unsynced-rate", "0.2", "--scan-rate", "0.05"});
        std::istringstream rows(contentOf(file));
        std::string row;
        std::getline(rows, row);
        std::string text = row + ",Sharpness\n";
        while (std::getline(rows, row)) {
            double const sharpness = sharpnessOf(std::stoi(row));  // the number comes first
            text += row + ',' + (sharpness > 0 ? std::to_string(sharpness) : "") + '\n';
        }
        return write("measured.csv", text);
    }

    /// The first block of Python in the document.
    std::string ruleOfTheDocument() const {
        std::string const text = contentOf(kDocument);
        size_t const begin = text.find("```python\n") + 10;
        return write("rule.py", text.substr(begin, text.find("```", begin) - begin));
    }
};

TEST_F(Rule, OfTheKitDecidesAsThePolicyInCpp) {
    // Under the other's name, so that they tell of the same decisions in the same words.
    std::string const rule =
        write("BestShotSelector.py", contentOf(ZSL_ROOT "/sdk/selector/best_shot/best_shot.py"));
    std::string const measured = measuredFile();
    Arguments rapid;
    for (int ms = 1000; ms < 2200; ms += 80) {
        rapid = plus(rapid, {"--press", std::to_string(ms) + "ms"});
    }
    std::string const generated = path("generated.csv");
    std::vector<Arguments> table = {
        {measured, "--captures", "20", "--offset", "100ms"},
        plus({measured, "--frames", "2", "--frame-sync", "--policy-option", "hold_ms=80"}, rapid),
        plus({measured, "--frames", "3", "--offset", "10ms", "--policy-option", "burst=spread",
              "--fault", "duplicate:0.2", "--fault", "late:0.2", "--fault", "locked-metadata:0.1"},
             rapid),
        // Nobody measured these; what blurs pictures decides.
        {generated, "--captures", "20", "--offset", "200ms", "--policy-option", "min_share=0.4",
         "--policy-option", "max_locks=1"},
    };
    if (picture::canReadVideos()) {
        std::string const scene = path("scene.csv");
        zsl({"generate", "--output", scene, "--frames", "50", "--video", path("scene.mp4"),
             "--size", "320x240"});
        table.push_back({scene, "--video", path("scene.mp4"), "--no-cache", "--captures", "6"});
    }
    std::string all;
    for (Arguments const& arguments : table) {
        auto const decisions = [&](std::string const& policy) {
            std::string const out =
                zsl(plus({"replay", "--explain", "--policy", policy}, arguments)).out;
            return out.substr(out.find("\n\n"));  // the head says where the policy comes from
        };
        std::string const expected = decisions("best-shot");
        all += expected;
        EXPECT_EQ(decisions(rule), expected);
    }
    EXPECT_THAT(all, AllOf(HasSubstr("of the sharpest"), HasSubstr("order     lock F"),
                           HasSubstr("order     unlock F"), HasSubstr("refused  spread")));
}

TEST_F(Rule, OfTheDocumentTakesTheSharpestFrameNearby) {
    std::string const rule = ruleOfTheDocument();
    std::string const text = contentOf(rule);
    std::istringstream lines(text);
    int count = 0;
    for (std::string line; std::getline(lines, line);) {
        count += line.empty() ? 0 : 1;
    }
    EXPECT_LE(count, 15) << text;
    Arguments const command = {"replay",   measuredFile(), "--captures",      "20",
                               "--offset", "100ms",        "--policy-option", "near_ms=120"};
    zsl(plus(command, {"--policy", rule, "--json", path("result.json")}));
    for (Json const captures = Json::parse(contentOf(path("result.json")))["captures"];
         Json const& capture : captures) {
        Json const& frame = capture["frames"][0];
        double const wantedNs = capture["pressNs"].get<double>() - 100e6;
        EXPECT_LE(std::abs(frame["timestampNs"].get<double>() - wantedNs), 120e6);
        size_t near = 0;
        for (Json const& other : capture["tries"].back()["explanation"]["candidates"]) {
            if (other["criterion"] == "time") {
                EXPECT_GE(std::abs(std::stoi(other["found"]["text"].get<std::string>())), 120);
            } else if (other["criterion"] == "sharpness") {
                EXPECT_LE(sharpnessOf(other["frameNo"]), sharpnessOf(frame["frameNo"])) << other;
                ++near;
            }
        }
        EXPECT_GE(near, 2U) << capture;
    }
}

TEST_F(Rule, HasTheFieldsOfTheDocument) {
    std::set<std::string> listed;
    std::istringstream document(contentOf(kDocument));
    for (std::string line; std::getline(document, line);) {
        // Names stand in the first cell: `capture.lock(frame)`, `frame.iso`, ...
        std::string const cell = line.substr(0, line.find(" |", 1));
        for (char const* const owner : {"`capture.", "`frame."}) {
            for (size_t at = 0;
                 line.starts_with("| `") && (at = cell.find(owner, at)) != std::string::npos;) {
                listed.insert(cell.substr(at + 1, cell.find_first_of("`(", at + 1) - at - 1));
                ++at;
            }
        }
    }
    std::string const rule = write("fields.py", R"(
def choose(capture, frames):
    for owner, name in ((capture, "capture."), (frames[0], "frame.")):
        for field in dir(owner):
            if not field.startswith("_"):
                getattr(owner, field)
                print(name + field)
    return frames[0]
)");
    CaptureStderr();
    Outcome const outcome =
        zsl({"replay", steadyFile(path("steady.csv"), 30), "--press", "1s", "--policy", rule});
    std::istringstream printed(GetCapturedStderr());
    std::set<std::string> found;
    for (std::string field; std::getline(printed, field);) {
        found.insert(field);
    }
    EXPECT_EQ(outcome.status, 0) << outcome.out;
    EXPECT_EQ(found, listed);
}

TEST_F(Rule, IsRefusedAtTheStartWhereItCannotWork) {
    std::string const recording = steadyFile(path("steady.csv"), 30);
    std::filesystem::create_directory(path("folder.py"));
    struct {
        char const* text;
        char const* told;
    } const table[] = {
        {"def choose(capture, frames):\n    return [frames[0]\n", ".py:2: SyntaxError: '['"},
        {"import zsl\nzsl.nothing\n", ".py:2: AttributeError: module 'zsl' has no"},
        {"import sys\ndef f():\n    sys.exit(3)\nf()\n", ".py:3: SystemExit: 3"},
        {"chose = None\n", ".py: expected a function choose(capture, frames)\n"},
        {"\ndef choose(capture):\n    pass\n", ".py:2: expected choose(capture, frames): "},
        {"import zsl\nA = zsl.option('near', 5, most=9)\ndef choose(c, f): pass\n",
         "takes near, found \"neer\"; did you mean near?"},
        {"import zsl\nA = zsl.option('neer', 0.5, least=0, most=1)\n",
         ".py:2: ValueError: option neer: expected a number from 0 to 1, found \"7\""},
        {"import zsl\nA = zsl.option('neer', 'a', words=('a', 'b'))\n",
         ".py:2: ValueError: option neer: expected one of a, b, found \"7\""},
    };
    for (auto const& [text, told] : table) {
        std::string const rule = write("wrong.py", text);
        for (char const* const command : {"replay", "live"}) {
            expectRefused({command, recording, "--policy", rule, "--policy-option", "neer=7"},
                          {{{}, told}});
        }
    }
    expectRefused({"replay", recording, "--policy", "best-shot", "--policy-option"},
                  {{{"min_shares=1"}, "best-shot takes cost_per_s, min_share, max_age_ms, "},
                   {{"min_shares=1"}, ", found \"min_shares\"; did you mean min_share?\n"}});
    expectRefused({"replay", recording, "--policy"},
                  {{{path("folder.py")}, "folder.py: cannot be read: Is a directory\n"},
                   {{path("none.py")}, "none.py: there is no such file\n"}});
}

TEST_F(Rule, LosesNothingWhenItFails) {
    std::string const recording = steadyFile(path("steady.csv"), 60);
    struct {
        char const* body;  ///< of choose(), from line 3 on
        char const* told;
        bool hasTraceback;
    } const table[] = {
        {"    frames[1].iso\n    return frames[0].iso < 1\n",
         ":4: TypeError: '<' not supported between instances of 'NoneType' and 'int' (capture 1, "
         "frame 3)",
         true},
        {"    kept.extend(frames)\n    return None if kept[0] in frames else kept[0].iso\n",
         ":4: RuntimeError: captures and frames can be asked during choose() only (capture 1)",
         true},
        {"    capture.lock(99)\n", ":3: ValueError: frame 99 is neither in the history nor", true},
        {"    capture.reject(frames[0], 'a: b')\n", ":3: ValueError: expected a criterion", true},
        {"    return 'first'\n", ":2: choose(): returned str: expected a frame, its number", false},
        {"    return True\n", ":2: choose(): returned bool: expected a frame", false},
        {"    return 99\n", ":2: choose(): frame 99 is neither in the history nor in flight",
         false},
        {"    return frames\n", ":2: choose(): returned 8 frames, but 2 are wanted", false},
        {"    return [frames[0]] * 2\n", ":2: choose(): returned frame 3 twice, without", false},
    };
    for (auto const& [body, told, hasTraceback] : table) {
        std::string const rule =
            write("rule.py", std::string("kept = []\ndef choose(capture, frames):\n") + body);
        CaptureStderr();
        Outcome const outcome = zsl({"replay", recording, "--press", "1100ms", "--frames", "2",
                                     "--policy", rule, "--json", "-"});
        std::string const err = GetCapturedStderr();
        EXPECT_EQ(outcome.status, 1) << told;
        Json const result = Json::parse(outcome.out);
        EXPECT_EQ(result["failures"].size(), 1U) << result["failures"];
        EXPECT_THAT(result["failures"].at(0).get<std::string>(), HasSubstr(rule + told));
        EXPECT_EQ(result["summary"]["timedOut"], 2);
        EXPECT_EQ(result["ledger"]["lost"], 0);
        size_t const first = err.find("Traceback");
        EXPECT_EQ(first != std::string::npos, hasTraceback) << err;
        EXPECT_EQ(err.find("Traceback", first + 1), std::string::npos) << err;
        EXPECT_EQ(err.find(rule + " failed for capture 1") != std::string::npos, hasTraceback);
    }
    std::string const hang = write("hang.py", "def choose(c, f):\n    while True: pass\n");
    for (char const* const command : {"replay", "live"}) {
        EXPECT_EXIT(zsl({command, recording, "--policy", hang, "--time-limit", "100ms"}),
                    testing::ExitedWithCode(2), "hang.py gave no answer to select\\(\\)");
    }
}

TEST_F(Rule, DoesWhatAPolicyMay) {
    write("helper.py", "HOLD_MS = 950\n");
    std::string const rule = write("may.py", R"(
import helper
import zsl

def choose(capture, frames):
    if capture.number == 1:
        return zsl.NO_FRAME
    if capture.number == 2:
        return [capture.in_flight[0]]
    if capture.number < 5:
        capture.clone(frames[3])
        return frames[3]
    kept = [frame for frame in frames if frame.is_locked]
    if not kept:
        capture.lock(frames[0])
        capture.lock(frames[1])
    elif capture.age_ms > helper.HOLD_MS:
        capture.unlock(kept[1])
        return kept[0].number
)");
    Arguments command = {"replay",   steadyFile(path("steady.csv"), 80),
                         "--policy", rule,
                         "--json",   path("result.json")};
    for (char const* const press : {"1s", "2s", "3s", "3001ms", "4s"}) {
        command = plus(command, {"--press", press});
    }
    zsl(command);
    Json const result = Json::parse(contentOf(path("result.json")));
    EXPECT_EQ(result["failures"].size(), 0U) << result["failures"];
    EXPECT_EQ(result["ledger"]["lost"], 0);
    std::string found;
    for (Json const& capture : result["captures"]) {
        Json const& frame = capture["frames"][0];
        found += frame["frameNo"].dump() + ' ' + frame["served"].get<std::string>() + ", ";
    }
    EXPECT_EQ(found, "null atOnce, 20 waited, 25 atOnce, 25 atOnce, 32 waited, ");
}

TEST_F(Rule, ServesARunInRealTimeAndAComparison) {
    std::string const rule = ruleOfTheDocument();
    Outcome const live = zsl({"live", "--duration", "600ms", "--press-every", "100ms", "--fps",
                              "240", "--policy", rule, "--json", path("live.json")});
    EXPECT_EQ(live.status, 0) << live.out << live.err;
    auto const summary = Json::parse(contentOf(path("live.json")))["summary"];
    EXPECT_GT(summary["atOnce"].get<int>() + summary["waited"].get<int>(), 3) << summary;
    // The interpreter runs in this process by now, and its children have one that works.
    Outcome const compared =
        zsl({"compare", measuredFile(), "--policy", "default", "--policy", rule, "--policy",
             "best-shot", "--policy-option", "near_ms=50,100", "--policy-option", "max_locks=1",
             "--json", "-"});
    EXPECT_EQ(compared.status, 0) << compared.err;
    std::string names;
    for (Json const result = Json::parse(compared.out); Json const& row : result["rows"]) {
        names += row["options"]["policyName"].dump() + row["options"]["policyOptions"].dump();
    }
    EXPECT_EQ(names, R"(null{}"rule"{"near_ms":"50"}"rule"{"near_ms":"100"})"
                     R"("BestShotSelector"{"max_locks":"1"})");
    expectRefused(
        {"compare", path("measured.csv"), "--policy", "best-shot", "--policy", rule},
        {{{"--policy-option", "near=1"}, "rule.py takes near_ms, found \"near\"; did you"},
         {{"--policy", write("wrong.py", "\nchoose = 0 +\n")},
          "--policy " + path("wrong.py") + ":2: SyntaxError: invalid syntax\n"}});
}

}  // namespace
}  // namespace zebcam::tool
