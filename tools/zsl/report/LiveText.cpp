#include "report/LiveText.h"

#include <fmt/format.h>

#include <cstring>

#include "base/Text.h"
#include "report/TextBlocks.h"

namespace zebcam::tool::report {

using NSCam::v3::pipeline::model::ZslRecorderStatus;
using NSCam::v3::pipeline::model::ZslRecordingEnd;

namespace {

constexpr double kNsPerUs = 1e3;
constexpr char kTimeRow[] = "{:<11}{:>8} {:>10} {:>10} {:>10} {:>10}\n";

size_t servedBy(pipeline::CaptureTotals const& totals, pipeline::Served served) {
    auto const found = totals.served.find(served);
    return found != totals.served.end() ? found->second : 0;
}

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
    return labelled("Live", fmt::format("{}, {:.2f} frames/s, {} s{}", result.source, result.fps,
                                        base::formatSeconds(result.status.elapsedNs),
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

std::string servedText(pipeline::CaptureTotals const& totals) {
    size_t const unanswered = servedBy(totals, pipeline::Served::Unanswered);
    return labelled("Served",
                    fmt::format("{} at once, {} waited, {} timed out, {} flushed{}, of {}",
                                servedBy(totals, pipeline::Served::AtOnce),
                                servedBy(totals, pipeline::Served::Waited),
                                servedBy(totals, pipeline::Served::TimedOut),
                                servedBy(totals, pipeline::Served::Flushed),
                                unanswered > 0 ? fmt::format(", {} UNANSWERED", unanswered) : "",
                                counted(totals.frames, "frame", "frames")));
}

std::string recorderText(run::LiveResult const& result) {
    if (!result.recorder) {
        return "";
    }
    ZslRecorderStatus const& status = *result.recorder;
    return labelled(
        "Recorded",
        fmt::format(
            "{} operations, {} bytes in {}: {}{}", status.operations, status.bytesWritten,
            *result.options.recordPath, toString(status.end),
            status.writeError != 0 ? fmt::format(" ({})", std::strerror(status.writeError)) : ""));
}

}  // namespace

std::string toString(ZslRecordingEnd end) {
    switch (end) {
        case ZslRecordingEnd::RUNNING:
            return "running";
        case ZslRecordingEnd::FINISHED:
            return "whole";
        case ZslRecordingEnd::MEMORY_FULL:
            return "ENDED EARLY, the file took it too slowly";
        case ZslRecordingEnd::FILE_FULL:
            return "ENDED EARLY, the file was full";
        case ZslRecordingEnd::WRITE_FAILED:
            return "ENDED EARLY, the file could not be written";
        case ZslRecordingEnd::INTERRUPTED:
            return "ENDED EARLY, for want of memory";
    }
    return "?";
}

std::string statusLine(run::LiveStatus const& status) {
    return fmt::format(
        "{:>7} s  {:>7} frames  history {:>3}, in flight {:>2}, locked {:>2}  captures {:>5}, "
        "waiting {:>3}  lost {}\n",
        base::formatSeconds(status.elapsedNs), status.arrivedFrames, status.occupancy.history,
        status.occupancy.inFlight, status.occupancy.locked, status.captures.captures,
        status.captures.captures - status.captures.answeredCaptures, status.ledger.lost);
}

std::string liveReport(run::LiveResult const& result) {
    pipeline::CaptureTotals const& captures = result.status.captures;
    std::string text = headText(result) + sensorText(result) + "\n" + timesText(result) + "\n" +
                       servedText(captures) +
                       ledgerText(result.status.ledger, result.unsettled, result.startNs) +
                       recorderText(result);
    if (result.faults) {
        text += labelled("Faults", result.faults->text());
    }
    if (result.errorLines > 0) {
        text += labelled("Log", counted(result.errorLines, "error line", "error lines") +
                                    " (--log error shows them)");
    }
    for (std::string const& failure : result.failures) {
        text += labelled("Failure", failure);
    }
    return text +
           labelled("Result",
                    fmt::format("{} of {} answered, the ledger {}", captures.answeredCaptures,
                                counted(captures.captures, "capture", "captures"),
                                result.status.ledger.balances() ? "balances" : "DOES NOT BALANCE"));
}

}  // namespace zebcam::tool::report
