#include "NearestSettledSelector.h"

#include <policy/zsl/Reasons.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <string>
#include <vector>

namespace kit {

namespace {

constexpr int64_t NS_PER_MS = 1'000'000;

/// How good a choice is: more frames served first, then nearer ones.
struct Score {
    size_t served = 0;
    int64_t distanceNs = 0;

    bool operator==(Score const&) const = default;
    bool isWorseThan(Score const& other) const {
        return served != other.served ? served < other.served : distanceNs > other.distanceNs;
    }
};

/// The best scores for the first `wanted` requested and the first `history` history frames.
class ScoreTable {
public:
    ScoreTable(size_t wanted, size_t history)
        : mColumns(history + 1), mScores((wanted + 1) * mColumns) {}

    Score& at(size_t wanted, size_t history) { return mScores[wanted * mColumns + history]; }

private:
    size_t mColumns;
    std::vector<Score> mScores;
};

/// Both lists keep their order, so what is best for shorter lists gives what is best for longer
/// ones: either list's last frame stays unused, or the two last frames are paired.
template <typename MayServe>
ScoreTable scoreChoices(ISelector::SelectInputParams const& in, MayServe mayServe) {
    ScoreTable best(in.frameInfos.size(), in.historyFrames.size());
    size_t i = 0;
    for (auto const& [index, wanted] : in.frameInfos) {
        ++i;
        size_t j = 0;
        for (auto const& [frameNo, frame] : in.historyFrames) {
            ++j;
            Score score = best.at(i, j - 1);
            if (score.isWorseThan(best.at(i - 1, j))) {
                score = best.at(i - 1, j);
            }
            Score paired = best.at(i - 1, j - 1);
            paired.served += 1;
            paired.distanceNs += std::abs(frame.timestamp - in.zsdTs);
            if (score.isWorseThan(paired) && mayServe(frame, wanted)) {
                score = paired;
            }
            best.at(i, j) = score;
        }
    }
    return best;
}

/// Walks back along the choices that led to the best score. Where several did, the earlier of the
/// requested frames are served.
ISelector::SelectOutputParams bestChoice(ISelector::SelectInputParams const& in, ScoreTable& best) {
    ISelector::SelectOutputParams out;
    auto wanted = in.frameInfos.rbegin();
    auto history = in.historyFrames.rbegin();
    size_t i = in.frameInfos.size();
    size_t j = in.historyFrames.size();
    while (i > 0 && j > 0) {
        bool const isUnserved = best.at(i, j) == best.at(i - 1, j);
        bool const isUnused = !isUnserved && best.at(i, j) == best.at(i, j - 1);
        if (!isUnserved && !isUnused) {
            out.selected[wanted->first].frameNo = history->first;
        }
        if (!isUnused) {
            --i;
            ++wanted;
        }
        if (!isUnserved) {
            --j;
            ++history;
        }
    }
    return out;
}

}  // namespace

std::optional<Failure> NearestSettledSelector::judge(SelectInputParams const& in,
                                                     HistoryFrame const& frame,
                                                     ZslFrameInfo const& wanted) const {
    if (frame.timestamp < in.zsdTs - mLimits.maxAgeMs * NS_PER_MS) {
        return Failure{"age", "too much older than the press"};
    }
    if (!isFocusSettled(frame)) {
        return Failure{"focus", "not settled"};
    }
    return failureOf(in, frame, wanted);
}

void NearestSettledSelector::tellReasons(SelectInputParams const& in,
                                         SelectOutputParams const& out) const {
    for (auto const& [frameNo, frame] : in.historyFrames) {
        bool const isChosen =
            std::any_of(out.selected.begin(), out.selected.end(),
                        [no = frameNo](auto const& each) { return each.second.frameNo == no; });
        if (isChosen || in.frameInfos.empty()) {
            continue;
        }
        auto const failure = judge(in, frame, in.frameInfos.begin()->second);
        std::string const distance =
            std::to_string(std::abs(frame.timestamp - in.zsdTs) / NS_PER_MS) + " ms from the press";
        if (failure) {
            reject(*this, in, frame, failure->test, failure->how);
        } else if (out.selected.empty()) {
            reject(*this, in, frame, "wait", distance + ", and a nearer one may come");
        } else {
            reject(*this, in, frame, "distance", distance);
        }
    }
}

ISelector::SelectOutputParams NearestSettledSelector::select(SelectInputParams const& in) const {
    bool const reachesPress =
        !in.historyFrames.empty() && in.historyFrames.rbegin()->second.timestamp >= in.zsdTs;
    SelectOutputParams out;
    if (reachesPress || in.durationMs >= mLimits.maxWaitMs) {
        auto const mayServe = [&](HistoryFrame const& frame, ZslFrameInfo const& wanted) {
            return !judge(in, frame, wanted);
        };
        ScoreTable best = scoreChoices(in, mayServe);
        out = bestChoice(in, best);
    }
    tellReasons(in, out);
    return out;
}

}  // namespace kit
