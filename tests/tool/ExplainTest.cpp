#include <fmt/format.h>
#include <ulog/ULogger.h>

#include <nlohmann/json.hpp>
#include <random>
#include <regex>
#include <sstream>

#include "base/Text.h"
#include "compare/ComparisonFields.h"
#include "log/Explainer.h"
#include "log/Logcat.h"
#include "processor/ZslFixture.h"
#include "report/Reports.h"

namespace zebcam::tool {
namespace {

using Json = nlohmann::ordered_json;

using namespace zebcam::test;
using NSCam::Utils::ULog::ULogger;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

constexpr uint32_t PID = 1234;
constexpr uint32_t TID = 5678;

std::vector<std::string> linesOf(std::string const& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::string joined(std::vector<std::string> const& lines) {
    std::string text;
    for (std::string const& line : lines) {
        text += line + "\n";
    }
    return text;
}

log::Explanation explainText(std::string const& log) {
    std::istringstream in(log);
    log::LogcatReader reader(in);
    log::Explainer explainer;
    for (log::LogRecord record; reader.next(record);) {
        explainer.feed(record);
    }
    return explainer.finish();
}

std::string threadtime(std::string const& message, char priority = 'I', uint32_t tid = TID,
                       int64_t ms = 0) {
    return fmt::format("01-02 12:{:02}:{:02}.{:03} {:5} {:5} {} ZebCam/ZslProc: {}\n",
                       ms / 60000 % 60, ms / 1000 % 60, ms % 1000, PID, tid, priority, message);
}

/// How logcat prints lines: its header, and whether that stands once above the lines of a message.
struct Format {
    char const* header;
    bool isLong = false;

    std::string operator()(int n, std::vector<std::string> const& lines, char priority) const {
        std::string const head =
            fmt::format(fmt::runtime(header), fmt::arg("time", fmt::format("{:06.3f}", n / 1e3)),
                        fmt::arg("pid", PID), fmt::arg("tid", TID), fmt::arg("p", priority));
        std::string text = isLong ? head + "\n" : "";
        for (std::string const& line : lines) {
            text += (isLong ? "" : head) + line + "\n";
        }
        return text + (isLong ? "\n" : "");
    }
};

constexpr Format THREADTIME{"01-02 12:00:{time} {pid:5} {tid:5} {p} ZebCam/ZslProc: "};
constexpr Format BRIEF{"{p}/ZebCam/ZslProc({pid:5}): "};
constexpr Format TIME{"01-02 12:00:{time} {p}/ZebCam/ZslProc({pid:5}): "};
constexpr Format LONG{"[ 01-02 12:00:{time} {pid:5}:{tid:5} {p}/ZebCam/ZslProc ]", true};
/// As liblog prints on Linux: whole seconds only.
constexpr Format PRINTED{"ZebCam/ZslProc {p} 01-02 12:00:00 {pid:5} {tid:5} "};
constexpr Format YEAR_MICROSECONDS_USER{
    "2024-01-02 12:00:{time}000 cameraserver {pid:5} {tid:5} {p} ZebCam/ZslProc: "};

/// Runs the real processor; its own log is what gets explained.
class ExplainTest : public ZslTest {
protected:
    std::string logcat(Format const& format, std::string const& priorities = "DIWE") const {
        std::string text;
        for (int n = 1; LogLine const& line : log) {
            log::LogRecord const record = log::fromLogLine(line);
            if (priorities.find(record.priority) != std::string::npos) {
                text += format(n, linesOf(record.message), record.priority);
            }
            ++n;
        }
        return text;
    }

    log::Explanation explainOwn() const {
        log::Explainer explainer;
        for (LogLine const& line : log) {
            explainer.feed(log::fromLogLine(line));
        }
        return explainer.finish();
    }

    /// What is told of a try's candidates: `F12 refused sensor mode|stream|found|wanted|notes`.
    static std::vector<std::string> candidates(log::TryExplanation const& attempt) {
        std::vector<std::string> rows;
        for (log::Candidate const& frame : attempt.candidates) {
            bool const isRefused = frame.verdict == log::Verdict::Refused;
            std::string row = fmt::format("F{} {}", frame.frameNo, toString(frame.verdict));
            row += isRefused ? " " + frame.criterionName() : "";
            for (std::string const* part : {&frame.stream, &frame.found, &frame.wanted}) {
                row += "|" + *part;
            }
            for (std::string const& note : frame.notes) {
                row += "|" + note;
            }
            rows.push_back(row);
        }
        return rows;
    }

    /// Frames for every criterion, for a capture of two frames that is served on the second try.
    void runEveryCriterion() {
        ExposedFrame noSensor(14);
        noSensor.metas[HAL].remove(ZEB_HAL_REQUEST_SENSOR_ID);
        ExposedFrame noImage(15);
        noImage.images = {YUV};
        ExposedFrame noFocus(16);
        noFocus.metas[APP].remove(ANDROID_CONTROL_AF_STATE);
        ExposedFrame error(19);
        error.hasImageError = true;
        ExposedFrame unsettled(21);
        unsettled.focus(AF_MODE_CONTINUOUS_PICTURE, AF_STATE_PASSIVE_SCAN, LENS_STATE_MOVING);
        unsettled.metas[HAL].remove(ZEB_3A_AE_SOFT_STABLE);
        push({ExposedFrame(11).at(-50), ExposedFrame(12).tag(HAL, ZEB_P1NODE_SENSOR_MODE, 3),
              ExposedFrame(13).tag(HAL, ZEB_HAL_REQUEST_SENSOR_ID, 7), noSensor, noImage, noFocus,
              ExposedFrame(17).tag(HAL, ZEB_3A_AE_SOFT_STABLE, 0),
              ExposedFrame(18).tag(HAL, ZEB_FRAME_SYNC_RESULT, int64_t(5)), error,
              ExposedFrame(20).tag(HAL, ZEB_P1NODE_PURE_RAW, 1), unsettled});
        Capture wanted = capture(5, 2);
        wanted.sensorMode(0, 0).params.needFrameSync = true;
        wanted.params.checkPureRaw = true;
        ASSERT_EQ("[5.0=F21]", submit(wanted));
        push({30});
        ASSERT_EQ("[5.1=F30]", passMs(40));
    }

    /// A capture whose policy chooses and locks frames in flight, then times out.
    void runOrders() {
        history->announce(40);
        history->announce(41);
        push({39});
        Capture wanted = capture(6, 2);
        wanted.by(answering({choose({{0, 40}}, {{39, Answer::LOCK}, {41, Answer::LOCK}}),
                             {},
                             choose({}, {{39, Answer::RELEASE}, {77, Answer::UNLOCK}})}));
        ASSERT_EQ("", submit(wanted));
        ASSERT_EQ("", passMs(10));
        push({40});
        ASSERT_EQ("[6.0=F40]", passMs(10));
        push({41, 42});
        ASSERT_EQ("[6.1=F11]", passMs(3000));
    }
};

TEST_F(ExplainTest, GivesTheReasonForEveryCandidate) {
    runEveryCriterion();
    log::Explanation const told = explainOwn();
    ASSERT_EQ(1U, told.captures.size());
    log::CaptureExplanation const& capture5 = told.captures[0];
    ASSERT_EQ(2U, capture5.tries.size());
    std::string const hal = hostBuffer(metaBuffer(HAL)).getStreamInfo()->getStreamName();
    std::string const app = hostBuffer(metaBuffer(APP)).getStreamInfo()->getStreamName();
    EXPECT_THAT(
        candidates(capture5.tries[0]),
        ElementsAre("F19 refused image|image:21||", "F20 refused pure raw|" + hal + "||",
                    "F11 refused time||99950000000 ns (-50 ms)|>= 100000000000 ns",
                    "F12 refused sensor mode||sensor 0 in mode 3|sensor 0 in mode 0",
                    "F13 refused sensor mode||sensor 7 in mode 0|sensor 0 in mode 0",
                    "F14 refused sensor mode||no tag ZEB_HAL_REQUEST_SENSOR_ID|",
                    "F15 refused streams|||image 0x21, HAL 0x10000001b, app 0x100000024",
                    "F16 refused focus|" + app +
                        "|no tag ANDROID_CONTROL_AF_STATE|AF mode, AF state and lens state",
                    "F17 refused exposure|" + hal + "|0|1", "F18 refused sync|" + hal + "|5|0",
                    "F21 taken|||"
                    "|unsettled focus let pass: AF mode continuous picture, AF state passive scan, "
                    "lens moving"
                    "|no tag ZEB_3A_AE_SOFT_STABLE, taken as good"));
    EXPECT_EQ(log::CaptureOutcome::Served, capture5.outcome);
    EXPECT_EQ(40, capture5.waitedMs);
    EXPECT_EQ(callback->shutters().at(0).second, capture5.earlyShutterNs);
    EXPECT_THAT(report::explanationText(told),
                AllOf(HasSubstr("    F17          refused  exposure      found 0, wanted 1 in"),
                      HasSubstr("    built     frame 0 from F21 (chosen)\n"
                                "    result    waiting, nothing chosen for 1 frame\n"),
                      HasSubstr("    F30          taken    for frame 1\n")));
}

TEST_F(ExplainTest, NamesACriterionThatItDoesNotKnowAsTheLogDoes) {
    runEveryCriterion();
    std::string text = logcat(THREADTIME);
    for (size_t at = 0; (at = text.find("isAFStable", at)) != std::string::npos;) {
        text.replace(at, 10, "isLensStill");
    }
    log::Explanation const told = explainText(text);
    EXPECT_THAT(
        candidates(told.captures.at(0).tries.at(0)),
        Contains(fmt::format("F16 refused isLensStill|{}||", metaStream(APP)->getStreamName())));
    std::string const shown = report::explanationText(told);
    EXPECT_THAT(shown, HasSubstr("    F16          refused  isLensStill   in "));
    EXPECT_THAT(shown, Not(HasSubstr("no line gives the reason")));
    EXPECT_EQ("isLensStill",
              report::toJson(told)["captures"][0]["tries"][0]["candidates"][7]["criterion"]);
    EXPECT_EQ(
        "sensor mode 6, time 2, streams 2, exposure 2, sync 2, unknown 2, image 1, pure raw 1",
        compare::countRefusals(told).text());
}

TEST_F(ExplainTest, TellsOfRunsOfThePolicyThatWantsThem) {
    start();
    ExposedFrame bad(13);
    bad.metas[APP].remove(ANDROID_CONTROL_AF_STATE);
    push({ExposedFrame(11).at(-4), ExposedFrame(12).at(-3), bad.at(-2), ExposedFrame(14).at(-1)});
    Capture wanted = capture(5, 3);
    ASSERT_EQ("", submit(wanted.policy(0x20000, 1000)));
    leavesPending = true;
    log::CaptureExplanation const told = explainOwn().captures.at(0);
    EXPECT_EQ(log::CaptureOutcome::Pending, told.outcome);
    std::string const app = metaStream(APP)->getStreamName();
    EXPECT_THAT(candidates(told.tries.at(0)),
                ElementsAre("F12 refused broken run||F13 refused|",
                            "F13 refused focus|" + app +
                                "|no tag ANDROID_CONTROL_AF_STATE|AF mode, AF state and lens state",
                            "F14 refused broken run||the run was not completed|"));
    EXPECT_THAT(report::captureText(told, {}),
                AllOf(HasSubstr("MultiframeSelector, 4 in the history, 0 locked, no verdict on 1"),
                      HasSubstr("note      future ts, use latest"), HasSubstr("pending, 1 try")));
}

TEST_F(ExplainTest, TellsOfOrdersFlightAndTimeout) {
    push({ExposedFrame(11).at(-50)});
    runOrders();
    flush();
    log::Explanation const told = explainOwn();
    std::string const text = report::explanationText(told);
    ASSERT_EQ(4U, told.captures.at(0).tries.size()) << text;
    EXPECT_THAT(candidates(told.captures[0].tries[0]),
                ElementsAre("F40 parked|||", "F39 locked|||", "F41 locked|||"));
    std::vector<std::string> const expected = {
        "Capture 6     timed out, 4 tries, waited 3020 ms, early shutter 39 ms after the wanted",
        "    parked    frame 0 until F40 arrives\n    order     lock F39: done\n"
        "    order     lock F41: in flight\n    locked    by Scripted: F39\n",
        "    built     frame 0 from F40 (arrived)\n    order     release F39: done\n"
        "    order     lock F41: in flight\n    order     unlock F77: not found\n",
        "    error     [unlockBuffersForSelector] cannot find hbs[F77] to unlock\n",
        "    built     frame 1 from F11 (timed out)\n    order     lock F41: done\n"
        "    locked    by Scripted: F41\n    result    served, timed out\n",
        "Pending     none at the end\nFlush       gave back 1 set that Scripted kept locked\n"};
    for (std::string const& part : expected) {
        EXPECT_THAT(text, HasSubstr(part));
    }
}

TEST_F(ExplainTest, ReadsEveryFormatAlike) {
    runEveryCriterion();
    runOrders();
    auto const json = [](log::Explanation const& told) {
        Json captures = report::toJson(told)["captures"];
        for (Json& capture : captures) {
            capture.erase("pid");
            for (Json& attempt : capture["tries"]) {
                attempt.erase("line");
                attempt.erase("time");
            }
        }
        return captures.dump(1);
    };
    std::string const own = json(explainOwn());
    std::string const marks = "--------- beginning of main\n";
    for (Format const& format : {THREADTIME, BRIEF, TIME, LONG, PRINTED, YEAR_MICROSECONDS_USER}) {
        std::string const text = logcat(format);
        log::Explanation const told = explainText(marks + text);
        EXPECT_EQ(own, json(told)) << text.substr(0, 300);
        EXPECT_EQ(1U, told.counts.foreign);
        EXPECT_EQ(0U, told.counts.cut);
        EXPECT_EQ(PID, told.captures.at(0).pid);

        std::string other = "\xff\xfe";  // what a Windows shell makes of it
        for (char const c : text) {
            other += c == '\n' ? std::string("\r\0\n\0", 4) : std::string{c, '\0'};
        }
        EXPECT_EQ(own, json(explainText(other))) << text.substr(0, 300);
    }
    std::string written;
    for (LogLine const& line : log) {
        written += log::toThreadtime(log::fromLogLine(line), 12'345 * MS);
    }
    EXPECT_EQ(own, json(explainText(written)));
    EXPECT_THAT(written, StartsWith("01-01 00:00:12.345     0     0 I ZebCam/ZslProc: ["));
}

TEST_F(ExplainTest, TellsWhatCanBeToldWithoutTheLowerLevels) {
    runEveryCriterion();
    std::string const hal = metaStream(HAL)->getStreamName();
    log::CaptureExplanation const told = explainText(logcat(THREADTIME, "IWE")).captures.at(0);
    EXPECT_EQ(log::CaptureOutcome::Served, told.outcome);
    EXPECT_THAT(candidates(told.tries.at(0)), AllOf(Contains("F17 refused exposure|" + hal + "||1"),
                                                    Contains("F20 refused image|" + hal + "||")));

    log::CaptureExplanation const warned = explainText(logcat(THREADTIME, "WE")).captures.at(0);
    ASSERT_EQ(2U, warned.tries.size());
    EXPECT_THAT(candidates(warned.tries[0]),
                AllOf(Contains("F12 refused sensor mode||sensor 0 in mode 3|sensor 0 in mode 0"),
                      Contains(HasSubstr("F17 refused exposure|"))));
    EXPECT_EQ(callback->shutters().at(0).second, warned.earlyShutterNs);
    EXPECT_EQ(log::CaptureOutcome::Unknown, warned.outcome) << "success is no warning";
    EXPECT_THAT(explainText(logcat(THREADTIME, "E")).captures, IsEmpty());
    log::Explanation const again =
        explainText(threadtime("[select] [S] zslReqNo(5) hbs[F1] X") +
                    threadtime("[prepareTimedoutParams] ZSL TIMED_OUT!") +
                    threadtime("[select] [S] zslReqNo(5) hbs[F2] X"));
    EXPECT_EQ(2U, again.captures.size()) << "a time-out ends a capture";
}

TEST_F(ExplainTest, TellsOfChoicesThatAreNotHandedOver) {
    ExposedFrame noImage(11);
    noImage.images = {YUV};
    push({noImage});
    Capture wanted = capture(5, 3);
    submit(wanted.by(answering({choose({{0, 11}, {1, 77}})})));
    leavesPending = true;
    log::Explanation const told = explainOwn();
    EXPECT_THAT(candidates(told.captures.at(0).tries.at(0)),
                ElementsAre("F11 refused lost||streams are missing|",
                            "F77 refused lost||not in the history|"));
    log::Explanation const cut = explainText(
        threadtime("[selectBuf_Locked] IN:{ requestNo=1 duration=0 zsdTs=5 pHBP=0 vFrameObj= }") +
        threadtime("[selectBuf_Locked] selectOut: { selected={ 0-[F1 addMeta(#0)] "
                   "1-[F2 addMeta(#0)] } ops={ }}") +
        threadtime("[selectBuf_Locked] OUT(#1):"));
    log::TryExplanation const& attempt = cut.captures.at(0).tries.at(0);
    EXPECT_EQ(1U, attempt.served.size());
    EXPECT_THAT(attempt.notes, ElementsAre("0 of 1 lines on built frames are there"));
}

TEST_F(ExplainTest, ReadsWhatALibrarysPolicySays) {
    std::string const begin =
        "[selectBuf_Locked] IN:{ requestNo=1 duration=0 zsdTs=5 pHBP=0 vFrameObj= }";
    std::string const head = "[select] [Sharpest] zslReqNo(1) ";
    log::Explanation const told = explainText(
        threadtime(begin) +
        threadtime("[selectBuf_Locked] selector(Sharpest) historyBuffers(#4) lockedBuffers(#0)") +
        threadtime(head + "hbs[F9] X => softness: 2.1 < 5.0", 'W') +
        threadtime(head + "hbs[F8] X => softness: 1.1 < 5.0", 'W') +
        threadtime(head + "hbs[F9] X => focus: not settled", 'W') +
        threadtime(head + "hbs[F-7] X => softness: cut", 'W') +
        threadtime(head + "hbs[F2147483650] X => too wide: 2", 'W') +
        threadtime("[selectBuf_Locked] selectOut: { selected={ 0-[F-2147483646 addMeta(#0)] } "
                   "ops={ F2147483649(0) }}") +
        threadtime("  in flight: F2147483651 F2147483652"));
    ASSERT_EQ(1U, told.captures.size());
    log::TryExplanation const& attempt = told.captures[0].tries.at(0);
    // Its last word on a frame counts, and of a chosen one that it is taken; numbers from 2^31 up
    // have a sign in the choice.
    EXPECT_THAT(candidates(attempt),
                ElementsAre("F9 refused focus||not settled|", "F8 refused softness||1.1 < 5.0|",
                            "F2147483650 taken|||", "F2147483649 locked|||"));
    EXPECT_EQ(1U, compare::countRefusals(told).byCriterion[size_t(log::Criterion::Unknown)]);
    EXPECT_THAT(report::explanationText(told),
                AllOf(HasSubstr("F8           refused  softness      1.1 < 5.0\n"),
                      HasSubstr("; in flight F2147483651\n")));
}

TEST_F(ExplainTest, AsksTheTryNotTheResultLineWhoWasServed) {
    for (uint32_t requestNo = 1; requestNo <= 4; ++requestNo) {
        Capture wanted = capture(requestNo);
        bool const isChosen = requestNo == 3;
        submit(wanted.by(std::make_shared<ScriptedSelector>([isChosen](auto const& in) {
            return isChosen && in.historyFrames.count(11) != 0 ? choose({{0, 11}}) : Answer();
        })));
    }
    push({11});
    ASSERT_EQ("[3.0=F11]", retry());
    leavesPending = true;
    ASSERT_THAT(line("remove from pending"), HasSubstr("reqNo:4")) << "the line names another";
    log::Explanation const told = explainOwn();
    EXPECT_EQ(log::CaptureOutcome::Served, told.captures.at(2).outcome);
    EXPECT_EQ(log::CaptureOutcome::Pending, told.captures.at(3).outcome);
    EXPECT_EQ(Json({1, 2, 4}), report::toJson(told).at("pending"));
}

TEST_F(ExplainTest, TakesTheSourceOffErrorLines) {
    ULogger::sMode = NSCam::Utils::ULog::LOG_MODE_ANDROID;
    log.clear();
    Capture wanted = capture(5);
    wanted.params.pHistoryBufferProvider = nullptr;
    submit(wanted);
    leavesPending = true;
    log::Explanation const told = explainOwn();
    ASSERT_THAT(line("no history buffer provider"), HasSubstr("{#"));
    EXPECT_THAT(told.captures.at(0).tries.at(0).errors,
                ElementsAre("[HistoryLease] no history buffer provider"));
}

TEST_F(ExplainTest, SaysWhatItComesTo) {
    runEveryCriterion();
    std::string const served = logcat(THREADTIME);
    std::string const warned = logcat(THREADTIME, "W");
    std::string const waiting = served.substr(0, served.rfind("[selectBuf_Locked] IN:"));
    log.clear();
    runOrders();
    std::string const ordered = logcat(THREADTIME);
    struct {
        std::string log;
        char const* level;
        std::vector<char const*> words;
        char const* answer;
    } const table[] = {
        {served,
         "good",
         {"answered"},
         "Frame 0: F21 was taken because it is the first in the history that began exposing not "
         "before the wanted instant and passed every test. F12 to F20 before were refused: 3 for "
         "sensor mode (another mode, or another sensor), 1 for exposure"},
        {served, "good", {"answered"}, "It came at once.\nFrame 1: F30 was taken because"},
        {waiting, "doubtful", {"unanswered"}, "\nFrame 1: The capture was still waiting when the"},
        {warned, "doubtful", {"notTold"}, "What became of the capture the log does not tell."},
        {ordered,
         "bad",
         {"timedOut", "errors"},
         "Frame 0: F40 was chosen by Scripted while still in flight. It came 20 ms after the "
         "press.\nFrame 1: The capture's time ran out: F11 was what the history had with the "
         "streams it needs. It came 3020 ms after the press. In 4 tries no frame was refused with "
         "a reason."},
        {threadtime("[flush] [requestNo:8]: change pending to normal capture (frameNo:8)"),
         "bad",
         {"flushed"},
         "A flush ended the wait with an ordinary capture."},
        {threadtime("[configure] x"), "doubtful", {"noCaptures"}, ""}};
    for (auto const& [text, level, words, answer] : table) {
        Json const told = report::toJson(explainText(text));
        EXPECT_EQ(level, told["verdict"]["level"]) << answer;
        std::vector<std::string> found;
        for (Json const& reason : told["verdict"]["reasons"]) {
            found.push_back(reason["word"]);
        }
        EXPECT_THAT(found, testing::ElementsAreArray(words)) << answer;
        EXPECT_THAT(told["captures"].empty() ? "" : std::string(told["captures"][0]["answer"]),
                    HasSubstr(answer));
    }
}

TEST_F(ExplainTest, KeepsInterleavedThreadsApart) {
    runEveryCriterion();
    std::vector<std::string> const first = linesOf(logcat(THREADTIME));
    log.clear();
    runOrders();
    std::vector<std::string> const second = linesOf(logcat(THREADTIME));
    std::string mixed;
    for (size_t i = 0; i < std::max(first.size(), second.size()); ++i) {
        mixed += i < first.size() ? first[i] + "\n" : "";
        mixed += i < second.size()
                     ? std::regex_replace(second[i], std::regex(" 5678 "), " 9999 ") + "\n"
                     : "";
    }
    log::Explanation const told = explainText(mixed);
    ASSERT_EQ(2U, told.captures.size());
    EXPECT_LT(100U, told.counts.interleaved);
    // The first log begins with the configuration, so that its capture comes second.
    for (size_t i : {0, 1}) {
        auto const alone = explainText(joined(i == 0 ? second : first)).captures.at(0);
        ASSERT_EQ(alone.tries.size(), told.captures[i].tries.size());
        for (size_t k = 0; k < alone.tries.size(); ++k) {
            EXPECT_EQ(candidates(alone.tries[k]), candidates(told.captures[i].tries[k]));
        }
    }
}

TEST_F(ExplainTest, CutsOfTheInputLineCostOnlyWhatTheyCut) {
    Capture wanted = capture(5, 12);  // too many to fit one line
    submit(wanted);
    leavesPending = true;
    log::Explanation const told = explainOwn();
    EXPECT_EQ(1U, told.counts.cut);
    log::TryExplanation const& attempt = told.captures.at(0).tries.at(0);
    EXPECT_THAT(attempt.notes, ElementsAre("the line that tells what is wanted is cut"));
    log::Explanation const ended = explainText(
        threadtime("[selectBuf_Locked] IN:{ requestNo=1 duration=0 zsdTs=5 pHBP=0x1 vFrameObj="));
    EXPECT_EQ(ended.captures.at(0).tries.at(0).notes, attempt.notes) << "with the log";
}

TEST_F(ExplainTest, StartsANewCaptureWhenANumberComesAgain) {
    leavesPending = true;
    for (int session = 0; session < 2; ++session) {
        push({11});
        Capture wanted = capture(9);
        ASSERT_EQ("[9.0=F11]", submit(wanted));
    }
    for (int session = 0; session < 2; ++session) {
        Capture wanted = capture(1);
        submit(wanted);
        passMs(30);
        zsl.clear();  // the camera goes with the capture pending
        start();
    }
    log::Explanation const told = explainOwn();
    std::vector<size_t> tries;
    for (log::CaptureExplanation const& capture : told.captures) {
        tries.push_back(capture.tries.size());
    }
    EXPECT_THAT(tries, ElementsAre(1, 1, 2, 2));
}

TEST(ExplainCountsTest, CountsWhatItCannotUse) {
    std::string const begin =
        threadtime("[selectBuf_Locked] IN:{ requestNo=1 duration=0 zsdTs=5 pHBP=0x1 vFrameObj= }");
    struct {
        char const* what;
        std::string log;
        size_t log::LineCounts::*count;
        size_t expected;
    } const cases[] = {
        {"another tag", "01-02 12:00:00.000  1  1 I Other   : [select] x\nI/Other( 1): y\n",
         &log::LineCounts::foreign, 2},
        {"no header", "hello\n\x01\x02\xff\nI/no header\n[ not a header ]\n01-02 12:00:00.000\n",
         &log::LineCounts::foreign, 5},
        {"headers that are none",
         "I/ZebCam/ZslProc( x): [select] y\nQ/ZebCam/ZslProc( 1): [select] y\n"
         "01-02 12:00:00.000  1  x I ZebCam/ZslProc: [select] y\n"
         "01-02 24:00:00.000  1  1 I ZebCam/ZslProc: [select] y\n"
         "13-02 12:00:00.000  1  1 I ZebCam/ZslProc: [select] y\n"
         "01-32 12:00:00.000  1  1 I ZebCam/ZslProc: [select] y\n"
         "[ 1:1 I/ZebCam/ZslProc ]\n[select] y\n"
         "01-02 12:00:00.000  1  1 I ZebCam/ZslProc [select] y\n"
         "01-02 12:00:00.  1  1 I ZebCam/ZslProc: [select] y\n"
         "[ 01-02 12:00:00.000 1:1 I-ZebCam/ZslProc ]\n[select] y\n",
         &log::LineCounts::foreign, 12},
        {"cut selection", begin + threadtime("[selectBuf_Locked] selectOut: { selected={ 0-[F1"),
         &log::LineCounts::cut, 1},
        {"longer than the reader takes", "I/ZebCam/ZslProc( 1): " + std::string(100'000, 'x'),
         &log::LineCounts::cut, 1},
        {"as long as the processor's lines can be",
         threadtime(std::string(1022, 'x')) + threadtime(std::string(1023, 'x')),
         &log::LineCounts::cut, 1},
        {"a wanted frame is announced but does not come",
         threadtime("[selectBuf_Locked] IN:{ requestNo=1 duration=0 zsdTs=5 pHBP=0x1 vFrameObj=") +
             threadtime("x"),
         &log::LineCounts::cut, 1},
        {"behind the end of a long message",
         "[ 01-02 12:00:00.000 1:1 I/ZebCam/ZslProc ]\nx\n--------- beginning of main\ny\n",
         &log::LineCounts::foreign, 2},
        {"earlier than before",
         threadtime("a", 'I', TID, 9) + threadtime("b", 'I', TID, 5) +
             threadtime("c", 'I', TID, 7) +
             "2024-01-02 12:00:00.000002 u 1 1 I ZebCam/ZslProc: d\n"
             "2024-01-02 12:00:00.000001 u 1 1 I ZebCam/ZslProc: e\n",
         &log::LineCounts::outOfOrder, 3},
        {"a reason without a verdict",
         threadtime("[operator()] [DefaultSelector] hbs[F1] isAFStable X", 'W'),
         &log::LineCounts::unassigned, 1},
        {"results of a try that never began",
         threadtime("[selectBuf_Locked] OUT(#1):") +
             threadtime("[prepareTimedoutParams] ZSL TIMED_OUT!"),
         &log::LineCounts::unassigned, 2},
        {"what a provider prints of itself",
         threadtime("History: capacity 8, dropped 2") + threadtime("  here: F1 F2") +
             threadtime("  in flight: none") + threadtime("  out: F3 for R1 since 5 ms"),
         &log::LineCounts::dump, 4},
        {"of no known form", threadtime("anything") + threadtime("[newFunction] x"),
         &log::LineCounts::unrecognised, 2},
        {"another thread in a try", begin + threadtime("x", 'I', 1) + threadtime("y"),
         &log::LineCounts::interleaved, 1},
    };
    for (auto const& test : cases) {
        log::LineCounts const counts = explainText(test.log).counts;
        EXPECT_EQ(test.expected, counts.*test.count) << test.what;
        EXPECT_EQ(counts.lines, counts.foreign + counts.processor) << test.what;
    }
}

TEST_F(ExplainTest, LivesWithAnyDamage) {
    runEveryCriterion();
    runOrders();
    flush();
    for (unsigned round = 0; round < 200; ++round) {
        std::mt19937 random(round);
        Format const& format = round % 3 == 0 ? THREADTIME : round % 3 == 1 ? LONG : BRIEF;
        std::vector<std::string> lines = linesOf(logcat(format));
        for (unsigned i = 0; i < 1 + round % 60; ++i) {
            std::string& line = lines[random() % lines.size()];
            size_t const at = line.empty() ? 0 : random() % line.size();
            std::string const texts[] = {"", "\xff", std::string(200, 'x'), "99999999999999999999"};
            line.replace(at, random() % 5 == 0 ? line.size() : random() % 10, texts[random() % 4]);
            std::swap(lines[random() % lines.size()], lines[random() % lines.size()]);
        }
        log::Explanation const told = explainText(joined(lines));
        EXPECT_EQ(told.counts.lines, told.counts.foreign + told.counts.processor);
        EXPECT_FALSE(report::toJson(told).dump().empty());
        for (std::string const& line : linesOf(report::explanationText(told))) {
            ASSERT_EQ(base::printable(line), line) << "with " << round;
            ASSERT_GE(100U, line.size()) << line;
        }
    }
}

}  // namespace
}  // namespace zebcam::tool
