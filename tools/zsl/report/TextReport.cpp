#include "report/Reports.h"

#include <fmt/format.h>
#include <metadata/MetadataTags.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <initializer_list>
#include <utility>
#include <vector>

#include "base/Table.h"
#include "base/Text.h"
#include "pipeline/FrameFactory.h"
#include "recording/FrameStates.h"
#include "report/Answers.h"
#include "run/Verdict.h"

namespace zebcam::tool::report {

using base::counted;
using base::TextStyle;
using base::Tone;

namespace {

std::string labelled(TextStyle const& style, std::string_view label, std::string_view text,
                     Tone tone = Tone::Heading) {
    return base::wrap(style.paint(label, tone), text, {.indent = 11, .columns = style.columns});
}

/// How many frames it happened to, in its colour if it did at all.
std::string tally(TextStyle const& style, size_t count, std::string_view what, Tone tone) {
    return style.paint(fmt::format("{} {}", count, what), count > 0 ? tone : Tone::Plain);
}

/// The last lines of a run: what became of its frames and buffer sets, and what went wrong.

std::string servedText(TextStyle const& style, run::ReplaySummary const& summary) {
    // In capitals, for it must not happen; what is usual is told also when it is 0.
    std::string const unanswered =
        summary.unanswered > 0 ? ", " + tally(style, summary.unanswered, "UNANSWERED", Tone::Bad)
                               : "";
    std::string const ordinary =
        summary.withoutHistory > 0
            ? fmt::format("; {} without a history frame", summary.withoutHistory)
            : "";
    return labelled(style, "Served",
                    fmt::format("{}, {}, {}, {}{}, of {}{}",
                                tally(style, summary.atOnce, "at once", Tone::Good),
                                tally(style, summary.waited, "waited", Tone::Plain),
                                tally(style, summary.timedOut, "timed out", Tone::Doubtful),
                                tally(style, summary.flushed, "flushed", Tone::Doubtful),
                                unanswered, counted(summary.frames, "frame", "frames"), ordinary));
}

/// Each buffer set that did not come back has its time from boot time `startNs` on.
std::string ledgerText(TextStyle const& style, host::BufferLedger::Totals const& totals,
                       std::vector<host::LedgerLine> const& unsettled, int64_t startNs) {
    std::string text =
        labelled(style, "Ledger",
                 fmt::format("{} handed out, {} returned, {} consumed, {} released; "
                             "{} still out, {} lost",
                             totals.handedOut, totals.returned, totals.consumed, totals.released,
                             totals.withProcessor + totals.withFrameBuilder, totals.lost));
    for (host::LedgerLine const& line : unsettled) {
        text +=
            labelled(style, "",
                     fmt::format("frame {}, handed out for capture {} at {} s: {}", line.frameNo,
                                 line.forRequestNo, base::formatSeconds(line.sinceNs - startNs),
                                 host::toString(line.holder)));
    }
    return text;
}

std::string troublesText(TextStyle const& style, uint64_t errorLines,
                         std::vector<std::string> const& failures) {
    std::string text;
    // They need not be anybody's fault, so that they change no status.
    if (errorLines > 0) {
        text += labelled(
            style, "Log",
            counted(errorLines, "error line", "error lines") + " (--log error shows them)");
    }
    for (std::string const& failure : failures) {
        text += labelled(style, "Failure", failure, Tone::Bad);
    }
    return text;
}

/// In capitals where somebody must look, and in colour where there is some.
std::string shownLevel(TextStyle const& style, run::Level level) {
    switch (level) {
        case run::Level::Good:
            return style.paint("good", Tone::Good);
        case run::Level::Doubtful:
            return style.paint("doubtful", Tone::Doubtful);
        case run::Level::Bad:
            break;
    }
    return style.paint("BAD", Tone::Bad);
}

/// The first lines: how the run is to be taken, and why.
std::string verdictLines(TextStyle const& style, run::Verdict const& verdict) {
    std::string text;
    for (run::VerdictReason const& reason : verdict.reasons) {
        text += labelled(style, text.empty() ? "Verdict" : "",
                         fmt::format("{}: {}", shownLevel(style, reason.level), reason.text));
        if (!reason.details.empty()) {
            bool const isAll = reason.details.size() == 1;
            text += labelled(style, "", (isAll ? "" : "first: ") + reason.details.front());
        }
    }
    return text;
}

/// The last line, which repeats the verdict: the head of a long table is out of sight.
std::string resultText(TextStyle const& style, run::Level level, run::ReplaySummary const& summary,
                       host::BufferLedger::Totals const& ledger) {
    bool const areAnswered = summary.answeredCaptures == summary.captures;
    std::string const answers = fmt::format("{} of {} answered", summary.answeredCaptures,
                                            counted(summary.captures, "capture", "captures"));
    return labelled(style, "Result",
                    fmt::format("{}: {}, the ledger {}", shownLevel(style, level),
                                style.paint(answers, areAnswered ? Tone::Good : Tone::Bad),
                                ledger.balances() ? style.paint("balances", Tone::Good)
                                                  : style.paint("DOES NOT BALANCE", Tone::Bad)));
}

std::string limitsText(TextStyle const& style, std::vector<run::LimitCheck> const& limits) {
    std::string text;
    for (run::LimitCheck const& limit : limits) {
        text += labelled(style, text.empty() ? "Limits" : "",
                         fmt::format("{}: {}", limit.text(),
                                     limit.isBroken ? style.paint("BROKEN", Tone::Bad)
                                                    : style.paint("kept", Tone::Good)));
    }
    return text;
}

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

/// The policy by its own name, with its file and what it was given.
std::string policyText(pipeline::ReplayOptions const& options) {
    pipeline::PolicyOption const& policy = options.policy;
    std::string text =
        policy.ownName.empty()
            ? policy.name()
            : fmt::format("{} ({})", base::printable(policy.ownName), policy.pluginPath);
    for (auto const& [name, value] : options.policyParameters) {
        text += fmt::format(" {}={}", name, base::printable(value));
    }
    return text;
}

std::string factsText(TextStyle const& style, run::ReplayResult const& result) {
    recording::RecordingFacts const& facts = result.facts;
    std::string text = labelled(style, "Recording", result.path);
    text +=
        labelled(style, "",
                 fmt::format("{} frames in {} s, {:.2f} frames/s, median interval {} ms, {}",
                             facts.frames, base::formatSeconds(facts.lengthNs), facts.meanRateFps,
                             base::formatMs(facts.medianIntervalNs), gapsOf(facts)));
    if (std::string const missing = missingOf(facts); !missing.empty()) {
        text += labelled(style, "", "missing: " + missing);
    }
    if (facts.framesWithError > 0) {
        text +=
            labelled(style, "",
                     counted(facts.framesWithError, "frame", "frames") + " with an unusable image");
    }
    for (std::string const& note : result.notes) {
        text += labelled(style, "", "note: " + note);
    }
    pipeline::ReplayOptions const& options = result.options;
    text += labelled(
        style, "Replay",
        fmt::format("policy {}, {} of {}, history of {}, "
                    "ZSL offset {} ms{}",
                    policyText(options), counted(result.summary.captures, "capture", "captures"),
                    counted(options.framesPerCapture, "frame", "frames"),
                    counted(options.history, "frame", "frames"), result.offsetMs,
                    options.frameSync ? ", frame sync" : ""));
    return text + (result.faults ? labelled(style, "Faults", result.faults->text()) : "");
}

Tone toneOf(pipeline::Served served) {
    switch (served) {
        case pipeline::Served::AtOnce:
            return Tone::Good;
        case pipeline::Served::Waited:
            return Tone::Plain;
        case pipeline::Served::TimedOut:
        case pipeline::Served::Flushed:
            return Tone::Doubtful;
        case pipeline::Served::Unanswered:
            return Tone::Bad;
    }
    return Tone::Plain;
}

/// What struck a capture, told with its first frame, and the history frame that it got.
std::string faultsText(run::ReplayResult const& result, pipeline::CaptureRecord const& capture,
                       size_t index) {
    auto const& chosen = capture.frames[index].historyFrame;
    std::string text =
        index == 0 ? fmt::format("{}", fmt::join(pipeline::namesOf(capture.faults), ", ")) : "";
    pipeline::FaultSet const struck = chosen ? result.faultsOf(*chosen) : pipeline::FaultSet{};
    if (struck.any()) {
        text += fmt::format("{}frame {}: {}", text.empty() ? "" : "; ", *chosen,
                            fmt::join(pipeline::namesOf(struck), ", "));
    }
    return text;
}

std::string tableText(TextStyle const& style, run::ReplayResult const& result) {
    using enum base::Table::Kind;
    base::Table table({{.title = "capture", .isKey = true},
                       {.title = "pressed (s)"},
                       {.title = "frame"},
                       {.title = "history frame"},
                       {.title = "lag (ms)", .width = 10},
                       {.title = "served", .kind = Text, .width = 10},
                       {.title = "waited (ms)"},
                       {.title = "early shutter (ms)"}});
    for (pipeline::CaptureRecord const& capture : result.captures) {
        // Relative to the press, like the lag that it foretells.
        std::optional<int64_t> shutter = capture.earlyShutterNs;
        if (shutter) {
            *shutter -= capture.pressNs;
        }
        for (size_t index = 0; index < capture.frames.size(); ++index) {
            pipeline::FrameOutcome const& frame = capture.frames[index];
            table.addRow({std::to_string(capture.requestNo),
                          base::formatSeconds(capture.pressNs - result.firstTimestampNs),
                          std::to_string(index),
                          frame.historyFrame ? std::to_string(*frame.historyFrame) : "-",
                          optionalMs(capture.lagNs(frame)),
                          style.paint(toString(frame.served), toneOf(frame.served)),
                          optionalMs(capture.waitNs(frame)), optionalMs(shutter)});
            if (std::string const faults = faultsText(result, capture, index); !faults.empty()) {
                table.addBelow(base::wrap("         injected:", faults,
                                          {.indent = 19, .columns = style.columns}));
            }
        }
    }
    return table.text(style);
}

using ChosenFrame = recording::SensorFrame;

/// Painted where it may spoil the picture; empty: not told.
std::string settlingText(TextStyle const& style, std::string const& word,
                         std::optional<bool> isSettled) {
    return style.paint(word, isSettled.value_or(true) ? Tone::Plain : Tone::Doubtful);
}

/// A column of what the sensor told of the chosen frames.
struct ChosenColumn {
    char const* title;
    base::Table::Kind kind;
    std::string (*value)(TextStyle const& style, ChosenFrame const& frame);  ///< empty: not told
};

constexpr ChosenColumn kChosenColumns[] = {
    {"exposure (ms)", base::Table::Kind::Number,
     [](TextStyle const&, ChosenFrame const& frame) {
         auto const ns = recording::exposureNs(frame);
         return ns ? base::formatMs(*ns) : std::string();
     }},
    {"ISO", base::Table::Kind::Number,
     [](TextStyle const&, ChosenFrame const& frame) {
         return frame.iso ? std::to_string(*frame.iso) : std::string();
     }},
    {"focus (1/m)", base::Table::Kind::Number,
     [](TextStyle const&, ChosenFrame const& frame) {
         return frame.focusDistance ? fmt::format("{:.2f}", *frame.focusDistance) : std::string();
     }},
    {"AF state", base::Table::Kind::Text,
     [](TextStyle const& style, ChosenFrame const& frame) {
         return settlingText(style, frame.afState ? recording::afStateName(*frame.afState) : "",
                             recording::isFocusSettled(frame));
     }},
    {"lens", base::Table::Kind::Text,
     [](TextStyle const& style, ChosenFrame const& frame) {
         // Shorter than Android's word, so that the table fits a page.
         std::string const word = !frame.lensState ? ""
                                  : *frame.lensState == NSCam::LENS_STATE_STATIONARY
                                      ? "at rest"
                                      : recording::lensStateName(*frame.lensState);
         return settlingText(style, word, recording::isFocusSettled(frame));
     }},
    {"AE", base::Table::Kind::Text,
     [](TextStyle const& style, ChosenFrame const& frame) {
         auto const isSettled = recording::isExposureSettled(frame);
         return settlingText(style, isSettled ? *isSettled ? "settled" : "changing" : "",
                             isSettled);
     }},
};

/// What the recording tells of the frames that were chosen; what it tells of none is left out.
std::string chosenText(TextStyle const& style, run::ReplayResult const& result) {
    std::vector<std::vector<std::string>> rows;
    std::array<bool, std::size(kChosenColumns)> isTold{};
    for (pipeline::CaptureRecord const& capture : result.captures) {
        for (size_t index = 0; index < capture.frames.size(); ++index) {
            auto const& chosen = capture.frames[index].chosen;
            if (!chosen) {
                continue;
            }
            auto& row = rows.emplace_back(std::vector{std::to_string(capture.requestNo),
                                                      std::to_string(index),
                                                      std::to_string(chosen->frameNo)});
            for (size_t i = 0; i < isTold.size(); ++i) {
                row.push_back(kChosenColumns[i].value(style, *chosen));
                isTold[i] = isTold[i] || !row.back().empty();
            }
        }
    }
    constexpr size_t kKeys = 3;
    std::vector<base::Table::Column> columns = {{.title = "capture", .isKey = true},
                                                {.title = "frame", .isKey = true},
                                                {.title = "history frame", .isKey = true}};
    for (size_t i = 0; i < isTold.size(); ++i) {
        if (isTold[i]) {
            columns.push_back({.title = kChosenColumns[i].title, .kind = kChosenColumns[i].kind});
        }
    }
    if (columns.size() == kKeys) {
        return "";
    }
    base::Table table(std::move(columns));
    for (std::vector<std::string> const& row : rows) {
        std::vector<std::string> cells(row.begin(), row.begin() + kKeys);
        for (size_t i = 0; i < isTold.size(); ++i) {
            if (isTold[i]) {
                cells.push_back(row[kKeys + i].empty() ? "-" : row[kKeys + i]);
            }
        }
        table.addRow(std::move(cells));
    }
    return table.text(style) + "\n";
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

std::string lagText(TextStyle const& style, base::Spread const& lag) {
    return labelled(style, "Lag",
                    lag.count == 0
                        ? "no frame came from the history"
                        : fmt::format("minimum {}, median {}, 95th percentile {}, maximum "
                                      "{} ms after the press",
                                      base::formatMs(lag.min), base::formatMs(lag.median),
                                      base::formatMs(lag.p95), base::formatMs(lag.max)));
}

}  // namespace

std::string verdictText(run::DeviceVerdict const& verdict, TextStyle const& style) {
    if (verdict.isSame()) {
        return labelled(style, "Device",
                        fmt::format("{} in {} operations: {} of {} frames",
                                    style.paint("same decisions", Tone::Good), verdict.operations,
                                    verdict.sameFrames, verdict.builtFrames));
    }
    // In capitals: to be the same is what the recording is replayed for.
    std::string text = labelled(
        style, "Device",
        fmt::format("{} in {} of {} operations: {} of {} frames are the same",
                    style.paint("OTHER DECISIONS", Tone::Bad), verdict.operationsThatDiffer,
                    verdict.operations, verdict.sameFrames, verdict.builtFrames));
    for (std::string const& difference : verdict.differences) {
        text += labelled(style, "", difference);
    }
    return text;
}

namespace {

std::string reasonsText(recording::Recording const& recording, run::ReplayResult const& result,
                        log::Explanation const& explanation, ReasonsStyle how) {
    how.names = explanation.streamNames;
    // Lines name streams only where frames are built.
    if (!result.device) {
        pipeline::SensorStreams const streams;
        for (NSCam::v3::IStreamInfo const* const info :
             std::initializer_list<NSCam::v3::IStreamInfo const*>{
                 streams.pFullRaw.get(), streams.pHalResult.get(), streams.pAppResult.get()}) {
            how.names.emplace(fmt::format("{:x}", info->getStreamId()), info->getStreamName());
        }
    }
    ReplayFrames const frames(recording, result);
    auto const reasons = explanationsOf(result.captures, &explanation);
    auto const answers = answersOf(frames, result, explanation);
    std::string text;
    for (size_t i = 0; i < reasons.size(); ++i) {
        pipeline::CaptureRecord const& capture = result.captures[i];
        bool const isWanted =
            how.requests.empty() || std::find(how.requests.begin(), how.requests.end(),
                                              capture.requestNo) != how.requests.end();
        if (isWanted && reasons[i] != nullptr) {
            ReplayedCapture const replayed{answers[i], capture, frames};
            text += captureText(*reasons[i], how, &replayed) + "\n";
        }
    }
    return text;
}

}  // namespace

std::string textReport(recording::Recording const& recording, run::ReplayResult const& result,
                       log::Explanation const* explanation, ReasonsStyle const& how) {
    TextStyle const& style = how.style;
    run::Verdict const verdict = verdictOf(result);
    std::string text = verdictLines(style, verdict) + factsText(style, result) + "\n" +
                       tableText(style, result) + "\n" + chosenText(style, result);
    if (explanation != nullptr) {
        text += reasonsText(recording, result, *explanation, how);
    }
    if (!result.dumps.empty()) {
        text += dumpsText(result) + "\n";
    }
    // At the end, where a terminal shows it: what most people run a replay for.
    text += servedText(style, result.summary) + lagText(style, result.summary.lag) +
            ledgerText(style, result.ledger, result.unsettled, result.firstTimestampNs) +
            troublesText(style, result.errorLines, result.failures) +
            limitsText(style, result.limits) +
            resultText(style, verdict.level(), result.summary, result.ledger);
    return result.device ? text + verdictText(*result.device, style) : text;
}

namespace {

constexpr double kNsPerUs = 1e3;
std::string micros(int64_t ns) {
    return fmt::format("{:.1f}", static_cast<double>(ns) / kNsPerUs);
}

std::string timesText(TextStyle const& style, run::LiveResult const& result) {
    using enum base::Table::Kind;
    base::Table table({{.title = "Times (us)", .kind = Text, .width = 11, .isKey = true},
                       {.title = "count", .width = 6},
                       {.title = "median", .width = 9},
                       {.title = "95 %", .width = 9},
                       {.title = "99 %", .width = 9},
                       {.title = "maximum", .width = 9}});
    for (auto const& [what, times] : {std::pair{"submission", &result.times.submission},
                                      {"retry", &result.times.retry},
                                      {"lock held", &result.times.lockHeld},
                                      {"selection", &result.times.selection},
                                      {"policy", &result.times.policy}}) {
        if (times == &result.times.policy && times->count() == 0) {
            continue;  // a built-in one's shows nowhere
        }
        table.addRow({what, std::to_string(times->count()), micros(times->quantile(0.5)),
                      micros(times->quantile(0.95)), micros(times->quantile(0.99)),
                      micros(times->max())});
    }
    return table.text(style);
}

/// Who has the processor's lock, for as long as the pipeline's other threads wait for it.
std::string lockText(TextStyle const& style, run::LiveResult const& result) {
    double const held = result.times.lockHeld.total();
    if (held <= 0 || result.status.elapsedNs <= 0) {
        return "";
    }
    std::string const policy =
        result.times.policy.count() > 0
            ? fmt::format("the policy's own {:.0f} %", result.times.policy.total() / held * 100)
            : "a built-in policy's own part does not show";
    return labelled(style, "Lock",
                    fmt::format("held {:.2f} % of the time; {:.0f} % of that selecting, {}",
                                held / static_cast<double>(result.status.elapsedNs) * 100,
                                result.times.selection.total() / held * 100, policy));
}

std::string headText(TextStyle const& style, run::LiveResult const& result) {
    pipeline::ReplayOptions const& replay = result.options.replay;
    std::string ran = base::formatSeconds(result.status.elapsedNs) + " s";
    if (result.signal) {
        ran = fmt::format("interrupted after {} of {} s ({})", ran,
                          base::formatSeconds(result.plannedNs), strsignal(*result.signal));
    }
    return labelled(style, "Live",
                    fmt::format("{}, {:.2f} frames/s, {}",
                                result.source.empty() ? "generated frames" : result.source,
                                result.fps, ran)) +
           labelled(
               style, "Captures",
               fmt::format("policy {}, {} every {} ms, history of {}, ZSL offset {} ms{}",
                           policyText(replay), counted(replay.framesPerCapture, "frame", "frames"),
                           base::formatMs(result.options.pressEveryNs),
                           counted(replay.history, "frame", "frames"), result.offsetMs,
                           replay.frameSync ? ", frame sync" : ""));
}

std::string sensorText(TextStyle const& style, run::LiveResult const& result) {
    return labelled(
        style, "Sensor",
        fmt::format(
            "{} arrived, {} dropped from the history; late by {:.0f} us at most, 95 % by {:.0f} us",
            counted(result.status.arrivedFrames, "frame", "frames"), result.droppedFrames,
            static_cast<double>(result.lateness.max()) / kNsPerUs,
            static_cast<double>(result.lateness.quantile(0.95)) / kNsPerUs));
}

std::string recorderText(TextStyle const& style, run::LiveResult const& result) {
    if (!result.recorder) {
        return "";
    }
    auto const& [end, writeError, operations, unrecorded, bytes] = *result.recorder;
    std::string const why =
        writeError != 0 ? fmt::format(" ({})", std::strerror(writeError)) : std::string();
    // Whatever ended it early, what came before can be replayed.
    bool const isWhole = end == NSCam::v3::pipeline::model::ZslRecordingEnd::FINISHED;
    return labelled(
        style, "Recorded",
        fmt::format("{} operations, {} bytes in {}: {}{}", operations, bytes,
                    *result.options.recordPath,
                    isWhole ? "whole" : std::string("ENDED EARLY, ") + toString(end), why));
}

std::string droppedLinesText(TextStyle const& style, run::LiveResult const& result) {
    if (!result.log || result.log->dropped == 0) {
        return "";
    }
    return labelled(
        style, "Log",
        fmt::format("{} of {} DROPPED, because standard error {}", result.log->dropped,
                    counted(result.log->lines, "line", "lines"),
                    result.log->hasFailed ? "cannot be written" : "takes them too slowly"));
}

}  // namespace

// In columns, so that what changes is seen from line to line.
std::string statusLine(run::LiveStatus const& status, TextStyle const& style) {
    constexpr size_t kWhole = 98;
    std::string const sets = style.columns < kWhole
                                 ? ""
                                 : fmt::format(", in flight {:>2}, locked {:>2}",
                                               status.occupancy.inFlight, status.occupancy.locked);
    return fmt::format(
        "{:>7} s  {:>7} frames  history {:>3}{}  captures {:>5}, waiting {:>3}  {}\n",
        base::formatSeconds(status.elapsedNs), status.arrivedFrames, status.occupancy.history, sets,
        status.captures.captures, status.captures.captures - status.captures.answeredCaptures,
        status.ledger.lost > 0 ? style.paint(fmt::format("lost {}", status.ledger.lost), Tone::Bad)
                               : "lost 0");
}

std::string liveReport(run::LiveResult const& result, TextStyle const& style) {
    run::ReplaySummary const summary = result.summary();
    run::Verdict const verdict = verdictOf(result);
    return verdictLines(style, verdict) + headText(style, result) + sensorText(style, result) +
           "\n" + timesText(style, result) + "\n" + lockText(style, result) +
           servedText(style, summary) + lagText(style, summary.lag) +
           ledgerText(style, result.status.ledger, result.unsettled, result.startNs) +
           recorderText(style, result) + droppedLinesText(style, result) +
           (result.faults ? labelled(style, "Faults", result.faults->text()) : "") +
           troublesText(style, result.errorLines, result.failures) +
           resultText(style, verdict.level(), summary, result.status.ledger);
}

}  // namespace zebcam::tool::report
