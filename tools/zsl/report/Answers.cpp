#include "report/Answers.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <string_view>
#include <utility>

#include "base/Text.h"
#include "report/AnswerParts.h"
#include "report/JsonParts.h"

namespace zebcam::tool::report {

using base::counted;
using pipeline::CaptureRecord;
using pipeline::FrameOutcome;
using pipeline::Served;

namespace {

/// Frames of a capture that came back together in the same way.
using Group = std::vector<size_t>;

std::vector<Group> groupsOf(CaptureRecord const& capture) {
    std::vector<Group> groups;
    for (size_t i = 0; i < capture.frames.size(); ++i) {
        FrameOutcome const& frame = capture.frames[i];
        auto const isAlike = [&](Group const& group) {
            FrameOutcome const& other = capture.frames[group.front()];
            return other.served == frame.served && other.answeredNs == frame.answeredNs &&
                   other.historyFrame.has_value() == frame.historyFrame.has_value();
        };
        auto const group = std::find_if(groups.begin(), groups.end(), isAlike);
        (group != groups.end() ? *group : groups.emplace_back()).push_back(i);
    }
    return groups;
}

/// What is said of one capture.
class CaptureAnswer {
public:
    CaptureAnswer(ReplayFrames const& frames, run::ReplayResult const& result, size_t which,
                  log::CaptureExplanation const& reasons)
        : mFrames(frames),
          mResult(result),
          mCapture(result.captures[which]),
          mByDefault(which < result.byDefault.size() ? &result.byDefault[which] : nullptr),
          mReasons(reasons) {
        mWantedNs = difference(mCapture.pressNs, nsOfMs(result.offsetMs));
        for (log::TryExplanation const& attempt : reasons.tries) {
            mWantedNs = attempt.zsdTimestampNs.value_or(mWantedNs);
        }
        if (int64_t const offsetNs = difference(mCapture.pressNs, mWantedNs); offsetNs != 0) {
            mWantedText = "the wanted instant";
            mOffsetText = fmt::format(" (press {} {})", offsetNs > 0 ? '-' : '+',
                                      briefTime(std::abs(offsetNs)));
        }
    }

    std::string text() const {
        std::vector<Group> const groups = groupsOf(mCapture);
        std::string text;
        for (Group const& group : groups) {
            text += text.empty() ? "" : "\n";
            if (mCapture.frames.size() > 1) {
                text += fmt::format("{} {}: ", group.size() > 1 ? "Frames" : "Frame",
                                    namesOf({group.begin(), group.end()}, ""));
            }
            text += groupText(group) + byDefaultText(group);
        }
        return text;
    }

private:
    std::string groupText(Group const& group) const {
        FrameOutcome const& frame = mCapture.frames[group.front()];
        switch (frame.served) {
            case Served::Unanswered:
                return "The processor never gave an answer. " + lackText(mCapture, mReasons);
            case Served::Flushed:
                return fmt::format("{}, {}, ended the wait with an ordinary capture. {}",
                                   flushText(frame),
                                   relative(*frame.answeredNs - mCapture.pressNs, "the press"),
                                   lackText(mCapture, mReasons));
            case Served::TimedOut:
                return timeoutText(group, frame);
            case Served::AtOnce:
            case Served::Waited:
                break;
        }
        if (!frame.historyFrame) {
            return withoutHistoryText(reasonsOf(frame), group.front(), selectorOf(mReasons));
        }
        std::string text = choiceText(group);
        text += passedOverText(group);
        return text + " " + timingText(group);
    }

    /// What the default policy has for frames for which nothing was chosen, if anybody looked.
    std::string byDefaultText(Group const& group) const {
        if (mByDefault == nullptr || mCapture.frames[group.front()].isChosen()) {
            return "";
        }
        std::set<uint64_t> indices;
        std::set<uint64_t> frames;
        int64_t lastNs = 0;
        for (size_t const i : group) {
            FrameOutcome const& frame = mByDefault->at(i);
            if (frame.isChosen()) {
                indices.insert(i);
                frames.insert(*frame.historyFrame);
                lastNs = std::max(lastNs, *frame.answeredNs - mCapture.pressNs);
            }
        }
        bool const isOne = group.size() == 1;
        if (frames.empty()) {
            return fmt::format(" With the default policy nothing is chosen for {} either.",
                               isOne ? "it" : "them");
        }
        std::string const who = isOne                            ? "it gets"
                                : indices.size() == group.size() ? "they get"
                                : indices.size() == 1 ? namesOf(indices, "frame ") + " gets"
                                                      : namesOf(indices, "frame ") + " get";
        return fmt::format(" With the default policy {} {}, {}{}.", who, namesOf(frames),
                           frames.size() > 1 ? "the last " : "",
                           lastNs == 0 ? "at once" : relative(lastNs, "the press"));
    }

