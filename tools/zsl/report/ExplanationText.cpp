#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "base/Text.h"
#include "log/Explanation.h"
#include "report/Reports.h"

namespace zebcam::tool::report {

using base::counted;

namespace {

// The same columns in every block, so that tries can be compared at a glance.
constexpr size_t kLabelEnd = 14;
constexpr size_t kReasonStart = 40;

// A log's texts can be of any length, and nobody copies them from here.
std::string row(std::string head, size_t start, std::string_view text) {
    return base::wrap(std::move(head), text, {.indent = start, .cutsWords = true});
}

std::string labelled(std::string_view label, std::string_view text) {
    return row(fmt::format("    {}", label), kLabelEnd, text);
}

void append(std::string& list, std::string_view separator, std::string_view text) {
    list += list.empty() || text.empty() ? "" : separator;
    list += text;
}

std::string listOf(std::vector<uint32_t> const& frames) {
    std::string text;
    for (uint32_t const frameNo : frames) {
        append(text, " ", fmt::format("F{}", frameNo));
    }
    return text;
}

std::string indexText(std::optional<uint64_t> index) {
    return index ? std::to_string(*index) : "?";
}

std::string reasonText(log::Candidate const& frame) {
    std::string text;
    if (!frame.found.empty()) {
        text = "found " + frame.found;
    }
    if (!frame.wanted.empty()) {
        append(text, ", ", "wanted " + frame.wanted);
    }
    if (!frame.stream.empty()) {
        append(text, " ", fmt::format("in {}", frame.stream));
    }
    if (frame.criterion == log::Criterion::Unknown && frame.unknownCriterion.empty()) {
        append(text, ", ", "no line gives the reason");
    }
    for (std::string const& note : frame.notes) {
        append(text, "; ", note);
    }
    return text;
}

std::string candidateText(log::Candidate const& frame) {
    std::string const what = frame.verdict == log::Verdict::Refused ? frame.criterionName()
                             : frame.index ? fmt::format("for frame {}", *frame.index)
                                           : "";
    return row(fmt::format("    {:<12} {:<8} {:<13}", fmt::format("F{}", frame.frameNo),
                           toString(frame.verdict), what),
               kReasonStart, reasonText(frame));
}

/// History sets on which no line gives a verdict; a policy need not look at all of them.
size_t setsWithoutVerdict(log::TryExplanation const& attempt) {
    size_t const sets = attempt.historySets.value_or(0) + attempt.lockedSets.value_or(0);
    auto const judged = std::count_if(
        attempt.candidates.begin(), attempt.candidates.end(), [](log::Candidate const& frame) {
            // These were let go of before a policy saw them, and are not among the counted sets.
            bool const wasOffered = frame.criterion != log::Criterion::Image &&
                                    frame.criterion != log::Criterion::PureRaw;
            return wasOffered &&
                   (frame.verdict == log::Verdict::Taken || frame.verdict == log::Verdict::Refused);
        });
    // A log that lacks lines may tell of more verdicts than sets.
    return sets - std::min(sets, static_cast<size_t>(judged));
}

std::string historyText(log::TryExplanation const& attempt) {
    std::string text = attempt.selector.empty() ? "unknown selector" : attempt.selector;
    // Without the line that tells it, the verdicts are all that is known.
    if (attempt.historySets) {
        text += fmt::format(", {} in the history, {} locked", *attempt.historySets,
                            attempt.lockedSets.value_or(0));
        if (size_t const rest = setsWithoutVerdict(attempt); rest > 0) {
            text += fmt::format(", no verdict on {} of them", rest);
        }
    }
    return text;
}

std::string headText(log::TryExplanation const& attempt, size_t number) {
    std::string text;
    if (attempt.ageMs) {
        text = fmt::format("age {} ms", *attempt.ageMs);
    }
    if (attempt.zsdTimestampNs) {
        append(text, ", ", fmt::format("reference time {} ns", *attempt.zsdTimestampNs));
    }
    std::string place;
    if (attempt.time) {
        place = attempt.time->text;
    }
    if (attempt.line != 0) {
        append(place, ", ", fmt::format("line {}", attempt.line));
    }
    if (!place.empty()) {
        append(text, " ", fmt::format("({})", place));
    }
    return row(fmt::format("  try {}", number), kLabelEnd, text);
}

std::string resultText(log::TryExplanation const& attempt) {
    std::string text = toString(attempt.outcome);
    if (attempt.timedOut) {
        text += ", timed out";
    }
    if (attempt.remaining) {
        text +=
            fmt::format(", nothing chosen for {}", counted(*attempt.remaining, "frame", "frames"));
    }
    return text;
}

std::string tryText(log::TryExplanation const& attempt, size_t number) {
    // In the order in which a try goes: what was wanted, what was there, what came of it.
    std::string text = headText(attempt, number);
    text += labelled("selector", historyText(attempt));
    for (log::WantedFrame const& frame : attempt.wanted) {
        std::string const streams = log::textOf(frame.streams);
        text += labelled("wanted", fmt::format("frame {} {}: {}", frame.index, frame.type,
                                               streams.empty() ? "no stream" : streams));
    }
    for (log::Candidate const& frame : attempt.candidates) {
        text += candidateText(frame);
    }
    for (log::ServedFrame const& frame : attempt.served) {
        text += labelled(
            "built", fmt::format("frame {} from {} ({})", indexText(frame.index),
                                 frame.frameNo ? fmt::format("F{}", *frame.frameNo) : "no history",
                                 toString(frame.source)));
    }
    for (auto const& [index, frameNo] : attempt.parked) {
        text += labelled("parked", fmt::format("frame {} until F{} arrives", index, frameNo));
    }
    for (log::Order const& order : attempt.orders) {
        text += labelled("order", fmt::format("{} F{}: {}", toString(order.kind), order.frameNo,
                                              toString(order.fate)));
    }
    for (auto const& [selector, frames] : attempt.locked) {
        text += labelled("locked", fmt::format("by {}: {}", selector, listOf(frames)));
    }
    for (std::string const& note : attempt.notes) {
        text += labelled("note", note);
    }
    for (std::string const& error : attempt.errors) {
        text += labelled("error", error);
    }
    return text + labelled("result", resultText(attempt));
}

std::string countsText(log::LineCounts const& counts) {
    std::string text = fmt::format("{} read, {} of the processor, {} foreign", counts.lines,
                                   counts.processor, counts.foreign);
    // Of most logs these are 0.
    for (auto const& [name, count] : {std::pair{"errors", counts.errors},
                                      {"cut", counts.cut},
                                      {"out of order", counts.outOfOrder},
                                      {"from another thread in between", counts.interleaved},
                                      {"of no known capture", counts.unassigned},
                                      {"not recognised", counts.unrecognised}}) {
        if (count > 0) {
            text += fmt::format("; {} {}", count, name);
        }
    }
    return text;
}

std::string summaryText(log::Explanation const& explanation) {
    constexpr size_t START = 12;
    std::string pending;
    for (log::CaptureExplanation const& capture : explanation.captures) {
        if (capture.outcome == log::CaptureOutcome::Pending) {
            append(pending, " ", std::to_string(capture.requestNo));
        }
    }
    std::string text = row("Pending", START, pending.empty() ? "none at the end" : pending);
    for (log::FlushReturn const& returned : explanation.flushReturns) {
        text += row("Flush", START,
                    fmt::format("gave back {} that {} kept locked",
                                counted(returned.sets, "set", "sets"), returned.selector));
    }
    for (log::LogError const& error : explanation.errors) {
        text +=
            row("Error", START,
                error.line != 0 ? fmt::format("line {}: {}", error.line, error.text) : error.text);
    }
    return text + row("Lines", START, countsText(explanation.counts));
}

}  // namespace

std::string captureText(log::CaptureExplanation const& capture, std::string_view answer,
                        base::TextStyle const& /*style*/) {
    std::string head = toString(capture.outcome);
    // Warnings alone tell of waiting and not of success.
    if (capture.outcome == log::CaptureOutcome::Pending && !capture.isCertain()) {
        head += ", or served (the log has no lines that would tell)";
    }
    head += fmt::format(", {}", counted(capture.tries.size(), "try", "tries"));
    if (capture.waitedMs) {
        head += fmt::format(", waited {} ms", *capture.waitedMs);
    }
    if (capture.earlyShutterNs) {
        head += fmt::format(", early shutter {} ns", *capture.earlyShutterNs);
    }
    // A replay's own log comes from process 0.
    if (capture.pid.value_or(0) != 0) {
        head += fmt::format(", process {}", *capture.pid);
    }
    std::string text = row(fmt::format("Capture {}", capture.requestNo), kLabelEnd, head);
    // First what it comes to, then how it is known.
    for (size_t begin = 0; begin < answer.size();) {
        size_t const end = std::min(answer.find('\n', begin), answer.size());
        text += row("", kLabelEnd, answer.substr(begin, end - begin));
        begin = end + 1;
    }
    for (size_t i = 0; i < capture.tries.size(); ++i) {
        text += tryText(capture.tries[i], i + 1);
    }
    return text;
}

std::string explanationText(log::Explanation const& explanation, base::TextStyle const& style) {
    std::string text;
    for (log::CaptureExplanation const& capture : explanation.captures) {
        text += captureText(capture, {}, style) + "\n";
    }
    return text + summaryText(explanation);
}

}  // namespace zebcam::tool::report
