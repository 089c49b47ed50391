#include "report/JsonReport.h"

#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <ostream>
#include <string>

#include "Version.h"
#include "explain/ExplanationJson.h"
#include "report/FaultJson.h"

namespace zebcam::tool {

using Json = nlohmann::ordered_json;

namespace {

constexpr int kFormatVersion = 1;

template <typename T>
Json orNull(std::optional<T> const& value) {
    return value ? Json(*value) : Json(nullptr);
}

Json recordingJson(ReplayResult const& result) {
    RecordingFacts const& facts = result.facts;
    MissingStates const& missing = facts.missing;
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

Json optionsJson(ReplayResult const& result) {
    ReplayOptions const& options = result.options;
    Json properties = Json::object();
    for (auto const& [key, value] : options.properties) {
        properties[key] = value;
    }
    return {{"policy", options.policy.name()},
            {"timeoutMs", options.policy.kind == PolicyKind::Multiframe ? Json(options.timeoutMs)
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

Json frameJson(CaptureRecord const& capture, size_t index) {
    FrameOutcome const& frame = capture.frames[index];
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

Json tryJson(TryRecord const& attempt, TryExplanation const* explanation) {
    return {{"timeNs", attempt.timeNs},
            {"ageMs", attempt.ageMs},
            {"isRetry", attempt.isRetry},
            {"historyFrames", attempt.historyFrames},
            {"inFlightFrames", attempt.inFlightFrames},
            {"lockedFrames", attempt.lockedFrames},
            {"builtFrames", attempt.builtFrames},
            {"explanation", explanation != nullptr ? toJson(*explanation) : Json(nullptr)}};
}

Json captureJson(CaptureRecord const& capture, CaptureExplanation const* explanation) {
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

Json summaryJson(ReplayResult const& result) {
    ReplaySummary const& summary = result.summary;
    Spread const& lag = summary.lag;
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

Json ledgerJson(ReplayResult const& result) {
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

Json dumpsJson(ReplayResult const& result) {
    Json dumps = Json::array();
    for (DebugDump const& dump : result.dumps) {
        dumps.push_back({{"timeNs", dump.timeNs}, {"lines", dump.lines}});
    }
    return dumps;
}

Json deviceJson(DeviceVerdict const& verdict) {
    return {{"isSame", verdict.isSame()},
            {"operations", verdict.operations},
            {"operationsThatDiffer", verdict.operationsThatDiffer},
            {"builtFrames", verdict.builtFrames},
            {"sameFrames", verdict.sameFrames},
            {"differences", verdict.differences}};
}

}  // namespace

void writeJson(ReplayResult const& result, Explanation const* explanation, std::ostream& out) {
    // A capture's tries are those that its log lines tell of, in the same order.
    std::map<uint32_t, CaptureExplanation const*> reasons;
    if (explanation != nullptr) {
        for (CaptureExplanation const& capture : explanation->captures) {
            reasons.emplace(capture.requestNo, &capture);
        }
    }
    Json captures = Json::array();
    for (CaptureRecord const& capture : result.captures) {
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

}  // namespace zebcam::tool