    log::TryExplanation const* reasonsOf(FrameOutcome const& frame) const {
        return frame.tryIndex && *frame.tryIndex < mReasons.tries.size()
                   ? &mReasons.tries[*frame.tryIndex]
                   : nullptr;
    }

    std::set<uint64_t> chosenFrames(Group const& group) const {
        std::set<uint64_t> numbers;
        for (size_t const i : group) {
            numbers.insert(*mCapture.frames[i].historyFrame);
        }
        return numbers;
    }

    // Why these frames

    std::string choiceText(Group const& group) const {
        std::set<uint64_t> const frames = chosenFrames(group);
        std::string const names = namesOf(frames);
        bool const isOne = frames.size() == 1;
        log::TryExplanation const* const attempt = reasonsOf(mCapture.frames[group.front()]);
        if (attempt != nullptr && isParked(*attempt, group.front())) {
            return fmt::format("{} {} chosen by {} while still in flight.", names,
                               isOne ? "was" : "were", selectorOf(mReasons));
        }
        recording::SensorFrame const* const first = firstWanted();
        bool const endsAtFirst = first != nullptr && *frames.rbegin() == first->frameNo;
        return report::choiceText(frames, selectorOf(mReasons), mWantedText + mOffsetText,
                                  endsAtFirst);
    }

    bool isParked(log::TryExplanation const& attempt, size_t index) const {
        return std::any_of(attempt.served.begin(), attempt.served.end(), [&](auto const& served) {
            return served.index == index && served.source == log::Source::Arrived;
        });
    }

    recording::SensorFrame const* firstWanted() const {
        auto const& frames = mFrames.all();
        auto const first = std::lower_bound(
            frames.begin(), frames.end(), mWantedNs,
            [](auto const& frame, int64_t timeNs) { return frame.timestampNs < timeNs; });
        return first != frames.end() ? &*first : nullptr;
    }

    /// What lay before the chosen frames and would have suited the wanted instant better.
    std::string passedOverText(Group const& group) const {
        uint32_t const first = *chosenFrames(group).begin();
        size_t const last = mCapture.frames[group.front()].tryIndex.value_or(0);
        Refused refused;
        // Unusable ones are there in one try only: the processor lets them go.
        for (size_t i = 0; i <= last && i < mReasons.tries.size(); ++i) {
            for (log::Candidate const& frame : mReasons.tries[i].candidates) {
                recording::SensorFrame const* const sensor = sensorFrame(frame.frameNo);
                bool const isInTime = sensor != nullptr && sensor->timestampNs >= mWantedNs;
                if (frame.verdict == log::Verdict::Refused && frame.frameNo < first && isInTime &&
                    frame.criterion != log::Criterion::Time) {
                    refused[frame.frameNo] = &frame;
                }
            }
        }
        std::string text;
        if (!refused.empty()) {
            std::set<uint64_t> numbers;
            for (auto const& [frameNo, candidate] : refused) {
                numbers.insert(frameNo);
            }
            text = fmt::format(" {} before {} refused: {}.", namesOf(numbers),
                               numbers.size() > 1 ? "were" : "was", reasonsText(refused));
        }
        return text + missedText(first);
    }

    recording::SensorFrame const* sensorFrame(uint32_t frameNo) const {
        auto const found = mFrames.find(frameNo);
        return found ? &mFrames.all()[*found] : nullptr;
    }

    /// Where the first frame from the wanted instant on was, if no try saw it.
    std::string missedText(uint32_t chosen) const {
        recording::SensorFrame const* const wanted = firstWanted();
        bool const isOffered =
            wanted == nullptr || wanted->frameNo >= chosen || mCapture.tries.empty() ||
            std::any_of(mCapture.tries.begin(), mCapture.tries.end(), [&](auto const& attempt) {
                return std::binary_search(attempt.historyFrames.begin(),
                                          attempt.historyFrames.end(), wanted->frameNo);
            });
        // What a device's history kept is known of its tries only.
        if (isOffered || mResult.device) {
            return "";
        }
        std::string const who =
            fmt::format(" F{}, the first frame not before {},", wanted->frameNo, mWantedText);
        auto const taken = mFrames.taker(wanted->frameNo);
        if (taken && taken->timeNs <= mCapture.pressNs) {
            return fmt::format("{} had gone to capture {}.", who, taken->requestNo);
        }
        size_t const position = *mFrames.find(wanted->frameNo);
        auto const arrivalNs = mFrames.arrivalNs(position);
        if (!arrivalNs) {
            return who + " never arrived.";
        }
        if (*arrivalNs > mCapture.pressNs) {
            return fmt::format("{} arrived {}.", who,
                               relative(*arrivalNs - mCapture.pressNs, "the press"));
        }
        return who + leftText(position);
    }

