#include "report/TextReport.h"

#include <fmt/format.h>

#include <iterator>

#include "base/Text.h"
#include "report/ExplanationText.h"
#include "report/TextBlocks.h"

namespace zebcam::tool::report {

namespace {

constexpr char kRow[] = "{:>7}  {:>11}  {:>5}  {:>13}  {:>10}  {:<10}  {:>11}  {:>18}\n";

std::string gapsOf(recording::RecordingFacts const& facts) {
    if (facts.gaps == 0) {
        return "no gaps";
    }
    return fmt::format("{} up to {} ms", counted(facts.gaps, "gap", "gaps"),
                       base::formatMs(facts.largestGapNs));
}

std::string missingOf(recording::RecordingFacts const& facts) {
    std::string text;
    recording::MissingStates const& missing = facts.missing;
    for (auto const& [name, count] : {std::pair{"AF mode", missing.afMode},
                                      {"AF state", missing.afState},
                                      {"lens state", missing.lensState},
                                      {"AE stable", missing.aeStable},
                                      {"frame sync", missing.frameSync},
                                      {"sensor id", missing.sensorId},
                                      {"sensor mode", missing.sensorMode}}) {
        if (count > 0) {
            text += fmt::format("{}{} of {}", text.empty() ? "" : ", ", name,
                                counted(count, "frame", "frames"));
        }
    }
    return text;
}

std::string optionalMs(std::optional<int64_t> ns) {
    return ns ? base::formatMs(*ns) : "-";
}

}  // namespace

std::string factsText(run::ReplayResult const& result) {
    recording::RecordingFacts const& facts = result.facts;
    std::string text = labelled("Recording", result.path);
    text += labelled(
        "", fmt::format("{} frames in {} s, {:.2f} frames/s, median interval {} ms, {}",
                        facts.frames, base::formatSeconds(facts.lengthNs), facts.meanRateFps,
                        base::formatMs(facts.medianIntervalNs), gapsOf(facts)));
    if (std::string const missing = missingOf(facts); !missing.empty()) {
        text += labelled("", "missing: " + missing);
    }
    if (facts.framesWithError > 0) {
        text += labelled(
            "", counted(facts.framesWithError, "frame", "frames") + " with an unusable image");
    }
    for (std::string const& note : result.notes) {
        text += labelled("", "note: " + note);
    }
    pipeline::ReplayOptions const& options = result.options;
    text +=
        labelled("Replay", fmt::format("policy {}, {} of {}, history of {}, "
                                       "ZSL offset {} ms{}",
                                       options.policy.name(),
                                       counted(result.summary.captures, "capture", "captures"),
                                       counted(options.framesPerCapture, "frame", "frames"),
                                       counted(options.history, "frame", "frames"), result.offsetMs,
                                       options.frameSync ? ", frame sync" : ""));
    return text + (result.faults ? labelled("Faults", result.faults->text()) : "");
}

std::string tableText(run::ReplayResult const& result) {
    fmt::memory_buffer text;
    auto const out = std::back_inserter(text);
    fmt::format_to(out, kRow, "capture", "pressed (s)", "frame", "history frame", "lag (ms)",
                   "served", "waited (ms)", "early shutter (ms)");
    for (pipeline::CaptureRecord const& capture : result.captures) {
        std::optional<int64_t> shutter = capture.earlyShutterNs;
        if (shutter) {
            *shutter -= capture.pressNs;
        }
        for (size_t index = 0; index < capture.frames.size(); ++index) {
            pipeline::FrameOutcome const& frame = capture.frames[index];
            fmt::format_to(out, kRow, capture.requestNo,
                           base::formatSeconds(capture.pressNs - result.firstTimestampNs), index,
                           frame.historyFrame ? std::to_string(*frame.historyFrame) : "-",
                           optionalMs(capture.lagNs(frame)), toString(frame.served),
                           optionalMs(capture.waitNs(frame)), optionalMs(shutter));
        }
    }
    return fmt::to_string(text);
}

std::string dumpsText(run::ReplayResult const& result) {
    std::string text;
    for (run::DebugDump const& dump : result.dumps) {
        text += fmt::format("Dump at {} s\n", base::formatSeconds(dump.timeNs));
        for (std::string const& line : dump.lines) {
            text += fmt::format("  {}\n", line);
        }
    }
    return text;
}

std::string summaryText(run::ReplayResult const& result) {
    run::ReplaySummary const& summary = result.summary;
    std::string const unanswered =
        summary.unanswered > 0 ? fmt::format(", {} UNANSWERED", summary.unanswered) : "";
    std::string const ordinary =
        summary.withoutHistory > 0
            ? fmt::format("; {} without a history frame", summary.withoutHistory)
            : "";
    std::string text = labelled(
        "Served", fmt::format("{} at once, {} waited, {} timed out, {} flushed{}, of {}{}",
                              summary.atOnce, summary.waited, summary.timedOut, summary.flushed,
                              unanswered, counted(summary.frames, "frame", "frames"), ordinary));
    base::Spread const& lag = summary.lag;
    text += labelled("Lag", lag.count == 0
                                ? "no frame came from the history"
                                : fmt::format("minimum {}, median {}, 95th percentile {}, maximum "
                                              "{} ms after the press",
                                              base::formatMs(lag.min), base::formatMs(lag.median),
                                              base::formatMs(lag.p95), base::formatMs(lag.max)));
    text += ledgerText(result.ledger, result.unsettled, result.firstTimestampNs);
    if (result.errorLines > 0) {
        text += labelled("Log", counted(result.errorLines, "error line", "error lines") +
                                    " (--log error shows them)");
    }
    for (std::string const& failure : result.failures) {
        text += labelled("Failure", failure);
    }
    return text + labelled("Result",
                           fmt::format("{} of {} answered, the ledger {}", summary.answeredCaptures,
                                       counted(summary.captures, "capture", "captures"),
                                       result.ledger.balances() ? "balances" : "DOES NOT BALANCE"));
}

std::string verdictText(run::DeviceVerdict const& verdict) {
    if (verdict.isSame()) {
        return labelled("Device",
                        fmt::format("same decisions in {} operations: {} of {} frames",
                                    verdict.operations, verdict.sameFrames, verdict.builtFrames));
    }
    std::string text =
        labelled("Device",
                 fmt::format("OTHER DECISIONS in {} of {} operations: {} of {} frames are the same",
                             verdict.operationsThatDiffer, verdict.operations, verdict.sameFrames,
                             verdict.builtFrames));
    for (std::string const& difference : verdict.differences) {
        text += labelled("", difference);
    }
    return text;
}

std::string textReport(run::ReplayResult const& result, log::Explanation const* explanation) {
    std::string text = factsText(result) + "\n" + tableText(result) + "\n";
    if (explanation != nullptr) {
        for (log::CaptureExplanation const& capture : explanation->captures) {
            text += captureText(capture) + "\n";
        }
    }
    if (!result.dumps.empty()) {
        text += dumpsText(result) + "\n";
    }
    text += summaryText(result);
    return result.device ? text + verdictText(*result.device) : text;
}

}  // namespace zebcam::tool::report
