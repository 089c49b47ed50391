#include <utility>

#include "report/JsonParts.h"
#include "report/LogCaptures.h"
#include "report/Reports.h"
#include "run/Verdict.h"

namespace zebcam::tool::report {

namespace {

/// What a candidate was held against, or what it had: numbers where the criterion compares some,
/// the log's text otherwise.
Json valueJson(log::Criterion criterion, std::optional<int64_t> number, std::string const& text) {
    if (!number) {
        return text.empty() ? Json(nullptr) : Json{{"text", text}};
    }
    return {{criterion == log::Criterion::Time ? "ns" : "value", *number}};
}

Json wantedJson(log::Candidate const& frame) {
    Json json = valueJson(frame.criterion, frame.wantedNumber, frame.wanted);
    if (frame.wantedNumber) {
        // A time must have been reached; any other number must be the same.
        json["op"] = frame.criterion == log::Criterion::Time ? ">=" : "==";
    }
    return json;
}

Json explainedJson(log::CaptureExplanation const& capture) {
    return {{"requestNo", capture.requestNo},
            {"pid", orNull(capture.pid)},
            {"outcome", wordOf(toString(capture.outcome))},
            {"isCertain", capture.isCertain()},
            {"waitNs", capture.waitedMs ? Json(nsOfMs(*capture.waitedMs)) : Json(nullptr)},
            {"earlyShutterNs", orNull(capture.earlyShutterNs)},
            {"answer", answerOf(capture)},
            {"tries", listOf(capture.tries, tryJson)}};
}

Json logJson(std::string const& path, log::LineCounts const& counts) {
    return {{"path", orNull(path)},
            {"lines", counts.lines},
            {"processorLines", counts.processor},
            {"foreignLines", counts.foreign},
            {"cutLines", counts.cut},
            {"outOfOrderLines", counts.outOfOrder},
            {"interleavedLines", counts.interleaved},
            {"unassignedLines", counts.unassigned},
            {"dumpLines", counts.dump},
            {"unrecognisedLines", counts.unrecognised},
            {"errorLines", counts.errors}};
}

/// A line's number; a replay's log has none.
Json lineJson(size_t line) {
    return line != 0 ? Json(line) : Json(nullptr);
}

}  // namespace

Json candidateJson(log::Candidate const& frame) {
    // Only what was refused has one.
    bool const hasReason = frame.criterion != log::Criterion::None;
    return {{"frameNo", frame.frameNo},
            {"verdict", wordOf(toString(frame.verdict))},
            {"index", orNull(frame.index)},
            {"criterion", hasReason ? Json(wordOf(frame.criterionName())) : Json(nullptr)},
            {"stream", orNull(frame.stream)},
            {"wanted", wantedJson(frame)},
            {"found", valueJson(frame.criterion, frame.foundNumber, frame.found)},
            {"notes", frame.notes}};
}

Json tryJson(log::TryExplanation const& attempt) {
    return {{"line", lineJson(attempt.line)},
            {"time", attempt.time ? Json(attempt.time->text) : Json(nullptr)},
            {"ageNs", attempt.ageMs ? Json(nsOfMs(*attempt.ageMs)) : Json(nullptr)},
            {"zsdTimestampNs", orNull(attempt.zsdTimestampNs)},
            {"selector", orNull(attempt.selector)},
            {"historySets", orNull(attempt.historySets)},
            {"lockedSets", orNull(attempt.lockedSets)},
            {"inFlightFrames", attempt.inFlight},
            {"wantedFrames", listOf(attempt.wanted,
                                    [](log::WantedFrame const& frame) {
                                        return Json{{"index", frame.index},
                                                    {"type", frame.type},
                                                    {"halImages", frame.streams.halImages},
                                                    {"halMetas", frame.streams.halMetas},
                                                    {"appMetas", frame.streams.appMetas}};
                                    })},
            {"candidates", listOf(attempt.candidates, candidateJson)},
            {"servedFrames", listOf(attempt.served,
                                    [](log::ServedFrame const& frame) {
                                        return Json{{"index", orNull(frame.index)},
                                                    {"frameNo", orNull(frame.frameNo)},
                                                    {"source", wordOf(toString(frame.source))}};
                                    })},
            {"parkedFrames",
             listOf(attempt.parked,
                    [](auto const& parked) {
                        return Json{{"index", parked.first}, {"frameNo", parked.second}};
                    })},
            {"orders", listOf(attempt.orders,
                              [](log::Order const& order) {
                                  return Json{{"order", wordOf(toString(order.kind))},
                                              {"frameNo", order.frameNo},
                                              {"fate", wordOf(toString(order.fate))}};
                              })},
            {"lockedBy",
             listOf(attempt.locked,
                    [](auto const& locked) {
                        return Json{{"selector", locked.first}, {"lockedFrames", locked.second}};
                    })},
            {"isTimedOut", attempt.timedOut},
            {"outcome", wordOf(toString(attempt.outcome))},
            {"remainingFrames", orNull(attempt.remaining)},
            {"notes", attempt.notes},
            {"errors", attempt.errors}};
}

Json toJson(log::Explanation const& explanation, std::string const& path,
            base::Provenance const& provenance) {
    Json pending = Json::array();
    for (log::CaptureExplanation const& capture : explanation.captures) {
        if (capture.outcome == log::CaptureOutcome::Pending) {
            pending.push_back(capture.requestNo);
        }
    }
    // A log may end anywhere: a capture that is still waiting then is nothing bad.
    Json json = documentOf("explain", explanation.counts.errors == 0, provenance);
    json["verdict"] = verdictJson(run::verdictOf(explanation));
    json["log"] = logJson(path, explanation.counts);
    json["captures"] = listOf(explanation.captures, explainedJson);
    json["pending"] = std::move(pending);
    json["flushReturns"] = listOf(explanation.flushReturns, [](log::FlushReturn const& returned) {
        return Json{{"line", lineJson(returned.line)},
                    {"selector", returned.selector},
                    {"sets", returned.sets}};
    });
    json["errors"] = listOf(explanation.errors, [](log::LogError const& error) {
        return Json{{"line", lineJson(error.line)}, {"text", error.text}};
    });
    return json;
}

}  // namespace zebcam::tool::report
