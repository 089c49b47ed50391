#include <fmt/format.h>

#include <cstring>
#include <string>
#include <utility>

#include "base/Table.h"
#include "base/Text.h"
#include "report/Reports.h"
#include "report/RunText.h"
#include "run/CameraFrames.h"
#include "run/Verdict.h"

namespace zebcam::tool::report {

using base::counted;
using base::TextStyle;
using base::Tone;

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
    if (result.signal && !result.plannedNs) {
        ran += fmt::format(", until {}", strsignal(*result.signal));
    } else if (result.signal) {
        ran = fmt::format("interrupted after {} of {} s ({})", ran,
                          base::formatSeconds(*result.plannedNs), strsignal(*result.signal));
    }
    std::string const when =
        result.options.pressEveryNs
            ? fmt::format("every {} ms", base::formatMs(*result.options.pressEveryNs))
            : "for each press";
    std::string const source =
        result.camera
            ? cameraText(*result.camera, style) + labelled(style, "", "ran for " + ran)
            : labelled(style, "Live",
                       fmt::format("{}, {:.2f} frames/s, {}",
                                   result.source.empty() ? "generated frames" : result.source,
                                   result.fps, ran));
    return source + labelled(style, "Captures",
                             fmt::format("policy {}, {} {}, history of {}, ZSL offset {} ms{}",
                                         policyText(replay),
                                         counted(replay.framesPerCapture, "frame", "frames"), when,
                                         counted(replay.history, "frame", "frames"),
                                         result.offsetMs, replay.frameSync ? ", frame sync" : ""));
}

std::string sensorText(TextStyle const& style, run::LiveResult const& result) {
    if (result.camera) {
        return labelled(style, "Sensor",
                        fmt::format("{} arrived, {} dropped from the history; {} ms after their "
                                    "times at most, 95 % {} ms",
                                    counted(result.status.arrivedFrames, "frame", "frames"),
                                    result.droppedFrames, base::formatMs(result.lateness.max()),
                                    base::formatMs(result.lateness.quantile(0.95))));
    }
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

std::string cameraText(picture::CameraFacts const& camera, TextStyle const& style) {
    using picture::CameraClock;
    char const* const clock =
        camera.clock == CameraClock::Driver ? "times are the driver's (monotonic clock)"
        : camera.clock == CameraClock::Own  ? "shown at its own pace, to which its times are kept"
                                            : "times are those of arrival";
    std::string text = labelled(style, "Camera",
                                fmt::format("{} ({}): {} x {}, {:.2f} frames/s; {}", camera.source,
                                            camera.format, camera.width, camera.height,
                                            1e9 / static_cast<double>(camera.intervalNs), clock));
    if (std::string const troubles = cameraTroubles(camera); !troubles.empty()) {
        text += labelled(style, "", troubles);
    }
    return text + (camera.end.empty() ? "" : labelled(style, "", "ended: " + camera.end));
}

std::string cameraTroubles(picture::CameraFacts const& camera) {
    std::string text;
    for (auto const& [count, what] :
         {std::pair{camera.dropped, "dropped, for they come faster than they are decoded"},
          {camera.broken, "broken"},
          {camera.replacedTimes, "with a time that goes back or is too far off, replaced"},
          {camera.resized, "of another size than the one before"}}) {
        if (count > 0) {
            text += fmt::format("{}{} {}", text.empty() ? "" : ", ",
                                counted(count, "picture", "pictures"), what);
        }
    }
    return text;
}

std::string shotLine(run::CameraShot const& shot, int64_t startNs) {
    pipeline::FrameOutcome const& frame = shot.capture.frames.at(shot.index);
    std::string line = fmt::format("pressed at {:>7} s  capture {:>4}, frame {}  {:<9}",
                                   base::formatSeconds(shot.capture.pressNs - startNs),
                                   shot.capture.requestNo, shot.index, toString(frame.served));
    auto const lagNs = shot.capture.lagNs(frame);
    line += lagNs ? fmt::format("  lag {:>8} ms", base::formatMs(*lagNs))
                  : std::string("  no history frame");
    line +=
        fmt::format("  waited {:>7} ms", base::formatMs(shot.capture.waitNs(frame).value_or(0)));
    if (frame.chosen && frame.chosen->picture && frame.sharpnessShare) {
        line += fmt::format("  sharpness {:>6.2f} ({:.2f} of best)",
                            frame.chosen->picture->sharpness, *frame.sharpnessShare);
    }
    return line + (frame.pictureFile ? "  " + *frame.pictureFile : "") + "\n";
}

std::string liveReport(run::LiveResult const& result, TextStyle const& style) {
    run::ReplaySummary const summary = result.summary();
    run::Verdict const verdict = verdictOf(result);
    return verdictLines(style, verdict) + headText(style, result) + sensorText(style, result) +
           "\n" + timesText(style, result) + "\n" + lockText(style, result) +
           servedText(style, summary) + lagText(style, summary.lag) +
           picturesText(style, summary.pictures) +
           ledgerText(style, result.status.ledger, result.unsettled, result.startNs) +
           recorderText(style, result) + droppedLinesText(style, result) +
           (result.faults ? labelled(style, "Faults", result.faults->text()) : "") +
           troublesText(style, result.errorLines, result.failures) +
           resultText(style, verdict.level(), summary, result.status.ledger);
}

}  // namespace zebcam::tool::report
