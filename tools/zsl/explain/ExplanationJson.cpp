#include "explain/ExplanationJson.h"

#include <nlohmann/json.hpp>
#include <utility>

namespace zebcam::tool {

using Json = nlohmann::ordered_json;

namespace {

template <typename T>
Json orNull(std::optional<T> const& value) {
    return value ? Json(*value) : Json(nullptr);
}

Json orNull(std::string const& text) {
    return text.empty() ? Json(nullptr) : Json(text);
}

template <typename Items, typename Make>
Json listOf(Items const& items, Make const& make) {
    Json list = Json::array();
    for (auto const& item : items) {
        list.push_back(make(item));
    }
    return list;
}

Json wantedJson(WantedFrame const& frame) {
    return {{"index", frame.index},
            {"type", frame.type},
            {"halImages", frame.streams.halImages},
            {"halMetas", frame.streams.halMetas},
            {"appMetas", frame.streams.appMetas}};
}

Json candidateJson(Candidate const& frame) {
    bool const hasReason = frame.criterion != Criterion::None;
    return {{"frameNo", frame.frameNo},
            {"verdict", toString(frame.verdict)},
            {"index", orNull(frame.index)},
            {"criterion", hasReason ? Json(toString(frame.criterion)) : Json(nullptr)},
            {"stream", orNull(frame.stream)},
            {"wanted", orNull(frame.wanted)},
            {"found", orNull(frame.found)},
            {"notes", frame.notes}};
}

Json servedJson(ServedFrame const& frame) {
    return {{"index", orNull(frame.index)},
            {"frameNo", orNull(frame.frameNo)},
            {"source", toString(frame.source)}};
}

Json orderJson(Order const& order) {
    return {{"order", toString(order.kind)},
            {"frameNo", order.frameNo},
            {"fate", toString(order.fate)}};
}

Json captureJson(CaptureExplanation const& capture) {
    return {{"requestNo", capture.requestNo},
            {"pid", orNull(capture.pid)},
            {"outcome", toString(capture.outcome)},
            {"isCertain", capture.isCertain()},
            {"waitedMs", orNull(capture.waitedMs)},
            {"earlyShutterNs", orNull(capture.earlyShutterNs)},
            {"tries",
             listOf(capture.tries, [](TryExplanation const& attempt) { return toJson(attempt); })}};
}

Json countsJson(LineCounts const& counts) {
    return {{"lines", counts.lines},           {"processor", counts.processor},
            {"foreign", counts.foreign},       {"cut", counts.cut},
            {"outOfOrder", counts.outOfOrder}, {"interleaved", counts.interleaved},
            {"unassigned", counts.unassigned}, {"unrecognised", counts.unrecognised},
            {"errors", counts.errors}};
}

}  // namespace

Json toJson(TryExplanation const& attempt) {
    Json json = Json::object();
    if (attempt.line != 0) {
        json["line"] = attempt.line;
    }
    if (attempt.time) {
        json["time"] = attempt.time->text;
    }
    json["ageMs"] = orNull(attempt.ageMs);
    json["zsdTimestampNs"] = orNull(attempt.zsdTimestampNs);
    json["selector"] = orNull(attempt.selector);
    json["historySets"] = orNull(attempt.historySets);
    json["lockedSets"] = orNull(attempt.lockedSets);
    json["wanted"] = listOf(attempt.wanted, wantedJson);
    json["candidates"] = listOf(attempt.candidates, candidateJson);
    json["served"] = listOf(attempt.served, servedJson);
    json["parked"] = listOf(attempt.parked, [](auto const& parked) {
        return Json{{"index", parked.first}, {"frameNo", parked.second}};
    });
    json["orders"] = listOf(attempt.orders, orderJson);
    json["locked"] = listOf(attempt.locked, [](auto const& locked) {
        return Json{{"selector", locked.first}, {"frames", locked.second}};
    });
    json["timedOut"] = attempt.timedOut;
    json["outcome"] = toString(attempt.outcome);
    json["remaining"] = orNull(attempt.remaining);
    json["notes"] = attempt.notes;
    json["errors"] = attempt.errors;
    return json;
}

Json toJson(Explanation const& explanation) {
    Json pending = Json::array();
    for (CaptureExplanation const& capture : explanation.captures) {
        if (capture.outcome == CaptureOutcome::Pending) {
            pending.push_back(capture.requestNo);
        }
    }
    return {{"captures", listOf(explanation.captures, captureJson)},
            {"pending", std::move(pending)},
            {"flushReturns", listOf(explanation.flushReturns,
                                    [](FlushReturn const& returned) {
                                        return Json{{"line", returned.line},
                                                    {"selector", returned.selector},
                                                    {"sets", returned.sets}};
                                    })},
            {"errors", listOf(explanation.errors,
                              [](LogError const& error) {
                                  return Json{{"line", error.line}, {"text", error.text}};
                              })},
            {"lines", countsJson(explanation.counts)}};
}

}  // namespace zebcam::tool
