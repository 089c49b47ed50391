#include "report/JsonReport.h"

#include <nlohmann/json.hpp>

#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <utility>

#include "Version.h"

namespace zebcam::tool::report {

nlohmann::ordered_json faultJson(pipeline::FaultOptions const& options,
                                 pipeline::FaultTally const& tally) {
    using Json = nlohmann::ordered_json;
    Json rules = Json::array();
    for (pipeline::FaultRule const& rule : options.rules) {
        rules.push_back(toString(rule));
    }
    Json strikes = Json::object();
    for (auto const& [kind, count] : tally.strikes) {
        strikes[std::string(pipeline::traitsOf(kind).name)] = count;
    }
    return {{"randomSeed", tally.randomSeed},
            {"rules", std::move(rules)},
            {"strikes", std::move(strikes)}};
}

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

Json wantedJson(log::WantedFrame const& frame) {
    return {{"index", frame.index},
            {"type", frame.type},
            {"halImages", frame.streams.halImages},
            {"halMetas", frame.streams.halMetas},
            {"appMetas", frame.streams.appMetas}};
}

Json candidateJson(log::Candidate const& frame) {
    bool const hasReason = frame.criterion != log::Criterion::None;
    return {{"frameNo", frame.frameNo},
            {"verdict", toString(frame.verdict)},
            {"index", orNull(frame.index)},
            {"criterion", hasReason ? Json(frame.criterionName()) : Json(nullptr)},
            {"stream", orNull(frame.stream)},
            {"wanted", orNull(frame.wanted)},
            {"found", orNull(frame.found)},
            {"notes", frame.notes}};
}

Json servedJson(log::ServedFrame const& frame) {
    return {{"index", orNull(frame.index)},
            {"frameNo", orNull(frame.frameNo)},
            {"source", toString(frame.source)}};
}

Json orderJson(log::Order const& order) {
    return {{"order", toString(order.kind)},
            {"frameNo", order.frameNo},
            {"fate", toString(order.fate)}};
}

Json captureJson(log::CaptureExplanation const& capture) {
    return {{"requestNo", capture.requestNo},
            {"pid", orNull(capture.pid)},
            {"outcome", toString(capture.outcome)},
            {"isCertain", capture.isCertain()},
            {"waitedMs", orNull(capture.waitedMs)},
            {"earlyShutterNs", orNull(capture.earlyShutterNs)},
            {"tries", listOf(capture.tries,
                             [](log::TryExplanation const& attempt) { return toJson(attempt); })}};
}

Json countsJson(log::LineCounts const& counts) {
    return {{"lines", counts.lines},           {"processor", counts.processor},
            {"foreign", counts.foreign},       {"cut", counts.cut},
            {"outOfOrder", counts.outOfOrder}, {"interleaved", counts.interleaved},
            {"unassigned", counts.unassigned}, {"unrecognised", counts.unrecognised},
            {"errors", counts.errors}};
}

}  // namespace

