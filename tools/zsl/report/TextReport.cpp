#include "report/Reports.h"

#include <fmt/format.h>

#include <cstring>
#include <iterator>

#include "base/Text.h"

namespace zebcam::tool::report {

using base::counted;

namespace {

std::string labelled(std::string_view label, std::string_view text) {
    return base::wrap(std::string(label), text, {.indent = 11});
}

/// The last lines of a run: what became of its frames and buffer sets, and what went wrong.

std::string servedText(run::ReplaySummary const& summary) {
    // In capitals, for it must not happen; what is usual is told also when it is 0.
    std::string const unanswered =
        summary.unanswered > 0 ? fmt::format(", {} UNANSWERED", summary.unanswered) : "";
    std::string const ordinary =
        summary.withoutHistory > 0
            ? fmt::format("; {} without a history frame", summary.withoutHistory)
            : "";
    return labelled("Served",
                    fmt::format("{} at once, {} waited, {} timed out, {} flushed{}, of {}{}",
                                summary.atOnce, summary.waited, summary.timedOut, summary.flushed,
                                unanswered, counted(summary.frames, "frame", "frames"), ordinary));
}

/// Each buffer set that did not come back has its time from boot time `startNs` on.
std::string ledgerText(host::BufferLedger::Totals const& totals,
                       std::vector<host::LedgerLine> const& unsettled, int64_t startNs) {
    std::string text = labelled(
        "Ledger", fmt::format("{} handed out, {} returned, {} consumed, {} released; "
                              "{} still out, {} lost",
                              totals.handedOut, totals.returned, totals.consumed, totals.released,
                              totals.withProcessor + totals.withFrameBuilder, totals.lost));
    for (host::LedgerLine const& line : unsettled) {
        text += labelled(
            "", fmt::format("frame {}, handed out for capture {} at {} s: {}", line.frameNo,
                            line.forRequestNo, base::formatSeconds(line.sinceNs - startNs),
                            host::toString(line.holder)));
    }
    return text;
}

std::string troublesText(uint64_t errorLines, std::vector<std::string> const& failures) {
    std::string text;
    // They need not be anybody's fault, so that they change no status.
    if (errorLines > 0) {
        text += labelled(
            "Log", counted(errorLines, "error line", "error lines") + " (--log error shows them)");
    }
    for (std::string const& failure : failures) {
        text += labelled("Failure", failure);
    }
    return text;
}

std::string resultText(run::ReplaySummary const& summary,
                       host::BufferLedger::Totals const& ledger) {
    return labelled("Result",
                    fmt::format("{} of {} answered, the ledger {}", summary.answeredCaptures,
                                counted(summary.captures, "capture", "captures"),
                                ledger.balances() ? "balances" : "DOES NOT BALANCE"));
}

constexpr char kRow[] = "{:>7}  {:>11}  {:>5}  {:>13}  {:>10}  {:<10}  {:>11}  {:>18}\n";

std::string gapsOf(recording::RecordingFacts const& facts) {
    if (facts.gaps == 0) {
        return "no gaps";
    }
    return fmt::format("{} up to {} ms", counted(facts.gaps, "gap", "gaps"),
                       base::formatMs(facts.largestGapNs));
}

// Most recordings lack none, or one that its phone never tells.
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
        // Relative to the press, like the lag that it foretells.
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

std::string lagText(base::Spread const& lag) {
    return labelled("Lag", lag.count == 0
                               ? "no frame came from the history"
                               : fmt::format("minimum {}, median {}, 95th percentile {}, maximum "
                                             "{} ms after the press",
                                             base::formatMs(lag.min), base::formatMs(lag.median),
                                             base::formatMs(lag.p95), base::formatMs(lag.max)));
}

}  // namespace

std::string verdictText(run::DeviceVerdict const& verdict) {
    if (verdict.isSame()) {
        return labelled("Device",
                        fmt::format("same decisions in {} operations: {} of {} frames",
                                    verdict.operations, verdict.sameFrames, verdict.builtFrames));
    }
    // In capitals: to be the same is what the recording is replayed for.
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
    // At the end, where a terminal shows it: what most people run a replay for.
    text += servedText(result.summary) + lagText(result.summary.lag) +
            ledgerText(result.ledger, result.unsettled, result.firstTimestampNs) +
            troublesText(result.errorLines, result.failures) +
            resultText(result.summary, result.ledger);
    return result.device ? text + verdictText(*result.device) : text;
}

namespace {

constexpr double kNsPerUs = 1e3;
constexpr char kTimeRow[] = "{:<11}{:>8} {:>10} {:>10} {:>10} {:>10}\n";

std::string micros(int64_t ns) {
    return fmt::format("{:.1f}", static_cast<double>(ns) / kNsPerUs);
}

std::string timeRow(char const* what, base::Distribution const& times) {
    return fmt::format(kTimeRow, what, times.count(), micros(times.quantile(0.5)),
                       micros(times.quantile(0.95)), micros(times.quantile(0.99)),
                       micros(times.max()));
}

std::string timesText(run::LiveResult const& result) {
    return fmt::format(kTimeRow, "Times (us)", "count", "median", "95 %", "99 %", "maximum") +
           timeRow("submission", result.times.submission) + timeRow("retry", result.times.retry) +
           timeRow("lock held", result.times.lockHeld);
}

std::string headText(run::LiveResult const& result) {
    pipeline::ReplayOptions const& replay = result.options.replay;
    return labelled("Live", fmt::format("{}, {:.2f} frames/s, {} s{}",
                                        result.source.empty() ? "generated frames" : result.source,
                                        result.fps, base::formatSeconds(result.status.elapsedNs),
                                        result.signal ? fmt::format(" (ended by {})",
                                                                    strsignal(*result.signal))
                                                      : "")) +
           labelled("Captures",
                    fmt::format("policy {}, {} every {} ms, history of {}, ZSL offset {} ms{}",
                                replay.policy.name(),
                                counted(replay.framesPerCapture, "frame", "frames"),
                                base::formatMs(result.options.pressEveryNs),
                                counted(replay.history, "frame", "frames"), result.offsetMs,
                                replay.frameSync ? ", frame sync" : ""));
}

std::string sensorText(run::LiveResult const& result) {
    return labelled(
        "Sensor",
        fmt::format(
            "{} arrived, {} dropped from the history; late by {:.0f} us at most, 95 % by {:.0f} us",
            counted(result.status.arrivedFrames, "frame", "frames"), result.droppedFrames,
            static_cast<double>(result.lateness.max()) / kNsPerUs,
            static_cast<double>(result.lateness.quantile(0.95)) / kNsPerUs));
}

std::string recorderText(run::LiveResult const& result) {
    if (!result.recorder) {
        return "";
    }
    auto const& [end, writeError, operations, unrecorded, bytes] = *result.recorder;
    std::string const why =
        writeError != 0 ? fmt::format(" ({})", std::strerror(writeError)) : std::string();
    // Whatever ended it early, what came before can be replayed.
    bool const isWhole = end == NSCam::v3::pipeline::model::ZslRecordingEnd::FINISHED;
    return labelled(
        "Recorded",
        fmt::format("{} operations, {} bytes in {}: {}{}", operations, bytes,
                    *result.options.recordPath,
                    isWhole ? "whole" : std::string("ENDED EARLY, ") + toString(end), why));
}

}  // namespace

// In columns, so that what changes is seen from line to line.
std::string statusLine(run::LiveStatus const& status) {
    return fmt::format(
        "{:>7} s  {:>7} frames  history {:>3}, in flight {:>2}, locked {:>2}  captures {:>5}, "
        "waiting {:>3}  lost {}\n",
        base::formatSeconds(status.elapsedNs), status.arrivedFrames, status.occupancy.history,
        status.occupancy.inFlight, status.occupancy.locked, status.captures.captures,
        status.captures.captures - status.captures.answeredCaptures, status.ledger.lost);
}

std::string liveReport(run::LiveResult const& result) {
    run::ReplaySummary const summary = result.summary();
    return headText(result) + sensorText(result) + "\n" + timesText(result) + "\n" +
           servedText(summary) +
           ledgerText(result.status.ledger, result.unsettled, result.startNs) +
           recorderText(result) + (result.faults ? labelled("Faults", result.faults->text()) : "") +
           troublesText(result.errorLines, result.failures) +
           resultText(summary, result.status.ledger);
}

}  // namespace zebcam::tool::report
