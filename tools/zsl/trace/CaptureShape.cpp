#include "trace/CaptureShape.h"

#include <algorithm>
#include <map>
#include <tuple>
#include <utility>

namespace zebcam::tool {
namespace {

std::vector<Answer> answersOf(CaptureRecord const& record, size_t capture, int64_t markNs,
                              int64_t replayEndNs) {
    std::map<std::tuple<int64_t, std::optional<int64_t>, bool>, Answer> answers;
    for (size_t i = 0; i < record.frames.size(); ++i) {
        FrameOutcome const& frame = record.frames[i];
        if (!frame.answeredNs) {
            continue;
        }
        bool const isFlush = frame.served == Served::Flushed;
        Answer& answer = answers[{*frame.answeredNs, frame.resultNs, isFlush}];
        answer.frames.push_back(i);
        answer.capture = capture;
        answer.timeNs = *frame.answeredNs;
        answer.resultNs = frame.resultNs;
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

std::vector<Wait> waitsOf(CaptureRecord const& record, std::vector<Answer> const& answers,
                          int64_t replayEndNs) {
    std::vector<Wait> waits;
    int64_t fromNs = record.pressNs;
    size_t owed = record.frames.size();
    for (Answer const& answer : answers) {
        if (answer.timeNs > fromNs) {
            waits.push_back({fromNs, answer.timeNs, owed});
            fromNs = answer.timeNs;
        }
        owed -= answer.frames.size();
    }
    if (owed > 0 && replayEndNs > fromNs) {
        waits.push_back({fromNs, replayEndNs, owed});
    }
    return waits;
}

}  // namespace

CaptureShape shapeOf(CaptureRecord const& record, size_t capture, int64_t markNs,
                     int64_t replayEndNs) {
    CaptureShape shape;
    shape.answers = answersOf(record, capture, markNs, replayEndNs);
    shape.waits = waitsOf(record, shape.answers, replayEndNs);
    shape.pressEndNs = record.pressNs + markNs;
    if (!shape.waits.empty()) {
        shape.pressEndNs = std::min(shape.pressEndNs, shape.waits.front().endNs);
        shape.endNs = shape.waits.back().endNs;
    }
    shape.endNs = std::max(shape.endNs, shape.pressEndNs);
    for (Answer const& answer : shape.answers) {
        shape.endNs = std::max(shape.endNs, answer.resultNs.value_or(answer.endNs));
    }
    return shape;
}

}  // namespace zebcam::tool
