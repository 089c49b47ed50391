#include "best_shot/BestShotSelector.h"

#include <policy/zsl/Reasons.h>

#include <algorithm>
#include <cstdio>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "FrameFacts.h"

namespace kit {

namespace {

using Choice = FrameChooser::Choice;
using In = ISelector::SelectInputParams;

/// Broken frames may be of any time; sums of doubles do not overflow.
constexpr double wide(int64_t number) {
    return static_cast<double>(number);
}

constexpr double nsOfMs(int64_t ms) {
    return wide(ms) * 1e6;
}

bool isChosen(ISelector::SelectOutputParams const& out, uint32_t frameNo) {
    return std::any_of(out.selected.begin(), out.selected.end(),
                       [&](auto const& each) { return each.second.frameNo == frameNo; });
}

/// None: the frame may serve the wanted one.
std::optional<Failure> judge(In const& in, int64_t maxAgeMs, ISelector::HistoryFrame const& frame,
                             ISelector::ZslFrameInfo const& wanted) {
    if (wide(in.zsdTs) - wide(frame.timestamp) > nsOfMs(maxAgeMs)) {
        return Failure{"time", "too much older than the wanted instant"};
    }
    if (!tellsFocus(frame, wanted)) {
        return Failure{"focus", "not told"};
    }
    return failureOf(in, frame, wanted);
}

/// The history frames that may serve at least one of the wanted ones.
std::vector<ISelector::HistoryFrame const*> usableFrames(In const& in, int64_t maxAgeMs) {
    std::vector<ISelector::HistoryFrame const*> usable;
    for (auto const& [frameNo, frame] : in.historyFrames) {
        bool const isUsable = std::any_of(in.frameInfos.begin(), in.frameInfos.end(),
                                          [&, &frame = frame](auto const& each) {
                                              return !judge(in, maxAgeMs, frame, each.second);
                                          });
        if (isUsable) {
            usable.push_back(&frame);
        }
    }
    return usable;
}

std::string decimals(double number) {
    char text[40];
    std::snprintf(text, sizeof text, "%.2f", number);
    return text;
}

std::string scoreText(Candidate const& candidate) {
    return decimals(candidate.share) + " of the sharpest, minus " + decimals(candidate.cost) +
           " for the time";
}

/// Why a candidate is not what the capture gets.
void rejectCandidate(ISelector const& policy, In const& in, BestShotRule const& rule,
                     Candidate const& candidate, Choice const& choice) {
    ISelector::HistoryFrame const& frame = *candidate.frame;
    if (choice.empty()) {
        reject(policy, in, frame, "wait", "the history cannot give all that is wanted yet");
    } else if (choice.size() > 1) {
        bool const isRun = rule.burst == BestShotRule::Burst::Run;
        reject(policy, in, frame, isRun ? "run" : "spread", scoreText(candidate));
    } else if (candidate.share < rule.minShare) {
        reject(policy, in, frame, "sharpness",
               decimals(candidate.share) + " < " + decimals(rule.minShare) + " of the sharpest");
    } else {
        reject(policy, in, frame, "score",
               scoreText(candidate) + " < " + decimals(choice.front()->share) + " - " +
                   decimals(choice.front()->cost));
    }
}

}  // namespace

/// Of a capture that was flushed nobody hears any more.
void BestShotSelector::forgetEnded(SelectInputParams const& in) const {
    // As if now were the wanted instant of a capture that has waited twice as long as any can.
    double const oldest = wide(in.zsdTs) + nsOfMs(in.durationMs) - nsOfMs(2 * MAX_WAIT_MS);
    std::erase_if(mKept, [oldest](auto const& each) { return wide(each.first.second) < oldest; });
}

bool BestShotSelector::isKept(HistoryFrame const& frame) const {
    for (auto const& [capture, frames] : mKept) {
        if (frames.count(keyOf(frame)) > 0) {
            return true;
        }
    }
    return false;
}

/// Frames that should be locked and do not look so: the sensor has delivered them again, and the
/// later one hides the one that is locked. (Or a flush has given that back; then there is none.)
BestShotSelector::FrameKeys BestShotSelector::takeDeliveredTwice(
    SelectInputParams const& in) const {
    FrameKeys twice;
    for (auto const& [frameNo, frame] : in.historyFrames) {
        if (!frame.isLocked && isKept(frame)) {
            twice.insert(keyOf(frame));
        }
    }
    for (auto& [capture, frames] : mKept) {
        std::erase_if(frames, [&](FrameKey const& frame) { return twice.count(frame) > 0; });
    }
    return twice;
}

/// Keeps what is promising for the capture, but for `excepted`, instead of what it had kept so far.
void BestShotSelector::keep(SelectInputParams const& in, Choice const& promising,
                            FrameKeys const& excepted) const {
    CaptureKey const capture{in.requestNo, in.zsdTs};
    mKept.erase(capture);
    size_t taken = 0;  // by other captures
    for (auto const& [frameNo, frame] : in.historyFrames) {
        taken += frame.isLocked && isKept(frame) ? 1 : 0;
    }
    // Half at most: the history has to go on for the captures to come.
    size_t const most = std::min(mRule.maxLocks, in.historyFrames.size() / 2);
    FrameKeys frames;
    for (Candidate const* candidate : promising) {
        FrameKey const frame = keyOf(*candidate->frame);
        if (taken + frames.size() < most && excepted.count(frame) == 0) {
            frames.insert(frame);
        }
    }
    if (!frames.empty()) {
        mKept.emplace(capture, std::move(frames));
    }
}

void BestShotSelector::giveOrders(SelectInputParams const& in, Choice const& promising,
                                  SelectOutputParams& out) const {
    zebcam::LockGuard const lock(mLock);
    forgetEnded(in);
    FrameKeys const twice = takeDeliveredTwice(in);
    keep(in, promising, twice);  // next time: an order at a time
    for (auto const& [frameNo, frame] : in.historyFrames) {
        bool const isTaken = isChosen(out, frameNo);
        if (twice.count(keyOf(frame)) > 0) {
            // Of two with one number only one can be seen, so that the locked one goes. A frame
            // that is served must not come back.
            out.ops[frameNo] = isTaken ? SelectOutputParams::RELEASE : SelectOutputParams::UNLOCK;
        } else if (!isTaken && frame.isLocked != isKept(frame)) {
            out.ops[frameNo] =
                frame.isLocked ? SelectOutputParams::UNLOCK : SelectOutputParams::LOCK;
        }
    }
}

void BestShotSelector::tellReasons(SelectInputParams const& in, FrameChooser const& chooser,
                                   Choice const& choice, SelectOutputParams const& out) const {
    auto candidate = chooser.candidates().begin();
    for (auto const& [frameNo, frame] : in.historyFrames) {
        bool const isCandidate =
            candidate != chooser.candidates().end() && candidate->frame == &frame;
        if (!isChosen(out, frameNo) && isCandidate) {
            rejectCandidate(*this, in, mRule, *candidate, choice);
        } else if (!isChosen(out, frameNo) && !in.frameInfos.empty()) {
            auto const& wanted = in.frameInfos.begin()->second;
            if (auto const failure = judge(in, mRule.maxAgeMs, frame, wanted)) {
                reject(*this, in, frame, failure->test, failure->how);
            }
        }
        candidate += isCandidate ? 1 : 0;
    }
}

ISelector::SelectOutputParams BestShotSelector::select(SelectInputParams const& in) const {
    FrameChooser const chooser(in, mRule, usableFrames(in, mRule.maxAgeMs));
    bool const isDue = chooser.reachesWantedInstant() && in.durationMs >= mRule.holdMs;
    bool const isOver = in.durationMs >= std::max(mRule.maxWaitMs, mRule.holdMs);
    Choice choice = isDue ? chooser.best() : Choice{};
    if (choice.empty() && isOver) {
        choice = chooser.forced();
    }
    SelectOutputParams out;
    auto wanted = in.frameInfos.begin();
    for (Candidate const* candidate : choice) {
        out.selected[wanted->first].frameNo = candidate->frame->frameNo;
        ++wanted;
    }
    giveOrders(in, choice.empty() ? chooser.forced() : Choice{}, out);
    tellReasons(in, chooser, choice, out);
    return out;
}

}  // namespace kit
