#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <span>
#include <string_view>
#include <tuple>
#include <utility>

#include "base/Text.h"
#include "log/Explanation.h"
#include "report/AnswerParts.h"
#include "report/LogCaptures.h"
#include "report/Reports.h"
#include "report/RunText.h"
#include "run/Verdict.h"

namespace zebcam::tool::report {

using base::counted;
using base::TextStyle;
using base::Tone;

namespace {

// The same columns in every block, so that tries can be compared at a glance.
constexpr size_t kLabelEnd = 14;
constexpr size_t kReasonStart = 40;

// A log's texts can be of any length, and nobody copies them from here.
std::string row(TextStyle const& style, std::string head, size_t start, std::string_view text) {
    return base::wrap(std::move(head), text,
                      {.indent = start, .columns = style.columns, .cutsWords = true});
}

void append(std::string& list, std::string_view separator, std::string_view text) {
    list += list.empty() || text.empty() ? "" : separator;
    list += text;
}

std::string framesText(std::vector<uint32_t> const& frames) {
    return frames.empty() ? "" : namesOf({frames.begin(), frames.end()});
}

std::string indexText(std::optional<uint64_t> index) {
    return index ? std::to_string(*index) : "?";
}

/// Candidates in a row of which the same is to be said.
using Candidates = std::span<log::Candidate const>;

bool hasTimes(log::Candidate const& frame) {
    return frame.criterion == log::Criterion::Time && frame.foundNumber && frame.wantedNumber;
}

bool isAlike(log::Candidate const& a, log::Candidate const& b) {
    bool const isRefused = a.verdict == log::Verdict::Refused && b.verdict == a.verdict;
    // Of times only the numbers differ, which are told together.
    bool const hasSameValues =
        (hasTimes(a) && hasTimes(b)) || (a.found == b.found && a.wanted == b.wanted);
    return isRefused && hasSameValues && a.criterionName() == b.criterionName() &&
           a.stream == b.stream && a.notes == b.notes;
}

std::vector<Candidates> foldedCandidates(std::vector<log::Candidate> const& all, bool isVerbose) {
    std::vector<Candidates> folded;
    for (size_t begin = 0, end = 0; begin < all.size(); begin = end) {
        end = begin + 1;
        while (end < all.size() && !isVerbose && isAlike(all[begin], all[end])) {
            ++end;
        }
        folded.emplace_back(all.data() + begin, end - begin);
    }
    return folded;
}

/// `began 237.6 to 4.4 ms too early`: so refused and wanted times never look the same.
std::string earlyText(Candidates frames) {
    auto const earlyNs = [](log::Candidate const& frame) {
        return difference(*frame.wantedNumber, *frame.foundNumber);
    };
    std::string const last = briefTime(earlyNs(frames.back()));
    return frames.size() == 1 ? fmt::format("began {} too early", last)
                              : fmt::format("began {} to {} too early",
                                            base::formatBriefMs(earlyNs(frames.front())), last);
}

std::string reasonText(Candidates frames, bool isVerbose) {
    log::Candidate const& frame = frames.front();
    std::string text;
    if (hasTimes(frame) && !isVerbose) {
        text = earlyText(frames);
    } else {
        bool const isCompared = !frame.found.empty() && !frame.wanted.empty();
        append(text, "", isCompared ? "found " + frame.found : frame.found);
        append(text, ", ", frame.wanted.empty() ? "" : "wanted " + frame.wanted);
    }
    if (!frame.stream.empty()) {
        append(text, " ", fmt::format("in {}", frame.stream));
    }
    if (frame.verdict == log::Verdict::Refused && frame.criterion == log::Criterion::Unknown &&
        frame.unknownCriterion.empty()) {
        append(text, ", ", "no line gives the reason");
    }
    for (std::string const& note : frame.notes) {
        append(text, "; ", note);
    }
    return text;
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

bool isRefused(log::Candidate const& frame) {
    return frame.verdict == log::Verdict::Refused;
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

/// What a try comes to, but for the times of what it refused. A try that changed something is like
/// no other.
std::string shapeOf(log::TryExplanation const& attempt) {
    if (!attempt.served.empty() || !attempt.orders.empty() || attempt.timedOut ||
        attempt.candidates.empty()) {
        return "";
    }
    std::string shape = attempt.selector + resultText(attempt);
    for (Candidates const frames : foldedCandidates(attempt.candidates, false)) {
        log::Candidate const& frame = frames.front();
        shape += fmt::format("|{} {}", toString(frame.verdict), frame.criterionName());
        shape += hasTimes(frame) ? "" : reasonText(frames, false);
    }
    for (std::vector<std::string> const* const texts : {&attempt.notes, &attempt.errors}) {
        for (std::string const& text : *texts) {
            shape += "|" + text;
        }
    }
    return shape;
}

/// Tells of one capture.
class CaptureWriter {
public:
    CaptureWriter(log::CaptureExplanation const& capture, ReasonsStyle const& how,
                  ReplayedCapture const* replayed)
        : mCapture(capture), mHow(how), mReplayed(replayed) {}

    std::string text() const {
        std::string text = headText();
        // First what it comes to, then how that is known.
        std::string const answer =
            mReplayed != nullptr ? std::string(mReplayed->answer) : answerOf(mCapture);
        for (std::string_view rest = answer; !rest.empty();) {
            size_t const end = std::min(rest.find('\n'), rest.size());
            text += row(mHow.style, "", kLabelEnd, rest.substr(0, end));
            rest.remove_prefix(std::min(end + 1, rest.size()));
        }
        auto const& tries = mCapture.tries;
        for (size_t i = 0; i < tries.size();) {
            text += tryText(i);
            size_t const first = ++i;
            // Of tries that waited alike the first says enough.
            std::string const shape = mHow.isVerbose ? "" : shapeOf(tries[first - 1]);
            while (i < tries.size() && !shape.empty() && shapeOf(tries[i]) == shape) {
                ++i;
            }
            size_t alike = i - first;
            for (size_t told = first - 1; told < i; ++told) {
                alike += tries[told].repeats;
            }
            if (alike > 0) {
                text +=
                    row(mHow.style, "  then", kLabelEnd,
                        fmt::format("{} alike, until {}", counted(alike, "more try", "more tries"),
                                    untilText(i - 1)));
            }
        }
        return text;
    }

private:
    std::string labelled(std::string_view label, std::string_view text) const {
        return row(mHow.style, fmt::format("    {}", label), kLabelEnd, text);
    }

    pipeline::TryRecord const* recordOf(size_t i) const {
        return mReplayed != nullptr && i < mReplayed->record.tries.size()
                   ? &mReplayed->record.tries[i]
                   : nullptr;
    }

    std::string headText() const {
        std::string head = toString(mCapture.outcome);
        // Warnings alone tell of waiting and not of success.
        if (mCapture.outcome == log::CaptureOutcome::Pending && !mCapture.isCertain()) {
            head += ", or served (the log has no lines that would tell)";
        }
        head += fmt::format(", {}", counted(mCapture.tryCount(), "try", "tries"));
        if (mCapture.waitedMs) {
            head += fmt::format(", waited {} ms", *mCapture.waitedMs);
        }
        if (mCapture.earlyShutterNs) {
            head += ", early shutter " + shutterText(*mCapture.earlyShutterNs);
        }
        // A replay's own log comes from process 0.
        if (mCapture.pid.value_or(0) != 0) {
            head += fmt::format(", process {}", *mCapture.pid);
        }
        std::string const name = fmt::format("Capture {}", mCapture.requestNo);
        return row(mHow.style, mHow.style.paint(name, Tone::Heading), kLabelEnd, head);
    }

    std::string shutterText(int64_t timestampNs) const {
        if (mReplayed != nullptr && !mHow.isVerbose) {
            return relative(difference(timestampNs, mReplayed->record.pressNs), "the press");
        }
        auto const input = std::find_if(
            mCapture.tries.begin(), mCapture.tries.end(),
            [](log::TryExplanation const& attempt) { return attempt.zsdTimestampNs.has_value(); });
        if (input == mCapture.tries.end() || mHow.isVerbose) {
            return fmt::format("{} ns", timestampNs);
        }
        return relative(difference(timestampNs, *input->zsdTimestampNs), "the wanted instant");
    }

    /// A moment of the replay, and what made the processor try again then.
    std::string momentText(int64_t timeNs, bool isRetry) const {
        std::string text = relative(timeNs - mReplayed->record.pressNs, "the press");
        if (auto const arrived = mReplayed->frames.arrivedAt(timeNs); arrived && isRetry) {
            append(text, ", ", fmt::format("when F{} arrived", *arrived));
        } else if (auto const pressed = mReplayed->frames.pressedAt(timeNs); pressed && isRetry) {
            append(text, ", ", fmt::format("with the press of capture {}", *pressed));
        }
        return text;
    }

    /// When a try was made, or the last of its repeats.
    std::string untilText(size_t i) const {
        pipeline::TryRecord const* const record = recordOf(i);
        return record != nullptr && record->lastRepeatNs ? momentText(*record->lastRepeatNs, true)
                                                         : whenText(i);
    }

    /// When a try was made, and what made it.
    std::string whenText(size_t i) const {
        log::TryExplanation const& attempt = mCapture.tries[i];
        pipeline::TryRecord const* const record = recordOf(i);
        std::string text;
        if (record != nullptr) {
            text = momentText(record->timeNs, i > 0);
        } else if (attempt.ageMs) {
            text = *attempt.ageMs == 0 ? "at the press"
                                       : fmt::format("{} ms after the press", *attempt.ageMs);
        }
        std::string place;
        if (attempt.time) {
            place = attempt.time->text;
        }
        if (attempt.line != 0) {
            append(place, ", ", fmt::format("line {}", attempt.line));
        }
        append(text, " ", place.empty() ? "" : fmt::format("({})", place));
        return text;
    }

    std::string historyText(size_t i) const {
        log::TryExplanation const& attempt = mCapture.tries[i];
        pipeline::TryRecord const* const record = recordOf(i);
        std::string text = attempt.selector.empty() ? "unknown selector" : attempt.selector;
        // Without the line that tells it, the verdicts are all that is known.
        if (attempt.historySets) {
            text += fmt::format(", {} in the history, {} locked", *attempt.historySets,
                                attempt.lockedSets.value_or(0));
            size_t const rest = setsWithoutVerdict(attempt);
            bool const isSilent = rest > 0 && std::none_of(attempt.candidates.begin(),
                                                           attempt.candidates.end(), isRefused);
            if (isSilent && attempt.served.empty()) {
                text += ", the policy gives no reasons";
            } else if (rest > 0) {
                text += fmt::format(", no verdict on {} of them", rest);
            }
        }
        std::string const inFlight =
            framesText(record != nullptr ? record->inFlightFrames : attempt.inFlight);
        return text + (inFlight.empty() ? "" : "; in flight " + inFlight);
    }

    std::string candidateText(Candidates frames) const {
        log::Candidate const& frame = frames.front();
        std::set<uint64_t> numbers;
        for (log::Candidate const& each : frames) {
            numbers.insert(each.frameNo);
        }
        bool const hasHoles = *numbers.rbegin() - *numbers.begin() + 1 != numbers.size();
        std::string const names = hasHoles && numbers.size() > 2
                                      ? fmt::format("{} of F{} to F{}", numbers.size(),
                                                    *numbers.begin(), *numbers.rbegin())
                                      : namesOf(numbers);
        std::string const what = frame.verdict == log::Verdict::Refused ? frame.criterionName()
                                 : frame.index ? fmt::format("for frame {}", *frame.index)
                                               : "";
        Tone const tone = frame.verdict == log::Verdict::Taken ? Tone::Good : Tone::Plain;
        // Painted with its blanks: colours have no width.
        std::string const verdict =
            mHow.style.paint(fmt::format("{:<8}", toString(frame.verdict)), tone);
        // A log's own names of criteria have any length.
        std::string head = fmt::format("    {:<12} {} {:<13.40}", names, verdict, what);
        std::string const reason = reasonText(frames, mHow.isVerbose);
        size_t const half = mHow.style.columns / 2;
        size_t const start = std::min(kReasonStart, half);
        if (base::shownWidth(head) > half && !reason.empty()) {
            return head + "\n" + row(mHow.style, "", start, reason);
        }
        return row(mHow.style, std::move(head), start, reason);
    }

    std::string wantedText(size_t i) const {
        auto const& wanted = mCapture.tries[i].wanted;
        // It hardly ever changes.
        auto const streamsOf = [](log::WantedFrame const& frame) {
            return std::tie(frame.index, frame.type);
        };
        bool const isKnown =
            i > 0 && !mHow.isVerbose &&
            std::equal(wanted.begin(), wanted.end(), mCapture.tries[i - 1].wanted.begin(),
                       mCapture.tries[i - 1].wanted.end(),
                       [&](auto const& a, auto const& b) { return streamsOf(a) == streamsOf(b); });
        std::string text;
        for (size_t k = 0; !isKnown && k < wanted.size(); ++k) {
            std::string const streams =
                log::textOf(wanted[k].streams, mHow.isVerbose ? log::StreamNames{} : mHow.names);
            text +=
                labelled("wanted", fmt::format("frame {} {}: {}", wanted[k].index, wanted[k].type,
                                               streams.empty() ? "no stream" : streams));
        }
        return text;
    }

    std::string tryText(size_t i) const {
        log::TryExplanation const& attempt = mCapture.tries[i];
        // In the order in which a try goes: what was wanted, what was there, what came of it.
        std::string head = whenText(i);
        if (attempt.zsdTimestampNs && mHow.isVerbose) {
            append(head, ", ", fmt::format("reference time {} ns", *attempt.zsdTimestampNs));
        }
        std::string text = row(mHow.style, fmt::format("  try {}", i + 1), kLabelEnd, head);
        text += labelled("selector", historyText(i));
        text += wantedText(i);
        for (Candidates const frames : foldedCandidates(attempt.candidates, mHow.isVerbose)) {
            text += candidateText(frames);
        }
        for (log::ServedFrame const& frame : attempt.served) {
            text += labelled("built", fmt::format("frame {} from {} ({})", indexText(frame.index),
                                                  frame.frameNo ? fmt::format("F{}", *frame.frameNo)
                                                                : "no history",
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
            text += labelled("locked", fmt::format("by {}: {}", selector, framesText(frames)));
        }
        for (std::string const& note : attempt.notes) {
            text += labelled("note", note);
        }
        for (std::string const& error : attempt.errors) {
            text += labelled("error", error);
        }
        return text + labelled("result", resultText(attempt));
    }

    log::CaptureExplanation const& mCapture;
    ReasonsStyle const& mHow;
    ReplayedCapture const* const mReplayed;
};

std::string countsText(log::LineCounts const& counts) {
    std::string text = fmt::format("{} read, {} of the processor, {} foreign", counts.lines,
                                   counts.processor, counts.foreign);
    // Of most logs these are 0.
    for (auto const& [name, count] : {std::pair{"errors", counts.errors},
                                      {"cut", counts.cut},
                                      {"out of order", counts.outOfOrder},
                                      {"from another thread in between", counts.interleaved},
                                      {"of no known capture", counts.unassigned},
                                      {"of the provider's dumps", counts.dump},
                                      {"not recognised", counts.unrecognised}}) {
        if (count > 0) {
            text += fmt::format("; {} {}", count, name);
        }
    }
    return text;
}

std::string summaryText(TextStyle const& style, log::Explanation const& explanation) {
    constexpr size_t START = 12;
    std::string pending;
    for (log::CaptureExplanation const& capture : explanation.captures) {
        if (capture.outcome == log::CaptureOutcome::Pending) {
            append(pending, " ", std::to_string(capture.requestNo));
        }
    }
    std::string text = row(style, "Pending", START, pending.empty() ? "none at the end" : pending);
    for (log::FlushReturn const& returned : explanation.flushReturns) {
        text += row(style, "Flush", START,
                    fmt::format("gave back {} that {} kept locked",
                                counted(returned.sets, "set", "sets"), returned.selector));
    }
    for (log::LogError const& error : explanation.errors) {
        text +=
            row(style, "Error", START,
                error.line != 0 ? fmt::format("line {}: {}", error.line, error.text) : error.text);
    }
    return text + row(style, "Lines", START, countsText(explanation.counts)) +
           verdictLines(style, run::verdictOf(explanation), START);
}

}  // namespace

std::string captureText(log::CaptureExplanation const& capture, ReasonsStyle const& how,
                        ReplayedCapture const* replayed) {
    return CaptureWriter(capture, how, replayed).text();
}

std::string explanationText(log::Explanation const& explanation, TextStyle const& style,
                            bool isVerbose, bool leavesOutOver) {
    ReasonsStyle const how{style, isVerbose, explanation.streamNames};
    std::string text;
    for (log::CaptureExplanation const& capture : explanation.captures) {
        if (!leavesOutOver || !log::isOver(capture.outcome)) {
            text += captureText(capture, how) + "\n";
        }
    }
    return text + summaryText(style, explanation);
}

}  // namespace zebcam::tool::report
