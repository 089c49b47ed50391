#include "report/JsonParts.h"

#include <cctype>
#include <limits>
#include <utility>

#include "Version.h"
#include "base/Text.h"
#include "recording/FrameStates.h"

namespace zebcam::tool::report {

namespace {

// Raised when a field changes its meaning or goes away, in any of the documents.
constexpr int kFormat = 2;

/// `unit` ends the names of the values.
Json spreadJson(base::Spread const& spread, std::string const& unit = "Ns") {
    // 0 would be a lag, and a good one.
    auto const known = [&](int64_t value) {
        return spread.count > 0 ? Json(value) : Json(nullptr);
    };
    return {{"count", spread.count},
            {"min" + unit, known(spread.min)},
            {"median" + unit, known(spread.median)},
            {"p95" + unit, known(spread.p95)},
            {"max" + unit, known(spread.max)}};
}

Json picturesJson(run::PictureSummary const& pictures) {
    auto const known = [&](double value) {
        return pictures.count > 0 ? Json(value) : Json(nullptr);
    };
    return {{"count", pictures.count},
            {"medianSharpness", known(pictures.medianSharpness)},
            {"medianSharpnessShare", known(pictures.medianShare)},
            {"p5SharpnessShare", known(pictures.p5Share)},
            {"belowHalf", pictures.belowHalf}};
}

Json pictureJson(recording::SensorFrame const& frame, std::optional<double> share) {
    if (!frame.picture) {
        return nullptr;
    }
    return {{"videoFrame", orNull(frame.videoFrame)},  {"sharpness", frame.picture->sharpness},
            {"sharpnessShare", orNull(share)},         {"motion", orNull(frame.picture->motion)},
            {"brightness", frame.picture->brightness}, {"clipped", frame.picture->clipped}};
}

char const* matchWord(recording::PictureMatch match) {
    switch (match) {
        case recording::PictureMatch::Column:
            return "column";
        case recording::PictureMatch::Count:
            return "count";
        case recording::PictureMatch::Time:
            return "time";
        case recording::PictureMatch::Start:
            return "start";
        case recording::PictureMatch::Itself:
            break;
    }
    return "itself";
}

Json shareJson(run::Share const& share) {
    return {{"count", share.count}, {"told", share.told}};
}

/// What the sensor told of a history frame that was chosen.
Json chosenJson(recording::SensorFrame const& frame, std::optional<double> sharpnessShare) {
    auto const word = [](std::optional<uint8_t> state, std::string (*name)(uint8_t)) {
        return state ? Json(wordOf(name(*state))) : Json(nullptr);
    };
    return {{"exposureNs", orNull(recording::exposureNs(frame))},
            {"iso", orNull(frame.iso)},
            {"focusDistance", orNull(frame.focusDistance)},
            {"afMode", word(frame.afMode, recording::afModeName)},
            {"afState", word(frame.afState, recording::afStateName)},
            {"lensState", word(frame.lensState, recording::lensStateName)},
            {"isFocusSettled", orNull(recording::isFocusSettled(frame))},
            {"isExposureSettled", orNull(recording::isExposureSettled(frame))},
            {"hasImageError", frame.hasError},
            {"picture", pictureJson(frame, sharpnessShare)}};
}

}  // namespace

Json withoutNulls(Json const& object) {
    // An object even if nothing is left, which a reader expects.
    Json known = Json::object();
    for (auto const& [key, value] : object.items()) {
        if (!value.is_null()) {
            known[key] = value;
        }
    }
    return known;
}

std::string wordOf(std::string_view name) {
    std::string word;
    bool isStart = false;
    for (char const c : name) {
        if (c == ' ') {
            isStart = true;
        } else {
            word += isStart ? static_cast<char>(std::toupper(static_cast<unsigned char>(c))) : c;
            isStart = false;
        }
    }
    return word;
}

int64_t nsOfMs(int64_t ms) {
    // A property or a log line may hold any number.
    int64_t ns = 0;
    if (__builtin_mul_overflow(ms, base::NS_PER_MS, &ns)) {
        return ms < 0 ? std::numeric_limits<int64_t>::min() : std::numeric_limits<int64_t>::max();
    }
    return ns;
}

Json documentOf(char const* command, bool isClean, base::Provenance const& provenance) {
    return {{"format", kFormat},
            {"version", VERSION},
            {"command", command},
            {"run",
             {{"revision", orNull(provenance.revision)},
              {"commandLine", orNull(provenance.commandLine)},
              {"date", orNull(provenance.date)}}},
            {"isClean", isClean}};
}

Json verdictJson(run::Verdict const& verdict) {
    return {{"level", toString(verdict.level())},
            {"reasons", listOf(verdict.reasons, [](run::VerdictReason const& reason) {
                 return Json{{"level", toString(reason.level)},
                             {"word", reason.word},
                             {"count", reason.count},
                             {"total", reason.total},
                             {"text", reason.text},
                             {"details", reason.details}};
             })}};
}

Json videoJson(std::optional<recording::VideoFacts> const& video) {
    if (!video) {
        return nullptr;
    }
    return {{"path", video->path},
            {"pictures", video->pictures},
            {"width", video->width},
            {"height", video->height},
            {"rotation", video->rotation},
            {"matchedBy", matchWord(video->match)},
            {"framesWithoutPicture", video->framesWithout}};
}

Json recordingJson(std::string const& path, std::vector<std::string> const& notes,
                   recording::RecordingFacts const& facts, int64_t firstTimestampNs) {
    recording::MissingStates const& missing = facts.missing;
    Json absent = Json::array();
    for (recording::Column const column : facts.absent) {
        absent.push_back(recording::wordOf(column));
    }
    Json data = Json::array();
    for (recording::DataColumn const& column : facts.dataColumns) {
        data.push_back({{"name", column.name}, {"tag", column.tag}});
    }
    return {{"path", orNull(path)},
            {"frames", facts.frames},
            {"framesWithError", facts.framesWithError},
            {"firstTimestampNs", firstTimestampNs},
            {"lengthNs", facts.lengthNs},
            {"framesPerSecond", facts.meanRateFps},
            {"medianIntervalNs", facts.medianIntervalNs},
            {"minIntervalNs", facts.minIntervalNs},
            {"maxIntervalNs", facts.maxIntervalNs},
            {"jitterNs", facts.jitterNs},
            {"gaps", facts.gaps},
            {"largestGapNs", facts.largestGapNs},
            {"missingStates",
             {{"afMode", missing.afMode},
              {"afState", missing.afState},
              {"lensState", missing.lensState},
              {"aeStable", missing.aeStable},
              {"frameSync", missing.frameSync},
              {"sensorId", missing.sensorId},
              {"sensorMode", missing.sensorMode}}},
            {"absentColumns", std::move(absent)},
            {"dataColumns", std::move(data)},
            {"video", videoJson(facts.video)},
            {"notes", notes}};
}

Json optionsJson(pipeline::ReplayOptions const& options, std::optional<int64_t> offsetMs) {
    // The others have a fixed one, which no option changes.
    bool const hasTimeout = options.policy.kind == pipeline::PolicyKind::Multiframe;
    auto const objectOf = [](auto const& pairs) {
        Json object = Json::object();
        for (auto const& [key, value] : pairs) {
            object[key] = value;  // of one that is given twice, the last counts
        }
        return object;
    };
    return {{"policy", options.policy.name()},
            {"policyName", orNull(options.policy.ownName)},
            {"policyOptions", objectOf(options.policyParameters)},
            {"timeoutNs", hasTimeout ? Json(nsOfMs(options.timeoutMs)) : Json(nullptr)},
            {"framesPerCapture", options.framesPerCapture},
            {"historySize", options.history},
            {"deliveryDelayNs", orNull(options.deliveryDelayNs)},
            {"reprocessDelayNs", orNull(options.reprocessDelayNs)},
            {"offsetNs", offsetMs ? Json(nsOfMs(*offsetMs)) : Json(nullptr)},
            {"frameSync", options.frameSync},
            {"fromNs", orNull(options.input.fromNs)},
            {"toNs", orNull(options.input.toNs)},
            {"anyRate", options.input.anyRate},
            {"video", orNull(options.input.video)},
            {"pressAtNs", options.pressesNs},
            {"pressAtBootNs", options.pressBootTimesNs},
            {"flushAtNs", options.flushesNs},
            {"dumpAtNs", options.dumpsNs},
            {"properties", objectOf(options.properties)}};
}

Json summaryJson(run::ReplaySummary const& summary, uint64_t droppedFrames, uint64_t errorLines) {
    return {{"captures", summary.captures},
            {"answeredCaptures", summary.answeredCaptures},
            {"frames", summary.frames},
            {"atOnce", summary.atOnce},
            {"waited", summary.waited},
            {"timedOut", summary.timedOut},
            {"flushed", summary.flushed},
            {"unanswered", summary.unanswered},
            {"withoutHistory", summary.withoutHistory},
            {"lag", spreadJson(summary.lag)},
            {"wait", spreadJson(summary.wait)},
            {"distance", spreadJson(summary.distance)},
            {"chosen",
             {{"focusSettled", shareJson(summary.focusSettled)},
              {"exposureSettled", shareJson(summary.exposureSettled)},
              {"exposure", spreadJson(summary.exposure)},
              {"iso", spreadJson(summary.iso, "")},
              {"pictures", picturesJson(summary.pictures)}}},
            {"droppedFrames", droppedFrames},
            {"logErrorLines", errorLines}};
}

Json ledgerJson(host::BufferLedger::Totals const& totals, int64_t longestHeldNs,
                std::vector<host::LedgerLine> const* unsettled) {
    // A comparison keeps the totals of its runs only.
    Json lines = nullptr;
    if (unsettled != nullptr) {
        lines = listOf(*unsettled, [](host::LedgerLine const& line) {
            return Json{{"frameNo", line.frameNo},
                        {"requestNo", line.forRequestNo},
                        {"sinceNs", line.sinceNs},
                        {"isClone", line.isClone},
                        {"holder", wordOf(host::toString(line.holder))}};
        });
    }
    return {{"balances", totals.balances()},
            {"handedOut", totals.handedOut},
            {"returned", totals.returned},
            {"released", totals.released},
            {"consumed", totals.consumed},
            {"withProcessor", totals.withProcessor},
            {"withFrameBuilder", totals.withFrameBuilder},
            {"lost", totals.lost},
            {"longestHeldNs", totals.handedOut > 0 ? Json(longestHeldNs) : Json(nullptr)},
            {"unsettled", std::move(lines)}};
}

Json faultsJson(pipeline::FaultOptions const& options,
                std::optional<pipeline::FaultTally> const& tally) {
    if (!tally) {
        return nullptr;
    }
    Json strikes = Json::object();
    for (auto const& [kind, count] : tally->strikes) {
        strikes[std::string(pipeline::traitsOf(kind).name)] = count;
    }
    return {{"randomSeed", tally->randomSeed},
            {"rules", listOf(options.rules, [](auto const& rule) { return toString(rule); })},
            {"strikes", std::move(strikes)}};
}

Json frameJson(pipeline::CaptureRecord const& capture, size_t index) {
    pipeline::FrameOutcome const& frame = capture.frames[index];
    return {
        {"index", index},
        {"served", wordOf(toString(frame.served))},
        {"try", orNull(frame.tryIndex)},
        {"frameNo", orNull(frame.historyFrame)},
        {"timestampNs", orNull(frame.timestampNs)},
        {"lagNs", orNull(capture.lagNs(frame))},
        {"waitNs", orNull(capture.waitNs(frame))},
        {"resultNs", orNull(frame.resultNs)},
        {"reportedTimestampNs", orNull(frame.reportedNs)},
        {"pictureFile", orNull(frame.pictureFile)},
        {"chosen", frame.chosen ? chosenJson(*frame.chosen, frame.sharpnessShare) : Json(nullptr)}};
}

}  // namespace zebcam::tool::report
