#include "report/AnswerParts.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <tuple>
#include <utility>

#include "base/Text.h"

namespace zebcam::tool::report {

std::string briefTime(int64_t ns) {
    return base::formatBriefMs(ns) + " ms";
}

int64_t difference(int64_t a, int64_t b) {
    int64_t result = 0;
    bool const fits = !__builtin_sub_overflow(a, b, &result) && result != INT64_MIN;
    return fits ? result : 0;
}

std::string relative(int64_t ns, std::string_view to) {
    if (ns == 0) {
        return fmt::format("at {}", to);
    }
    return fmt::format("{} {} {}", briefTime(std::abs(ns)), ns < 0 ? "before" : "after", to);
}

namespace {

std::string joined(std::vector<std::string> const& parts) {
    std::string text;
    for (size_t i = 0; i < parts.size(); ++i) {
        char const* const separator = i == 0 ? "" : i + 1 == parts.size() ? " and " : ", ";
        text += separator + parts[i];
    }
    return text;
}

}  // namespace

std::string namesOf(std::set<uint64_t> const& numbers, std::string_view letter) {
    uint64_t const span = *numbers.rbegin() - *numbers.begin() + 1;
    if (numbers.size() > 2 && span == numbers.size()) {
        return fmt::format("{0}{1} to {0}{2}", letter, *numbers.begin(), *numbers.rbegin());
    }
    std::vector<std::string> names;
    names.reserve(numbers.size());
    for (uint64_t const number : numbers) {
        names.push_back(fmt::format("{}{}", letter, number));
    }
    return joined(names);
}

std::string reasonsText(Refused const& refused) {
    std::map<std::string, std::pair<size_t, log::Criterion>> counts;
    for (auto const& [frameNo, candidate] : refused) {
        auto& [count, criterion] = counts[candidate->criterionName()];
        ++count;
        criterion = candidate->criterion;
    }
    std::vector<std::pair<size_t, std::string>> ordered;
    for (auto const& [name, found] : counts) {
        auto const& [count, criterion] = found;
        // Of a policy's own criterion only its name is known.
        bool const isKnown = criterion != log::Criterion::Unknown;
        ordered.emplace_back(
            count,
            fmt::format("{} for {}{}", count, name,
                        isKnown ? fmt::format(" ({})", log::infoOf(criterion).meaning) : ""));
    }
    std::stable_sort(ordered.begin(), ordered.end(),
                     [](auto const& a, auto const& b) { return a.first > b.first; });
    std::vector<std::string> texts;
    texts.reserve(ordered.size());
    for (auto& [count, text] : ordered) {
        texts.push_back(std::move(text));
    }
    return joined(texts);
}

std::string selectorOf(log::CaptureExplanation const& reasons) {
    for (log::TryExplanation const& attempt : reasons.tries) {
        if (!attempt.selector.empty()) {
            return attempt.selector;
        }
    }
    return "the policy";
}

std::string choiceText(std::set<uint64_t> const& frames, std::string const& selector,
                       std::string const& wanted, bool endsAtFirst) {
    std::string const names = namesOf(frames);
    bool const isOne = frames.size() == 1;
    std::string const were = isOne ? "was" : "were";
    std::string const number = isOne ? "" : fmt::format(" {}", frames.size());
    std::string const taken =
        fmt::format("{} {} taken because {}", names, were, isOne ? "it is" : "they are");
    if (selector == "DefaultSelector") {
        return fmt::format(
            "{} the first{} in the history that began exposing not before {} and passed every "
            "test.",
            taken, number, wanted);
    }
    if (selector == "CShotSelector") {
        return fmt::format(
            "{} the oldest{} in the history with the streams and the sensor mode that the "
            "capture needs; {} does not look at the time.",
            taken, number, selector);
    }
    if (selector != "MultiframeSelector") {
        return fmt::format("{} {} chosen by {}.", names, were, selector);
    }
    std::string const run = isOne ? "first" : fmt::format("first{} in a row", number);
    return endsAtFirst ? fmt::format(
                             "{} the {} that passed every test and end{} with the first frame that "
                             "began exposing not before {}.",
                             taken, run, isOne ? "s" : "", wanted)
                       : fmt::format(
                             "{} the {} that passed every test, counted from where a run would end "
                             "with the first frame not before {}, or from as near to there as the "
                             "history goes.",
                             taken, run, wanted);
}

std::string withoutHistoryText(log::TryExplanation const* attempt, uint64_t index,
                               std::string const& selector) {
    for (size_t i = 0; attempt != nullptr && i < attempt->candidates.size(); ++i) {
        log::Candidate const& frame = attempt->candidates[i];
        if (frame.criterion == log::Criterion::Lost && frame.index == index) {
            return fmt::format(
                "F{}, which {} chose, could not be handed over ({}): an ordinary capture.",
                frame.frameNo, selector, frame.found);
        }
    }
    return fmt::format("{} asked for an ordinary capture, without a history frame.", selector);
}

std::string lackText(pipeline::CaptureRecord const& capture, log::CaptureExplanation const& reasons,
                     size_t tries) {
    tries = std::min(tries, capture.tries.size());
    std::set<uint32_t> offered;
    size_t made = tries;
    for (size_t i = 0; i < tries; ++i) {
        made += capture.tries[i].repeats;
        auto const& frames = capture.tries[i].historyFrames;
        offered.insert(frames.begin(), frames.end());
    }
    Refused refused;
    for (size_t i = 0; i < std::min(tries, reasons.tries.size()); ++i) {
        for (log::Candidate const& frame : reasons.tries[i].candidates) {
            if (frame.verdict == log::Verdict::Refused) {
                refused[frame.frameNo] = &frame;
            }
        }
    }
    // The first try is made at the press.
    std::string const when = tries == 1 ? "At the press" : fmt::format("In {} tries", made);
    if (offered.empty()) {
        return when + " the history was empty.";
    }
    std::string const text = fmt::format("{} {} {} in the history", when,
                                         base::counted(offered.size(), "frame", "frames"),
                                         offered.size() == 1 ? "was" : "were");
    if (refused.empty()) {
        return fmt::format("{}; {} gives no reasons.", text, selectorOf(reasons));
    }
    return fmt::format("{}, {} refused: {}.", text,
                       refused.size() == offered.size() ? "all" : std::to_string(refused.size()),
                       reasonsText(refused));
}

ReplayFrames::ReplayFrames(recording::Recording const& recording, run::ReplayResult const& result)
    : mRecording(recording), mResult(result) {
    if (!recording.frames.empty()) {
        mTimes = pipeline::frameTimes(recording, result.options);
    }
    for (size_t i = 0; i < mTimes.size(); ++i) {
        if (auto const timeNs = arrivalNs(i)) {
            mArrived.emplace(*timeNs, recording.frames[i].frameNo);
        }
    }
    for (pipeline::CaptureRecord const& capture : result.captures) {
        mPressed.emplace(capture.pressNs, capture.requestNo);
        for (pipeline::FrameOutcome const& frame : capture.frames) {
            if (frame.historyFrame && frame.answeredNs) {
                mTakers.emplace(*frame.historyFrame, Taker{capture.requestNo, *frame.answeredNs});
            }
        }
    }
}

std::optional<size_t> ReplayFrames::find(uint32_t frameNo) const {
    auto const found = std::lower_bound(
        all().begin(), all().end(), frameNo,
        [](recording::SensorFrame const& frame, uint32_t no) { return frame.frameNo < no; });
    return found != all().end() && found->frameNo == frameNo
               ? std::optional(static_cast<size_t>(found - all().begin()))
               : std::nullopt;
}

std::optional<int64_t> ReplayFrames::arrivalNs(size_t position) const {
    if (mResult.device) {
        return std::nullopt;
    }
    return mResult.arrivalsNs.empty() ? mTimes[position].arrivalNs : mResult.arrivalsNs[position];
}

std::optional<uint32_t> ReplayFrames::arrivedAt(int64_t timeNs) const {
    auto const found = mArrived.find(timeNs);
    return found != mArrived.end() ? std::optional(found->second) : std::nullopt;
}

std::optional<uint32_t> ReplayFrames::pressedAt(int64_t timeNs) const {
    auto const found = mPressed.find(timeNs);
    return found != mPressed.end() ? std::optional(found->second) : std::nullopt;
}

std::string ReplayFrames::wayText(size_t position) const {
    recording::SensorFrame const& frame = all()[position];
    int64_t const wayNs = *arrivalNs(position) - frame.timestampNs;
    // Behind the schedule: a fault's doing.
    int64_t const lateNs = *arrivalNs(position) - mTimes[position].arrivalNs;
    int64_t const deliveryNs = wayNs - lateNs - frame.exposureNs - frame.readoutNs;
    std::string parts;
    // What the recording does not tell counts as 0, and must not read like a measured 0.
    for (auto const& [column, name, ns] :
         {std::tuple{recording::Column::Exposure, "exposure", frame.exposureNs},
          {recording::Column::Readout, "readout", frame.readoutNs}}) {
        parts += mRecording.lacks(column) ? fmt::format("{} not told, ", name)
                                          : fmt::format("{} {}, ", briefTime(ns), name);
    }
    return fmt::format("{} later ({}{} delivery{})", briefTime(wayNs), parts, briefTime(deliveryNs),
                       lateNs != 0 ? fmt::format(", {} late", briefTime(lateNs)) : "");
}

std::optional<ReplayFrames::Taker> ReplayFrames::taker(uint32_t frameNo) const {
    auto const found = mTakers.find(frameNo);
    return found != mTakers.end() ? std::optional(found->second) : std::nullopt;
}

}  // namespace zebcam::tool::report
