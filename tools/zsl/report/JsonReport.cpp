#include "report/Reports.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <ostream>
#include <string_view>
#include <utility>

#include "report/Answers.h"
#include "report/JsonParts.h"

namespace zebcam::tool::report {

namespace {

Json attemptJson(pipeline::TryRecord const& attempt, log::TryExplanation const* explanation) {
    return {{"timeNs", attempt.timeNs},
            {"ageNs", nsOfMs(attempt.ageMs)},
            {"isRetry", attempt.isRetry},
            {"historyFrames", attempt.historyFrames},
            {"inFlightFrames", attempt.inFlightFrames},
            {"lockedFrames", attempt.lockedFrames},
            {"builtFrames", attempt.builtFrames},
            {"faults", pipeline::namesOf(attempt.faults)},
            {"repeats", attempt.repeats},
            {"lastRepeatNs", orNull(attempt.lastRepeatNs)},
            {"explanation", explanation != nullptr ? tryJson(*explanation) : Json(nullptr)}};
}

Json struckFramesJson(std::vector<pipeline::ReportedFrame> const& reported) {
    Json frames = Json::array();
    for (pipeline::ReportedFrame const& frame : reported) {
        if (frame.faults.kinds.any()) {
            frames.push_back({{"frameNo", frame.frame.frameNo},
                              {"faults", pipeline::namesOf(frame.faults.kinds)}});
        }
    }
    return frames;
}

Json deviceJson(run::DeviceVerdict const& verdict) {
    return {{"isSame", verdict.isSame()},
            {"operations", verdict.operations},
            {"operationsThatDiffer", verdict.operationsThatDiffer},
            {"builtFrames", verdict.builtFrames},
            {"sameFrames", verdict.sameFrames},
            {"differences", verdict.differences}};
}

/// The captures in their order, each made when it is wanted: together they may take more memory
/// than the replay.
void forEachCapture(recording::Recording const& recording, run::ReplayResult const& result,
                    log::Explanation const* explanation,
                    std::function<void(Json capture)> const& take) {
    auto const reasons = explanationsOf(result.captures, explanation);
    std::vector<std::string> const answers =
        explanation != nullptr ? answersOf(ReplayFrames(recording, result), result, *explanation)
                               : std::vector<std::string>(result.captures.size());
    for (size_t i = 0; i < result.captures.size(); ++i) {
        take(captureJson(result.captures[i], reasons[i], answers[i]));
    }
}

Json replayJson(run::ReplayResult const& result, base::Provenance const& provenance,
                Json captures) {
    Json json = documentOf("replay", result.isClean(), provenance);
    json["verdict"] = verdictJson(verdictOf(result));
    json["recording"] =
        recordingJson(result.path, result.notes, result.facts, result.firstTimestampNs);
    json["options"] = optionsJson(result.options, result.offsetMs);
    json["captures"] = std::move(captures);
    json["dumps"] = listOf(result.dumps, [](run::DebugDump const& dump) {
        return Json{{"timeNs", dump.timeNs}, {"lines", dump.lines}};
    });
    json["summary"] = summaryJson(result.summary, result.droppedFrames, result.errorLines);
    json["ledger"] = ledgerJson(result.ledger, result.longestHeldNs, &result.unsettled);
    json["faults"] = faultsJson(result.options.faults, result.faults);
    if (result.faults) {
        json["faults"]["frames"] = struckFramesJson(result.reported);
    }
    json["limits"] = listOf(result.limits, [](run::LimitCheck const& limit) {
        return Json{
            {"limit", limit.limit}, {"found", orNull(limit.found)}, {"isBroken", limit.isBroken}};
    });
    json["device"] = result.device ? deviceJson(*result.device) : Json(nullptr);
    json["failures"] = result.failures;
    return json;
}

std::string indentedText(Json const& json) {
    // A path need not be UTF-8, which JSON must be.
    return json.dump(2, ' ', false, Json::error_handler_t::replace);
}

}  // namespace

Json captureJson(pipeline::CaptureRecord const& capture, log::CaptureExplanation const* explanation,
                 std::string const& answer) {
    Json frames = Json::array();
    for (size_t index = 0; index < capture.frames.size(); ++index) {
        frames.push_back(frameJson(capture, index));
    }
    Json tries = Json::array();
    for (size_t i = 0; i < capture.tries.size(); ++i) {
        // A capture's tries are those that its log lines tell of, in the same order.
        bool const isExplained = explanation != nullptr && i < explanation->tries.size();
        tries.push_back(
            attemptJson(capture.tries[i], isExplained ? &explanation->tries[i] : nullptr));
    }
    return {{"requestNo", capture.requestNo},
            {"pressNs", capture.pressNs},
            {"requiredSensorModes",
             listOf(capture.sensorModes,
                    [](auto const& required) {
                        return Json{{"sensorId", required.first}, {"sensorMode", required.second}};
                    })},
            {"earlyShutterNs", orNull(capture.earlyShutterNs)},
            {"pressFrame", orNull(capture.pressFrame)},
            {"pressPictureFile", orNull(capture.pressPictureFile)},
            {"faults", pipeline::namesOf(capture.faults)},
            {"answer", orNull(answer)},
            {"frames", std::move(frames)},
            {"tries", std::move(tries)}};
}

Json toJson(recording::Recording const& recording, run::ReplayResult const& result,
            log::Explanation const* explanation, base::Provenance const& provenance) {
    Json captures = Json::array();
    forEachCapture(recording, result, explanation,
                   [&](Json capture) { captures.push_back(std::move(capture)); });
    return replayJson(result, provenance, std::move(captures));
}

void writeJson(recording::Recording const& recording, run::ReplayResult const& result,
               log::Explanation const* explanation, base::Provenance const& provenance,
               std::ostream& out) {
    constexpr std::string_view kEmpty = "\n  \"captures\": []";
    constexpr std::string_view kIndent = "    ";
    std::string const text = indentedText(replayJson(result, provenance, Json::array()));
    // The only such line: texts have no line ends, and what is deeper is further to the right.
    size_t const place = text.find(kEmpty) + kEmpty.size() - 1;
    out << std::string_view(text).substr(0, place);
    bool isFirst = true;
    forEachCapture(recording, result, explanation, [&](Json const& capture) {
        std::string const lines = indentedText(capture);
        out << (std::exchange(isFirst, false) ? "\n" : ",\n") << kIndent;
        for (size_t begin = 0; begin < lines.size();) {
            size_t const end = std::min(lines.find('\n', begin), lines.size() - 1) + 1;
            out << std::string_view(lines).substr(begin, end - begin)
                << (end < lines.size() ? kIndent : std::string_view());
            begin = end;
        }
    });
    out << (isFirst ? "" : "\n  ") << std::string_view(text).substr(place) << '\n';
}

namespace {

Json distributionJson(base::Distribution const& times) {
    bool const isKnown = times.count() > 0;
    auto const known = [&](int64_t ns) { return isKnown ? Json(ns) : Json(nullptr); };
    return {{"count", times.count()},
            {"minNs", known(times.min())},
            {"medianNs", known(times.quantile(0.5))},
            {"p95Ns", known(times.quantile(0.95))},
            {"p99Ns", known(times.quantile(0.99))},
            {"maxNs", known(times.max())},
            {"totalNs", std::llround(times.total())}};
}

/// A run without end keeps no frames, so that some of what a replay tells is not known.
Json liveSummaryJson(run::LiveResult const& result) {
    Json json = summaryJson(result.summary(), result.droppedFrames, result.errorLines);
    if (!result.camera) {
        for (char const* const unknown : {"distance", "chosen"}) {
            json[unknown] = nullptr;
        }
    }
    return json;
}

Json cameraJson(picture::CameraFacts const& camera) {
    return {{"source", camera.source},
            {"format", camera.format},
            {"width", camera.width},
            {"height", camera.height},
            {"clock", toString(camera.clock)},
            {"intervalNs", camera.intervalNs},
            {"pictures", camera.pictures},
            {"droppedPictures", camera.dropped},
            {"brokenPictures", camera.broken},
            {"replacedTimes", camera.replacedTimes},
            {"resizedPictures", camera.resized},
            {"end", orNull(camera.end)},
            {"hasBrokenOff", camera.hasBrokenOff}};
}

Json logJson(std::optional<base::LineWriter::Counts> const& log) {
    return log ? Json{{"lines", log->lines}, {"droppedLines", log->dropped}} : Json(nullptr);
}

Json recorderJson(run::LiveResult const& result) {
    if (!result.recorder) {
        return nullptr;
    }
    return {{"path", *result.options.recordPath},
            {"end", wordOf(toString(result.recorder->end))},
            {"writeErrno", result.recorder->writeError},
            {"operations", result.recorder->operations},
            {"unrecorded", result.recorder->unrecorded},
            {"bytesWritten", result.recorder->bytesWritten}};
}

}  // namespace

Json toJson(run::LiveResult const& result, recording::Recording const* recording,
            base::Provenance const& provenance) {
    run::LiveOptions const& options = result.options;
    Json json = documentOf(result.camera ? "camera" : "live", result.isClean(), provenance);
    json["verdict"] = verdictJson(verdictOf(result));
    json["elapsedNs"] = result.status.elapsedNs;
    json["plannedNs"] = orNull(result.plannedNs);
    json["endedBySignal"] = orNull(result.signal);
    if (result.camera) {
        json["camera"] = cameraJson(*result.camera);
        json["captures"] = listOf(result.captures, [](pipeline::CaptureRecord const& capture) {
            return captureJson(capture, nullptr, "");
        });
    }
    if (recording != nullptr) {
        json["recording"] =
            recordingJson(recording->path, recording->notes, recording::computeFacts(*recording),
                          recording->frames.front().timestampNs);
    }
    json["options"] = optionsJson(options.replay, result.offsetMs);
    json["options"]["durationNs"] = orNull(options.durationNs);
    json["options"]["pressEveryNs"] = orNull(options.pressEveryNs);
    json["options"]["dumpEveryNs"] = options.dumpEveryNs;
    json["sensor"] = {{"arrivedFrames", result.status.arrivedFrames},
                      {"lateness", distributionJson(result.lateness)}};
    json["times"] = {{"submission", distributionJson(result.times.submission)},
                     {"retry", distributionJson(result.times.retry)},
                     {"lockHeld", distributionJson(result.times.lockHeld)},
                     {"selection", distributionJson(result.times.selection)},
                     {"policy", distributionJson(result.times.policy)}};
    // A run of days takes too many to keep what they say.
    json["dumpCount"] = result.status.dumps;
    json["summary"] = liveSummaryJson(result);
    json["ledger"] = ledgerJson(result.status.ledger, result.longestHeldNs, &result.unsettled);
    if (!result.camera) {  // which has enough of its own
        json["faults"] = faultsJson(options.replay.faults, result.faults);
    }
    json["recorder"] = recorderJson(result);
    json["log"] = logJson(result.log);
    json["failures"] = result.failures;
    return json;
}

namespace {

Json refusalsJson(compare::RefusalCounts const& refusals, compare::OwnRefusals const& own) {
    Json json = {{"total", refusals.total()}};
    for (size_t i = 0; i < refusals.byCriterion.size(); ++i) {
        auto const criterion = static_cast<log::Criterion>(i);
        // Frames without a criterion were not refused.
        if (criterion != log::Criterion::None) {
            json[wordOf(log::infoOf(criterion).name)] = refusals.byCriterion[i];
        }
    }
    json["own"] = listOf(own, [](auto const& refused) {
        return Json{{"criterion", refused.first}, {"count", refused.second}};
    });
    return json;
}

Json fieldsJson(compare::RunNumbers const& numbers) {
    Json fields = Json::object();
    for (compare::ComparisonField const& field : compare::comparisonFields()) {
        // A count stays a whole number.
        compare::FieldValue const value = field.value(numbers);
        auto const* const count = std::get_if<uint64_t>(&value);
        fields[field.name] = count != nullptr ? Json(*count) : orNull(compare::asNumber(value));
    }
    return fields;
}

/// What rows and totals have in common; null where the run failed.
void addNumbers(compare::ComparisonRow const& row, Json& json) {
    bool const isThere = row.numbers.has_value();
    compare::RunNumbers const numbers = row.numbers.value_or(compare::RunNumbers());
    json["fields"] = isThere ? fieldsJson(numbers) : Json(nullptr);
    json["summary"] = isThere
                          ? summaryJson(numbers.summary, numbers.droppedFrames, numbers.errorLines)
                          : Json(nullptr);
    json["refusals"] = isThere ? refusalsJson(numbers.refusals, row.ownRefusals) : Json(nullptr);
    json["ledger"] =
        isThere ? ledgerJson(numbers.ledger, numbers.longestHeldNs, nullptr) : Json(nullptr);
}

/// A row has the fields of its replay's document that are short enough for a table.
Json rowJson(compare::ComparisonRow const& row, std::vector<compare::Limit> const& limits) {
    Json json = {{"recording", {{"path", row.recording}, {"video", videoJson(row.video)}}},
                 {"options", optionsJson(row.options, row.offsetMs())},
                 {"status", row.status()},
                 {"problems", row.problems},
                 {"report", row.report.empty() ? Json(nullptr) : Json(row.report)},
                 {"brokenLimits", Json::array()}};
    // The row has them as texts for people.
    for (compare::Limit const& limit : limits) {
        if (row.numbers && limit.brokenBy(*row.numbers)) {
            json["brokenLimits"].push_back(
                {{"limit", limit.text()},
                 {"found", orNull(compare::asNumber(limit.field().value(*row.numbers)))}});
        }
    }
    addNumbers(row, json);
    return json;
}

/// How a comparison is to be taken: by its runs, and by what they served.
run::Verdict comparisonVerdict(compare::Comparison const& comparison) {
    std::vector<compare::ComparisonRow> const& rows = comparison.rows;
    std::vector<compare::ComparisonRow> const& totals = comparison.totals.rows;
    run::Verdict verdict;
    auto const add = [&](run::Level level, char const* word, uint64_t count, uint64_t total,
                         char const* what) {
        if (count > 0) {
            verdict.reasons.push_back(
                {level, word, count, total, fmt::format("{} of {} {}", count, total, what), {}});
        }
    };
    auto const runsThatAre = [&](std::string_view status) {
        return static_cast<uint64_t>(std::count_if(
            rows.begin(), rows.end(),
            [&](compare::ComparisonRow const& row) { return row.status() == status; }));
    };
    uint64_t frames = 0, timedOut = 0, flushed = 0;
    for (compare::ComparisonRow const& row : rows) {
        frames += row.numbers ? row.numbers->summary.frames : 0;
        timedOut += row.numbers ? row.numbers->summary.timedOut : 0;
        flushed += row.numbers ? row.numbers->summary.flushed : 0;
    }
    add(run::Level::Bad, "failed", runsThatAre("failed"), rows.size(), "runs failed");
    add(run::Level::Bad, "problem", runsThatAre("problem"), rows.size(), "runs have problems");
    add(run::Level::Bad, "limit", runsThatAre("limit"), rows.size(), "runs break a limit");
    add(run::Level::Bad, "worse", runsThatAre("worse"), rows.size(),
        "runs are worse than the baseline's");
    // Of many runs that are a little different none need be worse by itself.
    add(run::Level::Bad, "worseTotal",
        static_cast<uint64_t>(std::count_if(
            totals.begin(), totals.end(),
            [](compare::ComparisonRow const& total) { return !total.worse.empty(); })),
        totals.size(), "totals are worse than the baseline's");
    if (comparison.since && comparison.since->matched == 0) {
        add(run::Level::Bad, "unmatched", rows.size(), rows.size(),
            "runs have no like in the baseline");
    }
    add(run::Level::Doubtful, "timedOut", timedOut, frames, "frames timed out");
    add(run::Level::Doubtful, "flushed", flushed, frames, "frames were flushed");
    add(run::Level::Good, "ok", runsThatAre("ok"), rows.size(),
        "runs are in order and within the limits");
    return verdict;
}

Json totalJson(compare::ComparisonRow const& total) {
    Json json = {{"options", optionsJson(total.options, total.offsetMs())}};
    addNumbers(total, json);
    return json;
}

Json rankingJson(compare::Ranking const& ranking) {
    return {{"field", ranking.field->name},
            {"better", ranking.field->better == compare::Better::Less ? "less" : "more"},
            {"places", listOf(ranking.places, [](compare::Place const& place) {
                 return Json{{"total", place.setting},
                             {"value", orNull(compare::asNumber(place.value))},
                             {"ratio", orNull(place.ratio)}};
             })}};
}

Json sinceJson(compare::Since const& since) {
    return {{"path", since.path},
            {"version", since.version},
            {"tolerances", since.tolerances},
            {"matchedRows", since.matched},
            {"newRows", since.added},
            {"goneRows", since.gone},
            {"hasTotals", since.hasTotals},
            {"changes", listOf(since.changes, [](compare::Change const& change) {
                 Json const place(change.row);
                 return Json{{"row", change.isOfTotal ? Json(nullptr) : place},
                             {"total", change.isOfTotal ? place : Json(nullptr)},
                             {"field", change.field->name},
                             {"was", orNull(change.was)},
                             {"is", orNull(change.is)},
                             {"trend", toString(change.trend)}};
             })}};
}

}  // namespace

Json toJson(compare::Comparison const& comparison, base::Provenance const& provenance) {
    Json json = documentOf("compare", comparison.isGood(), provenance);
    json["verdict"] =
        comparison.rows.empty() ? Json(nullptr) : verdictJson(comparisonVerdict(comparison));
    json["limits"] =
        listOf(comparison.limits, [](compare::Limit const& limit) { return limit.text(); });
    json["rows"] =
        listOf(comparison.rows, [&](auto const& row) { return rowJson(row, comparison.limits); });
    json["totals"] = {{"recordings", comparison.totals.recordings},
                      {"leftOutRecordings", comparison.totals.leftOut},
                      {"rows", listOf(comparison.totals.rows, totalJson)}};
    json["rankings"] = listOf(comparison.rankings, rankingJson);
    json["baseline"] = comparison.since ? sinceJson(*comparison.since) : Json(nullptr);
    return json;
}

Json toJson(recording::GeneratorOptions const& options, recording::Recording const& made,
            base::Provenance const& provenance) {
    // What cannot be made or written is an error and leaves no document.
    Json json = documentOf("generate", true, provenance);
    json["recording"] = recordingJson(made.path, made.notes, recording::computeFacts(made),
                                      made.frames.front().timestampNs);
    json["options"] = {{"frames", options.frames},
                       {"framesPerSecond", options.fps},
                       {"randomSeed", options.seedValue},
                       {"startNs", options.startNs},
                       {"firstFrameNo", options.firstFrameNo},
                       {"intervalExcessPpm", options.intervalExcessPpm},
                       {"jitterNs", options.jitterNs},
                       {"lateRate", options.lateRate},
                       {"gapRate", options.gapRate},
                       {"exposureNs", orNull(options.exposureNs)},
                       {"exposureDriftRate", options.exposureDriftRate},
                       {"exposureJumpRate", options.exposureJumpRate},
                       {"scanRate", options.scanRate},
                       {"strangeAfStateRate", options.strangeAfStateRate},
                       {"missingAfStateRate", options.missingAfStateRate},
                       {"errorRate", options.errorRate},
                       {"unsyncedRate", options.unsyncedRate}};
    return json;
}

void writeJson(Json const& document, std::ostream& out) {
    out << indentedText(document) << '\n';
}

}  // namespace zebcam::tool::report