    /// When a frame left the history, and how large a history would have kept it.
    std::string leftText(size_t position) const {
        // Frames that push it out, as they come and go; at one instant they come first.
        std::vector<std::pair<int64_t, int>> moves;
        auto const& frames = mFrames.all();
        for (size_t i = position + 1;
             i < frames.size() && frames[i].timestampNs <= mCapture.pressNs; ++i) {
            if (auto const arrivalNs = mFrames.arrivalNs(i)) {
                moves.emplace_back(*arrivalNs, -1);
                auto const taken = mFrames.taker(frames[i].frameNo);
                if (taken && taken->requestNo != mCapture.requestNo) {
                    moves.emplace_back(taken->timeNs, 1);
                }
            }
        }
        std::sort(moves.begin(), moves.end());
        size_t const history = mResult.options.history;
        size_t newer = 0;
        size_t most = 0;
        std::optional<int64_t> leftNs;
        for (auto const& [timeNs, move] : moves) {
            if (timeNs > mCapture.pressNs) {
                break;
            }
            newer = move < 0 ? newer + 1 : newer - 1;
            most = std::max(most, newer);
            leftNs = !leftNs && newer == history ? timeNs : leftNs;
        }
        std::string const size = counted(history, "frame", "frames");
        if (!leftNs) {
            return fmt::format(" was no longer in the history of {}.", size);
        }
        return fmt::format(" had left the history of {} {}; a history of {} would have had it.",
                           size, relative(*leftNs - mCapture.pressNs, "the press"),
                           counted(most + 1, "frame", "frames"));
    }

    // Why then

    std::string timingText(Group const& group) const {
        // Of frames that come together the last to arrive decides.
        std::optional<size_t> last;
        for (uint32_t const frameNo : chosenFrames(group)) {
            auto const found = mFrames.find(frameNo);
            if (found && (!last || mFrames.arrivalNs(*found) > mFrames.arrivalNs(*last))) {
                last = found;
            }
        }
        bool const isOne = group.size() == 1;
        FrameOutcome const& frame = mCapture.frames[group.front()];
        int64_t const waitNs = *frame.answeredNs - mCapture.pressNs;
        std::string const came =
            fmt::format("{} came {}", isOne ? "It" : "They",
                        waitNs == 0 ? "at once" : relative(waitNs, "the press"));
        auto const arrivalNs = last ? mFrames.arrivalNs(*last) : std::nullopt;
        if (!last || !arrivalNs) {
            return fmt::format("{}: {} began {}.", came, namesOf(chosenFrames(group)),
                               relative(*mCapture.lagNs(frame), "the press"));
        }
        recording::SensorFrame const& sensor = mFrames.all()[*last];
        std::string const who = isOne ? "it" : fmt::format("F{}, the last,", sensor.frameNo);
        std::string text =
            fmt::format("{}: {} began {}", came, who,
                        relative(sensor.timestampNs - mCapture.pressNs, "the press"));
        int64_t const heldNs = *frame.answeredNs - *arrivalNs;
        if (frame.served == Served::AtOnce) {
            return text + fmt::format(" and had been in the history for {}.", briefTime(heldNs)) +
                   clockText(group);
        }
        text += fmt::format(" and arrived {}.", mFrames.wayText(*last));
        if (heldNs > 0) {
            text += fmt::format(" {} had been in the history for {} then{}.",
                                isOne ? "It" : fmt::format("F{}", sensor.frameNo),
                                briefTime(heldNs), triggerText(frame));
        }
        return text + clockText(group) + pressText();
    }

    std::string triggerText(FrameOutcome const& frame) const {
        auto const arrived = mFrames.arrivedAt(*frame.answeredNs);
        return arrived ? fmt::format(": only the try when F{} arrived took it", *arrived) : "";
    }

    /// A frame whose timestamp is not when it began.
    std::string clockText(Group const& group) const {
        FrameOutcome const& frame = mCapture.frames[group.front()];
        recording::SensorFrame const* const sensor = sensorFrame(*frame.historyFrame);
        int64_t const offNs =
            sensor != nullptr ? *frame.timestampNs - sensor->timestampNs : int64_t{0};
        return offNs == 0 ? ""
                          : fmt::format(" Its timestamp tells another time: {}.",
                                        relative(offNs, "it began"));
    }

