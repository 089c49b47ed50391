#include "report/TextReport.h"

#include <fmt/format.h>

#include <iterator>
#include <string_view>
#include <vector>

#include "explain/ExplanationText.h"
#include "text/Duration.h"

namespace zebcam::tool {
namespace {

constexpr size_t kColumns = 100;
constexpr size_t kLabelWidth = 11;
constexpr char kRow[] = "{:>7}  {:>11}  {:>5}  {:>13}  {:>10}  {:<10}  {:>11}  {:>18}\n";

/// `text` under a label, broken at blanks.
std::string labelled(std::string_view label, std::string_view text) {
    std::string out = fmt::format("{:<{}}", label, kLabelWidth);
    size_t const width = kColumns - kLabelWidth;
    while (text.size() > width) {
        size_t cut = text.rfind(' ', width);
        if (cut == std::string_view::npos) {
            cut = text.find(' ');
        }
        if (cut == std::string_view::npos) {
            break;
        }
        out += fmt::format("{}\n{:{}}", text.substr(0, cut), "", kLabelWidth);
        text.remove_prefix(cut + 1);
    }
    out += text;
    return out + "\n";
}

std::string counted(size_t count, std::string_view one, std::string_view many) {
    return fmt::format("{} {}", count, count == 1 ? one : many);
}

std::string gapsOf(RecordingFacts const& facts) {
    if (facts.gaps == 0) {
        return "no gaps";
    }
    return fmt::format("{} up to {} ms", counted(facts.gaps, "gap", "gaps"),
                       formatMs(facts.largestGapNs));
}

std::string missingOf(RecordingFacts const& facts) {
    std::string text;
    MissingStates const& missing = facts.missing;
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
    return ns ? formatMs(*ns) : "-";
}

}  // namespace

std::string factsText(ReplayResult const& result) {
    RecordingFacts const& facts = result.facts;
    std::string text = labelled("Recording", result.path);
    text +=
        labelled("", fmt::format("{} frames in {} s, {:.2f} frames/s, median interval {} ms, {}",
                                 facts.frames, formatSeconds(facts.lengthNs), facts.meanRateFps,
                                 formatMs(facts.medianIntervalNs), gapsOf(facts)));
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
    ReplayOptions const& options = result.options;
    return text + labelled("Replay",
                           fmt::format("policy {}, {} of {}, history of {}, "
                                       "ZSL offset {} ms{}",
                                       options.policy.name(),
                                       counted(result.summary.captures, "capture", "captures"),
                                       counted(options.framesPerCapture, "frame", "frames"),
                                       counted(options.history, "frame", "frames"), result.offsetMs,
                                       options.frameSync ? ", frame sync" : ""));
}

std::string tableText(ReplayResult const& result) {
    fmt::memory_buffer text;
    auto const out = std::back_inserter(text);
    fmt::format_to(out, kRow, "capture", "pressed (s)", "frame", "history frame", "lag (ms)",
                   "served", "waited (ms)", "early shutter (ms)");
    for (CaptureRecord const& capture : result.captures) {
        std::optional<int64_t> shutter = capture.earlyShutterNs;
        if (shutter) {
            *shutter -= capture.pressNs;
        }
        for (size_t index = 0; index < capture.frames.size(); ++index) {
            FrameOutcome const& frame = capture.frames[index];
            fmt::format_to(out, kRow, capture.requestNo,
                           formatSeconds(capture.pressNs - result.firstTimestampNs), index,
                           frame.historyFrame ? std::to_string(*frame.historyFrame) : "-",
                           optionalMs(capture.lagNs(frame)), toString(frame.served),
                           optionalMs(capture.waitNs(frame)), optionalMs(shutter));
        }
    }
    return fmt::to_string(text);
}

std::string dumpsText(ReplayResult const& result) {
    std::string text;
    for (DebugDump const& dump : result.dumps) {
        text += fmt::format("Dump at {} s\n", formatSeconds(dump.timeNs));
        for (std::string const& line : dump.lines) {
            text += fmt::format("  {}\n", line);
        }
    }
    return text;
}

std::string summaryText(ReplayResult const& result) {
    ReplaySummary const& summary = result.summary;
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
    Spread const& lag = summary.lag;
    text += labelled("Lag", lag.count == 0
                                ? "no frame came from the history"
                                : fmt::format("minimum {}, median {}, 95th percentile {}, maximum "
                                              "{} ms after the press",
                                              formatMs(lag.min), formatMs(lag.median),
                                              formatMs(lag.p95), formatMs(lag.max)));
    auto const& ledger = result.ledger;
    text += labelled(
        "Ledger", fmt::format("{} handed out, {} returned, {} consumed, {} released; "
                              "{} still out, {} lost",
                              ledger.handedOut, ledger.returned, ledger.consumed, ledger.released,
                              ledger.withProcessor + ledger.withFrameBuilder, ledger.lost));
    for (host::LedgerLine const& line : result.unsettled) {
        text += labelled("", fmt::format("frame {}, handed out for capture {} at {} s: {}",
                                         line.frameNo, line.forRequestNo,
                                         formatSeconds(line.sinceNs - result.firstTimestampNs),
                                         host::toString(line.holder)));
    }
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
                                       ledger.balances() ? "balances" : "DOES NOT BALANCE"));
}

std::string textReport(ReplayResult const& result, Explanation const* explanation) {
    std::string text = factsText(result) + "\n" + tableText(result) + "\n";
    if (explanation != nullptr) {
        for (CaptureExplanation const& capture : explanation->captures) {
            text += captureText(capture) + "\n";
        }
    }
    if (!result.dumps.empty()) {
        text += dumpsText(result) + "\n";
    }
    return text + summaryText(result);
}

}  // namespace zebcam::tool
