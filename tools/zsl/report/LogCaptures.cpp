#include "report/LogCaptures.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <limits>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "base/Text.h"
#include "report/AnswerParts.h"
#include "report/JsonParts.h"

namespace zebcam::tool::report {

using base::counted;
using log::CaptureExplanation;
using log::TryExplanation;

namespace {

using Numbers = std::set<uint64_t>;

/// A damaged line may have any number; half of the range leaves room for sums.
constexpr int64_t kLastInstantNs = std::numeric_limits<int64_t>::max() / 4;
constexpr int64_t kLongestAgeMs = kLastInstantNs / 1'000'000;

size_t framesOf(CaptureExplanation const& capture) {
    uint64_t frames = 0;
    for (TryExplanation const& attempt : capture.tries) {
        for (log::WantedFrame const& frame : attempt.wanted) {
            frames = std::max(frames, frame.index + 1);
        }
        for (log::ServedFrame const& frame : attempt.served) {
            frames = std::max(frames, frame.index.value_or(0) + 1);
        }
    }
    constexpr uint64_t kMost = 1'000;
    return std::min(frames, kMost);
}

pipeline::Served servedOf(log::ServedFrame const& frame, bool isRetry) {
    if (frame.source == log::Source::TimedOut) {
        return pipeline::Served::TimedOut;
    }
    return isRetry ? pipeline::Served::Waited : pipeline::Served::AtOnce;
}

/// The frames that came back, in the order of a try's lines.
void addServed(TryExplanation const& told, size_t tryIndex, pipeline::CaptureRecord& capture) {
    pipeline::TryRecord& attempt = capture.tries[tryIndex];
    for (log::ServedFrame const& frame : told.served) {
        if (!frame.index || *frame.index >= capture.frames.size()) {
            continue;
        }
        pipeline::FrameOutcome& outcome = capture.frames[*frame.index];
        outcome.served = servedOf(frame, attempt.isRetry);
        outcome.tryIndex = tryIndex;
        outcome.answeredNs = attempt.timeNs;
        outcome.historyFrame = frame.frameNo;
        attempt.builtFrames.push_back(*frame.index);
    }
}

pipeline::TryRecord tryOf(TryExplanation const& told, int64_t pressNs, bool isRetry) {
    pipeline::TryRecord attempt;
    attempt.ageMs = std::clamp<int64_t>(told.ageMs.value_or(0), 0, kLongestAgeMs);
    attempt.timeNs = pressNs + nsOfMs(attempt.ageMs);
    attempt.isRetry = isRetry;
    std::set<uint32_t> seen;
    for (log::Candidate const& frame : told.candidates) {
        seen.insert(frame.frameNo);
    }
    attempt.historyFrames.assign(seen.begin(), seen.end());
    attempt.inFlightFrames = told.inFlight;
    return attempt;
}

// The answer

/// The refused frames of the first `tries` tries, by the last that was said of each.
Refused refusedIn(CaptureExplanation const& capture, size_t tries = SIZE_MAX) {
    Refused refused;
    for (size_t i = 0; i < std::min(tries, capture.tries.size()); ++i) {
        for (log::Candidate const& frame : capture.tries[i].candidates) {
            if (frame.verdict == log::Verdict::Refused) {
                refused[frame.frameNo] = &frame;
            }
        }
    }
    return refused;
}

std::string lackText(CaptureExplanation const& capture) {
    if (capture.tries.empty()) {
        return "";
    }
    Refused const refused = refusedIn(capture);
    std::string const when = fmt::format(" In {}", counted(capture.tryCount(), "try", "tries"));
    if (!refused.empty()) {
        return fmt::format("{} {} refused: {}.", when,
                           counted(refused.size(), "frame was", "frames were"),
                           reasonsText(refused));
    }
    bool const wasEmpty = std::all_of(capture.tries.begin(), capture.tries.end(),
                                      [](auto const& attempt) { return attempt.historySets == 0; });
    return when + (wasEmpty ? " the history was empty." : " no frame was refused with a reason.");
}

/// What was refused before the chosen frames for more than its time: it would have suited better.
std::string passedOverText(CaptureExplanation const& capture, size_t tryIndex, uint64_t first) {
    Refused refused = refusedIn(capture, tryIndex + 1);
    Numbers numbers;
    for (auto frame = refused.begin(); frame != refused.end();) {
        bool const isBetter =
            frame->first < first && frame->second->criterion != log::Criterion::Time;
        if (isBetter) {
            numbers.insert(frame->first);
        }
        frame = isBetter ? std::next(frame) : refused.erase(frame);
    }
    return numbers.empty() ? ""
                           : fmt::format(" {} before {} refused: {}.", namesOf(numbers),
                                         numbers.size() > 1 ? "were" : "was", reasonsText(refused));
}

/// Of a capture that waited: by how much what there was came too early.
std::string earlyText(CaptureExplanation const& capture) {
    log::Candidate const* newest = nullptr;
    for (log::Candidate const& frame : capture.tries.front().candidates) {
        bool const isNewer = newest == nullptr || frame.frameNo >= newest->frameNo;
        newest = isNewer ? &frame : newest;
    }
    if (newest == nullptr || newest->criterion != log::Criterion::Time || !newest->foundNumber ||
        !newest->wantedNumber) {
        return "";
    }
    int64_t const earlyNs = difference(*newest->wantedNumber, *newest->foundNumber);
    return earlyNs <= 0
               ? ""
               : fmt::format(
                     "In the first try F{}, the newest that was looked at, had begun {} too "
                     "early; with an offset larger by that it would have begun in time.",
                     newest->frameNo, briefTime(earlyNs));
}

/// When a try was made, by the age that it tells.
std::string cameText(TryExplanation const& attempt, bool isOne) {
    std::string const who = isOne ? "It" : "They";
    if (!attempt.ageMs) {
        return fmt::format(" When {} came the log does not tell.", isOne ? "it" : "they");
    }
    return *attempt.ageMs == 0
               ? fmt::format(" {} came at once.", who)
               : fmt::format(" {} came {} ms after the press.", who, *attempt.ageMs);
}

/// What a try gave back, by source and by whether there is a history frame: indices within the
/// capture, and numbers of the history frames.
std::map<std::pair<log::Source, bool>, std::pair<Numbers, Numbers>> partsOf(
    TryExplanation const& attempt) {
    std::map<std::pair<log::Source, bool>, std::pair<Numbers, Numbers>> parts;
    for (log::ServedFrame const& frame : attempt.served) {
        auto& [indices, history] = parts[{frame.source, frame.frameNo.has_value()}];
        indices.insert(frame.index.value_or(0));
        if (frame.frameNo) {
            history.insert(*frame.frameNo);
        }
    }
    return parts;
}

/// Of such a part.
std::string servedText(CaptureExplanation const& capture, size_t tryIndex, log::Source source,
                       Numbers const& indices, Numbers const& frames) {
    TryExplanation const& attempt = capture.tries[tryIndex];
    std::string const selector = selectorOf(capture);
    bool const isOne = indices.size() < 2;
    if (source == log::Source::TimedOut) {
        std::string const what =
            frames.empty() ? "it became an ordinary capture."
                           : fmt::format("{} {} what the history had with the streams it needs.",
                                         namesOf(frames), isOne ? "was" : "were");
        return "The capture's time ran out: " + what + cameText(attempt, isOne) + lackText(capture);
    }
    if (frames.empty()) {
        return withoutHistoryText(&attempt, *indices.begin(), selector) + cameText(attempt, isOne);
    }
    std::string text = source == log::Source::Arrived
                           ? fmt::format("{} {} chosen by {} while still in flight.",
                                         namesOf(frames), isOne ? "was" : "were", selector)
                           : choiceText(frames, selector, "the wanted instant", false);
    return text + passedOverText(capture, tryIndex, *frames.begin()) + cameText(attempt, isOne);
}

/// Of the frames that no try gave back.
std::string openText(CaptureExplanation const& capture) {
    switch (capture.outcome) {
        case log::CaptureOutcome::Flushed:
            return "A flush ended the wait with an ordinary capture." + lackText(capture);
        case log::CaptureOutcome::Pending:
            return (capture.isCertain()
                        ? "The capture was still waiting when the log ended."
                        : "The capture waited; whether it was served the log does not tell.") +
                   lackText(capture);
        case log::CaptureOutcome::Served:
        case log::CaptureOutcome::TimedOut:
            return fmt::format(
                "The capture {}; which frames it got the log does not tell.",
                capture.outcome == log::CaptureOutcome::Served ? "was served" : "timed out");
        case log::CaptureOutcome::Unknown:
            break;
    }
    return "What became of the capture the log does not tell.";
}

}  // namespace

std::optional<int64_t> wantedInstantNs(CaptureExplanation const& capture) {
    auto const input = std::find_if(
        capture.tries.begin(), capture.tries.end(),
        [](auto const& attempt) { return attempt.zsdTimestampNs && *attempt.zsdTimestampNs >= 0; });
    bool const isKnown = input != capture.tries.end() && *input->zsdTimestampNs <= kLastInstantNs &&
                         capture.waitedMs.value_or(0) <= kLongestAgeMs;
    return isKnown ? input->zsdTimestampNs : std::nullopt;
}

pipeline::CaptureRecord recordOf(CaptureExplanation const& told) {
    pipeline::CaptureRecord capture;
    capture.requestNo = told.requestNo;
    capture.pressNs = wantedInstantNs(told).value_or(0);
    capture.earlyShutterNs = told.earlyShutterNs;
    capture.frames.resize(framesOf(told));
    for (size_t i = 0; i < told.tries.size(); ++i) {
        capture.tries.push_back(tryOf(told.tries[i], capture.pressNs, i > 0));
        addServed(told.tries[i], i, capture);
    }
    for (pipeline::FrameOutcome& frame : capture.frames) {
        if (told.outcome == log::CaptureOutcome::Flushed &&
            frame.served == pipeline::Served::Unanswered) {
            frame.served = pipeline::Served::Flushed;
            frame.answeredNs = capture.tries.back().timeNs;  // or later: the line tells no time
        }
    }
    return capture;
}

std::string answerOf(CaptureExplanation const& capture) {
    size_t const frames = framesOf(capture);
    Numbers open;
    for (size_t index = 0; index < frames; ++index) {
        open.insert(index);
    }
    std::string text;
    auto const add = [&](Numbers const& indices, std::string const& part) {
        text += text.empty() ? "" : "\n";
        if (frames > 1 && !indices.empty()) {
            text += fmt::format("{} {}: ", indices.size() > 1 ? "Frames" : "Frame",
                                namesOf(indices, ""));
        }
        text += part;
    };
    for (size_t i = 0; i < capture.tries.size(); ++i) {
        for (auto const& [how, part] : partsOf(capture.tries[i])) {
            auto const& [indices, history] = part;
            add(indices, servedText(capture, i, how.first, indices, history));
            for (uint64_t const index : indices) {
                open.erase(index);
            }
        }
    }
    bool const isServed = !text.empty();
    if (!isServed || (!open.empty() && !log::isOver(capture.outcome)) ||
        capture.outcome == log::CaptureOutcome::Flushed) {
        add(open, openText(capture));
    }
    // Of all parts together, for the first try was made for all.
    std::string const early = isServed && capture.tries.size() > 1 ? earlyText(capture) : "";
    text += early.empty() ? "" : frames > 1 ? "\n" : " ";
    return text + early;
}

}  // namespace zebcam::tool::report