Json toJson(log::TryExplanation const& attempt) {
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

Json toJson(log::Explanation const& explanation) {
    Json pending = Json::array();
    for (log::CaptureExplanation const& capture : explanation.captures) {
        if (capture.outcome == log::CaptureOutcome::Pending) {
            pending.push_back(capture.requestNo);
        }
    }
    return {{"captures", listOf(explanation.captures, captureJson)},
            {"pending", std::move(pending)},
            {"flushReturns", listOf(explanation.flushReturns,
                                    [](log::FlushReturn const& returned) {
                                        return Json{{"line", returned.line},
                                                    {"selector", returned.selector},
                                                    {"sets", returned.sets}};
                                    })},
            {"errors", listOf(explanation.errors,
                              [](log::LogError const& error) {
                                  return Json{{"line", error.line}, {"text", error.text}};
                              })},
            {"lines", countsJson(explanation.counts)}};
}

using Json = nlohmann::ordered_json;

namespace {

constexpr int kFormatVersion = 1;

Json recordingJson(run::ReplayResult const& result) {
    recording::RecordingFacts const& facts = result.facts;
    recording::MissingStates const& missing = facts.missing;
    return {{"path", result.path},
            {"frames", facts.frames},
            {"firstTimestampNs", result.firstTimestampNs},
            {"lengthNs", facts.lengthNs},
            {"framesPerSecond", facts.meanRateFps},
            {"medianIntervalNs", facts.medianIntervalNs},
            {"minIntervalNs", facts.minIntervalNs},
            {"maxIntervalNs", facts.maxIntervalNs},
            {"jitterNs", facts.jitterNs},
            {"gaps", facts.gaps},
            {"largestGapNs", facts.largestGapNs},
            {"framesWithError", facts.framesWithError},
            {"missingStates",
             {{"afMode", missing.afMode},
              {"afState", missing.afState},
              {"lensState", missing.lensState},
              {"aeStable", missing.aeStable},
              {"frameSync", missing.frameSync},
              {"sensorId", missing.sensorId},
              {"sensorMode", missing.sensorMode}}},
            {"notes", result.notes}};
}

Json optionsJson(run::ReplayResult const& result) {
    pipeline::ReplayOptions const& options = result.options;
    Json properties = Json::object();
    for (auto const& [key, value] : options.properties) {
        properties[key] = value;
    }
    return {{"policy", options.policy.name()},
            {"timeoutMs", options.policy.kind == pipeline::PolicyKind::Multiframe
                              ? Json(options.timeoutMs)
                              : Json(nullptr)},
            {"framesPerCapture", options.framesPerCapture},
            {"historyFrames", options.history},
            {"deliveryDelayNs", orNull(options.deliveryDelayNs)},
            {"reprocessDelayNs", orNull(options.reprocessDelayNs)},
            {"offsetMs", result.offsetMs},
            {"frameSync", options.frameSync},
            {"flushAtNs", options.flushesNs},
            {"dumpAtNs", options.dumpsNs},
            {"properties", properties}};
}

Json frameJson(pipeline::CaptureRecord const& capture, size_t index) {
    pipeline::FrameOutcome const& frame = capture.frames[index];
    return {{"index", index},
            {"served", toString(frame.served)},
            {"try", orNull(frame.tryIndex)},
            {"historyFrame", orNull(frame.historyFrame)},
            {"timestampNs", orNull(frame.timestampNs)},
            {"lagNs", orNull(capture.lagNs(frame))},
            {"waitNs", orNull(capture.waitNs(frame))},
            {"resultNs", orNull(frame.resultNs)},
            {"reportedTimestampNs", orNull(frame.reportedNs)}};
}

Json tryJson(pipeline::TryRecord const& attempt, log::TryExplanation const* explanation) {
    return {{"timeNs", attempt.timeNs},
            {"ageMs", attempt.ageMs},
            {"isRetry", attempt.isRetry},
            {"historyFrames", attempt.historyFrames},
            {"inFlightFrames", attempt.inFlightFrames},
            {"lockedFrames", attempt.lockedFrames},
            {"builtFrames", attempt.builtFrames},
            {"explanation", explanation != nullptr ? toJson(*explanation) : Json(nullptr)}};
}

Json captureJson(pipeline::CaptureRecord const& capture,
                 log::CaptureExplanation const* explanation) {
    Json modes = Json::array();
    for (auto const& [sensor, mode] : capture.sensorModes) {
        modes.push_back({{"sensorId", sensor}, {"sensorMode", mode}});
    }
    Json frames = Json::array();
    for (size_t index = 0; index < capture.frames.size(); ++index) {
        frames.push_back(frameJson(capture, index));
    }
    Json tries = Json::array();
    for (size_t i = 0; i < capture.tries.size(); ++i) {
        bool const isExplained = explanation != nullptr && i < explanation->tries.size();
        tries.push_back(tryJson(capture.tries[i], isExplained ? &explanation->tries[i] : nullptr));
    }
    return {{"requestNo", capture.requestNo},
            {"pressNs", capture.pressNs},
            {"requiredSensorModes", std::move(modes)},
            {"earlyShutterNs", orNull(capture.earlyShutterNs)},
            {"frames", std::move(frames)},
            {"tries", std::move(tries)}};
}

Json summaryJson(run::ReplayResult const& result) {
    run::ReplaySummary const& summary = result.summary;
    base::Spread const& lag = summary.lag;
    Json lagJson = nullptr;
    if (lag.count > 0) {
        lagJson = {{"count", lag.count},
                   {"minNs", lag.min},
                   {"medianNs", lag.median},
                   {"p95Ns", lag.p95},
                   {"maxNs", lag.max}};
    }
    return {{"captures", summary.captures},
            {"answeredCaptures", summary.answeredCaptures},
            {"frames", summary.frames},
            {"atOnce", summary.atOnce},
            {"waited", summary.waited},
            {"timedOut", summary.timedOut},
            {"flushed", summary.flushed},
            {"unanswered", summary.unanswered},
            {"withoutHistory", summary.withoutHistory},
            {"lag", std::move(lagJson)},
            {"droppedFrames", result.droppedFrames},
            {"logErrorLines", result.errorLines},
            {"failures", result.failures},
            {"isClean", result.isClean()}};
}

Json ledgerJson(run::ReplayResult const& result) {
    auto const& totals = result.ledger;
    Json unsettled = Json::array();
    for (host::LedgerLine const& line : result.unsettled) {
        unsettled.push_back({{"frameNo", line.frameNo},
                             {"requestNo", line.forRequestNo},
                             {"sinceNs", line.sinceNs},
                             {"isClone", line.isClone},
                             {"holder", host::toString(line.holder)}});
    }
    return {{"handedOut", totals.handedOut},
            {"returned", totals.returned},
            {"released", totals.released},
            {"consumed", totals.consumed},
            {"withProcessor", totals.withProcessor},
            {"withFrameBuilder", totals.withFrameBuilder},
            {"lost", totals.lost},
            {"balances", totals.balances()},
            {"longestHeldNs", result.longestHeldNs},
            {"unsettled", std::move(unsettled)}};
}

Json dumpsJson(run::ReplayResult const& result) {
    Json dumps = Json::array();
    for (run::DebugDump const& dump : result.dumps) {
        dumps.push_back({{"timeNs", dump.timeNs}, {"lines", dump.lines}});
    }
    return dumps;
}

Json deviceJson(run::DeviceVerdict const& verdict) {
    return {{"isSame", verdict.isSame()},
            {"operations", verdict.operations},
            {"operationsThatDiffer", verdict.operationsThatDiffer},
            {"builtFrames", verdict.builtFrames},
            {"sameFrames", verdict.sameFrames},
            {"differences", verdict.differences}};
}

}  // namespace

void writeJson(run::ReplayResult const& result, log::Explanation const* explanation,
               std::ostream& out) {
    // A capture's tries are those that its log lines tell of, in the same order.
    std::map<uint32_t, log::CaptureExplanation const*> reasons;
    if (explanation != nullptr) {
        for (log::CaptureExplanation const& capture : explanation->captures) {
            reasons.emplace(capture.requestNo, &capture);
        }
    }
    Json captures = Json::array();
    for (pipeline::CaptureRecord const& capture : result.captures) {
        auto const found = reasons.find(capture.requestNo);
        captures.push_back(captureJson(capture, found != reasons.end() ? found->second : nullptr));
    }
    Json document = {{"format", kFormatVersion},           {"version", VERSION},
                     {"recording", recordingJson(result)}, {"options", optionsJson(result)},
                     {"captures", std::move(captures)},    {"dumps", dumpsJson(result)},
                     {"summary", summaryJson(result)},     {"ledger", ledgerJson(result)}};
    if (result.faults) {
        document["faults"] = faultJson(result.options.faults, *result.faults);
    }
    if (result.device) {
        document["device"] = deviceJson(*result.device);
    }
    // A path need not be UTF-8.
    out << document.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
}

}  // namespace zebcam::tool::report