    /// What the history had at the press, for a frame that was waited for.
    std::string pressText() const {
        if (mCapture.tries.empty() || mReasons.tries.empty()) {
            return "";
        }
        pipeline::TryRecord const& first = mCapture.tries.front();
        log::TryExplanation const& reasons = mReasons.tries.front();
        if (first.historyFrames.empty()) {
            return " At the press the history was empty.";
        }
        uint32_t const newest = first.historyFrames.back();
        auto const found = std::find_if(reasons.candidates.begin(), reasons.candidates.end(),
                                        [&](auto const& frame) { return frame.frameNo == newest; });
        if (found != reasons.candidates.end() && found->verdict == log::Verdict::Taken) {
            return fmt::format(" F{}, the newest in the history at the press, went to frame {}.",
                               newest, found->index.value_or(0));
        }
        if (found == reasons.candidates.end() || found->criterion != log::Criterion::Time ||
            !found->foundNumber) {
            return " " + lackText(mCapture, mReasons, 1);
        }
        int64_t const neededNs = difference(mCapture.pressNs, *found->foundNumber);
        return fmt::format(
            " At the press the newest frame in the history, F{}, had begun {}; with an offset of "
            "{} ms it would have begun in time.",
            newest, relative(difference(*found->foundNumber, mWantedNs), mWantedText),
            (neededNs + base::NS_PER_MS - 1) / base::NS_PER_MS);
    }

    std::string timeoutText(Group const& group, FrameOutcome const& frame) const {
        std::string const when = relative(*frame.answeredNs - mCapture.pressNs, "the press");
        std::string text =
            fmt::format("The capture's time ran out, {}, with nothing chosen: ", when);
        if (frame.historyFrame) {
            std::set<uint64_t> const frames = chosenFrames(group);
            text += fmt::format("{} {} the oldest in the history with the streams that it needs.",
                                namesOf(frames), frames.size() > 1 ? "were" : "was");
        } else {
            text +=
                "no frame in the history had the streams that it needs, so that it became an "
                "ordinary capture.";
        }
        return text + " " + lackText(mCapture, mReasons);
    }

    std::string flushText(FrameOutcome const& frame) const {
        int64_t const timeNs = *frame.answeredNs - mResult.firstTimestampNs;
        auto const& asked = mResult.options.flushesNs;
        if (std::find(asked.begin(), asked.end(), timeNs) != asked.end()) {
            return "The flush of --flush-at";
        }
        auto const strikes =
            mResult.faults ? mResult.faults->strikes : decltype(pipeline::FaultTally::strikes){};
        bool const mayBeFault = std::any_of(strikes.begin(), strikes.end(), [](auto const& strike) {
            return strike.first == pipeline::FaultKind::Flush && strike.second > 0;
        });
        bool const isOther = mayBeFault || mResult.device.has_value();
        return isOther ? "A flush" : "The flush at the end of the recording";
    }

    ReplayFrames const& mFrames;
    run::ReplayResult const& mResult;
    CaptureRecord const& mCapture;
    std::vector<FrameOutcome> const* const mByDefault;  ///< null: nobody looked
    log::CaptureExplanation const& mReasons;
    int64_t mWantedNs = 0;
    std::string mWantedText = "the press";
    std::string mOffsetText;  ///< told where the wanted instant is named first
};

}  // namespace

std::vector<log::CaptureExplanation const*> explanationsOf(
    std::vector<CaptureRecord> const& captures, log::Explanation const* explanation) {
    // By number: a log has the captures in the order of their first lines. Numbers may come again.
    std::map<uint32_t, std::vector<log::CaptureExplanation const*>> byNumber;
    if (explanation != nullptr) {
        for (log::CaptureExplanation const& capture : explanation->captures) {
            byNumber[capture.requestNo].push_back(&capture);
        }
    }
    std::map<uint32_t, size_t> used;
    std::vector<log::CaptureExplanation const*> found;
    for (CaptureRecord const& capture : captures) {
        auto const& all = byNumber[capture.requestNo];
        size_t const next = used[capture.requestNo]++;
        found.push_back(next < all.size() ? all[next] : nullptr);
    }
    return found;
}

std::vector<std::string> answersOf(ReplayFrames const& frames, run::ReplayResult const& result,
                                   log::Explanation const& explanation) {
    std::vector<log::CaptureExplanation const*> const reasons =
        explanationsOf(result.captures, &explanation);
    std::vector<std::string> answers;
    for (size_t i = 0; i < result.captures.size(); ++i) {
        answers.push_back(reasons[i] != nullptr
                              ? CaptureAnswer(frames, result, i, *reasons[i]).text()
                              : "The log tells nothing of this capture.");
    }
    return answers;
}

}  // namespace zebcam::tool::report
