#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <string>
#include <tuple>
#include <utility>

#include "report/Answers.h"
#include "report/JsonParts.h"
#include "report/TraceTracks.h"

namespace zebcam::tool::report {

namespace {

std::vector<Answer> answersOf(pipeline::CaptureRecord const& record, size_t capture, int64_t markNs,
                              int64_t replayEndNs) {
    // Frames that came back at one instant but end at different ones are drawn apart.
    std::map<std::tuple<int64_t, std::optional<int64_t>, bool>, Answer> answers;
    for (size_t i = 0; i < record.frames.size(); ++i) {
        pipeline::FrameOutcome const& frame = record.frames[i];
        if (!frame.answeredNs) {
            continue;
        }
        bool const isFlush = frame.served == pipeline::Served::Flushed;
        Answer& answer = answers[{*frame.answeredNs, frame.resultNs, isFlush}];
        answer.frames.push_back(i);
        answer.capture = capture;
        answer.timeNs = *frame.answeredNs;
        answer.resultNs = frame.resultNs;
        // What has no result is drawn to the end, so that it is seen to lack it.
        answer.endNs =
            frame.resultNs ? *frame.resultNs + markNs : std::max(replayEndNs, *frame.answeredNs);
        answer.isFlush = isFlush;
        answer.isFromHistory = answer.isFromHistory || frame.historyFrame.has_value();
    }
    std::vector<Answer> ordered;
    ordered.reserve(answers.size());
    for (auto& [key, answer] : answers) {
        ordered.push_back(std::move(answer));
    }
    return ordered;
}

std::vector<Wait> waitsOf(pipeline::CaptureRecord const& record, std::vector<Answer> const& answers,
                          int64_t replayEndNs) {
    std::vector<Wait> waits;
    int64_t fromNs = record.pressNs;
    size_t owed = record.frames.size();
    for (Answer const& answer : answers) {
        // An answer in the instant of the press was not waited for.
        if (answer.timeNs > fromNs) {
            waits.push_back({fromNs, answer.timeNs, owed});
            fromNs = answer.timeNs;
        }
        owed -= answer.frames.size();
    }
    // What is never answered is waited for until the end, so that it is seen.
    if (owed > 0 && replayEndNs > fromNs) {
        waits.push_back({fromNs, replayEndNs, owed});
    }
    return waits;
}

}  // namespace

CaptureShape shapeOf(pipeline::CaptureRecord const& record, size_t capture, int64_t markNs,
                     int64_t replayEndNs) {
    CaptureShape shape;
    shape.answers = answersOf(record, capture, markNs, replayEndNs);
    shape.waits = waitsOf(record, shape.answers, replayEndNs);
    shape.pressEndNs = record.pressNs + markNs;
    if (!shape.waits.empty()) {
        shape.pressEndNs = std::min(shape.pressEndNs, shape.waits.front().endNs);
        shape.endNs = shape.waits.back().endNs;
    }
    // Results may come before the mark of the press ends.
    shape.endNs = std::max(shape.endNs, shape.pressEndNs);
    for (Answer const& answer : shape.answers) {
        shape.endNs = std::max(shape.endNs, answer.resultNs.value_or(answer.endNs));
    }
    return shape;
}

namespace {

constexpr char CATEGORY[] = "capture";
constexpr int64_t ANSWER_ROWS = 500'000;  ///< above the threads of the captures

/// Something without length.
struct Instant {
    int64_t timeNs = 0;
    char const* category = CATEGORY;
    std::string name;
    Json args;
};

Json answerArgs(pipeline::CaptureRecord const& capture, Answer const& answer) {
    Json frames = Json::array();
    for (size_t const index : answer.frames) {
        frames.push_back(withoutNulls(frameJson(capture, index)));
    }
    return {{"requestNo", capture.requestNo}, {"frames", std::move(frames)}};
}

Instant refusal(int64_t timeNs, log::TryExplanation const& attempt, uint32_t requestNo,
                log::Candidate const& frame) {
    Json args = {{"requestNo", requestNo}, {"selector", orNull(attempt.selector)}};
    args.update(candidateJson(frame));
    return {timeNs, "refusal",
            fmt::format("frame {} refused: {}", frame.frameNo, frame.criterionName()),
            withoutNulls(args)};
}

/// The log tells the age of the capture at each try, the replay also the time. A log may lack
/// tries.
void addRefusals(std::vector<Instant>& out, pipeline::CaptureRecord const& capture,
                 log::CaptureExplanation const& explanation) {
    auto recorded = capture.tries.begin();
    for (log::TryExplanation const& attempt : explanation.tries) {
        int64_t const ageMs =
            attempt.ageMs.value_or(recorded != capture.tries.end() ? recorded->ageMs : 0);
        recorded = std::find_if(recorded, capture.tries.end(),
                                [ageMs](pipeline::TryRecord const& t) { return t.ageMs >= ageMs; });
        int64_t timeNs = capture.pressNs + nsOfMs(ageMs);
        if (recorded != capture.tries.end() && recorded->ageMs == ageMs) {
            timeNs = recorded->timeNs;
            ++recorded;
        }
        for (log::Candidate const& frame : attempt.candidates) {
            if (frame.verdict == log::Verdict::Refused) {
                out.push_back(refusal(timeNs, attempt, capture.requestNo, frame));
            }
        }
    }
}

std::vector<Instant> instantsOf(pipeline::CaptureRecord const& capture, CaptureShape const& shape,
                                log::CaptureExplanation const* explanation) {
    std::vector<Instant> instants;
    if (capture.earlyShutterNs) {
        instants.push_back(
            {capture.pressNs,
             CATEGORY,
             "early shutter",
             {{"requestNo", capture.requestNo}, {"earlyShutterNs", *capture.earlyShutterNs}}});
    }
    if (explanation != nullptr) {
        addRefusals(instants, capture, *explanation);
    }
    for (Answer const& answer : shape.answers) {
        instants.push_back({answer.timeNs, CATEGORY, answer.isFlush ? "flushed" : "built",
                            answerArgs(capture, answer)});
    }
    // A track is written in the order of its time.
    std::stable_sort(instants.begin(), instants.end(),
                     [](Instant const& a, Instant const& b) { return a.timeNs < b.timeNs; });
    return instants;
}

Json captureArgs(pipeline::CaptureRecord const& capture) {
    // All of them, so that a click on the capture tells the whole story.
    Json frames = Json::array();
    for (size_t i = 0; i < capture.frames.size(); ++i) {
        frames.push_back(withoutNulls(frameJson(capture, i)));
    }
    bool const isStruck = capture.faults.any();
    return withoutNulls(
        {{"requestNo", capture.requestNo},
         {"pressNs", capture.pressNs},
         {"faults", isStruck ? Json(pipeline::namesOf(capture.faults)) : Json(nullptr)},
         {"earlyShutterNs", orNull(capture.earlyShutterNs)},
         {"tries", capture.tryCount()},
         {"frames", std::move(frames)}});
}

void writeSlices(TraceEvents& events, Track track, pipeline::CaptureRecord const& capture,
                 CaptureShape const& shape, std::vector<FlowMark> const& flows) {
    auto const beginWait = [&](Wait const& wait) {
        events.begin(track, wait.beginNs, CATEGORY, "waiting", {{"framesOwed", wait.frames}});
    };
    events.begin(track, capture.pressNs, CATEGORY, fmt::format("capture {}", capture.requestNo),
                 captureArgs(capture));
    if (!shape.waits.empty()) {
        beginWait(shape.waits.front());
    }
    // Inside the wait, which an arrow from the press must not bind to.
    events.begin(track, capture.pressNs, CATEGORY, "press", {{"timeNs", capture.pressNs}});
    for (FlowMark const& mark : flows) {
        events.flow(track, mark);
    }
    events.end(track, shape.pressEndNs);
    for (size_t i = 0; i < shape.waits.size(); ++i) {
        if (i > 0) {
            beginWait(shape.waits[i]);
        }
        events.end(track, shape.waits[i].endNs);
    }
    events.end(track, shape.endNs);
}

}  // namespace

void writeCaptures(TraceEvents& events, int process,
                   std::vector<pipeline::CaptureRecord> const& captures,
                   std::vector<CaptureShape> const& shapes, log::Explanation const* explanation,
                   TraceFlows const& flows) {
    auto const explanations = explanationsOf(captures, explanation);
    Lanes lanes;  // without a limit, so that there is always one
    int64_t named = 0;
    for (size_t i = 0; i < captures.size(); ++i) {
        auto const lane =
            static_cast<int64_t>(lanes.take(captures[i].pressNs, shapes[i].endNs).value());
        // Instants have a row of their own: inside a slice the page would not show them.
        Track const slices = rowOf(process, 2 * lane);
        Track const moments = rowOf(process, 2 * lane + 1);
        if (lane == named) {
            ++named;
            events.nameThread(slices, fmt::format("captures {}", lane + 1), 2 * lane);
            events.nameThread(moments, fmt::format("events {}", lane + 1), 2 * lane + 1);
        }
        writeSlices(events, slices, captures[i], shapes[i], flows.atPress(i));
        for (Instant& instant : instantsOf(captures[i], shapes[i], explanations[i])) {
            events.instant(moments, instant.timeNs, instant.category, instant.name,
                           std::move(instant.args));
        }
    }
}

void writeAnswers(TraceEvents& events, int process,
                  std::vector<pipeline::CaptureRecord> const& captures,
                  std::vector<CaptureShape> const& shapes, TraceFlows const& flows) {
    std::vector<Answer const*> answers;
    for (CaptureShape const& shape : shapes) {
        for (Answer const& answer : shape.answers) {
            answers.push_back(&answer);
        }
    }
    // Lanes are given out in the order of time, across the captures.
    std::stable_sort(answers.begin(), answers.end(),
                     [](Answer const* a, Answer const* b) { return a->timeNs < b->timeNs; });
    Lanes lanes;
    int64_t named = 0;
    for (Answer const* const answer : answers) {
        auto const lane = static_cast<int64_t>(lanes.take(answer->timeNs, answer->endNs).value());
        Track const track = rowOf(process, ANSWER_ROWS + lane);
        if (lane == named) {
            ++named;
            events.nameThread(track, fmt::format("results {}", lane + 1), ANSWER_ROWS + lane);
        }
        pipeline::CaptureRecord const& capture = captures[answer->capture];
        events.begin(
            track, answer->timeNs, CATEGORY,
            fmt::format("{} capture {}", answer->isFromHistory ? "reprocessing" : "exposing",
                        capture.requestNo),
            answerArgs(capture, *answer));
        events.end(track, answer->resultNs.value_or(answer->endNs));
        if (!answer->resultNs) {  // the replay ended first
            continue;
        }
        events.begin(track, *answer->resultNs, CATEGORY,
                     fmt::format("result of capture {}", capture.requestNo),
                     {{"timeNs", *answer->resultNs}});
        for (size_t const frame : answer->frames) {
            for (FlowMark const& mark : flows.atResult(answer->capture, frame)) {
                events.flow(track, mark);
            }
        }
        events.end(track, answer->endNs);
    }
}

}  // namespace zebcam::tool::report
