#include "best_shot/FrameChooser.h"

#include <algorithm>
#include <limits>
#include <map>
#include <optional>

#include "FrameFacts.h"
#include "best_shot/Sharpness.h"

namespace kit {

namespace {

/// In s. As numbers that do not wrap around, because clocks of broken frames may be anything.
double secondsBetween(int64_t fromNs, int64_t toNs) {
    constexpr double NS_PER_S = 1e9;
    return (static_cast<double>(toNs) - static_cast<double>(fromNs)) / NS_PER_S;
}

/// The most by which neighbours may be apart. The sensor's interval follows from the history: its
/// shortest step, for captures before this one have left gaps.
double maxStepOf(std::map<uint32_t, ISelector::HistoryFrame> const& frames) {
    double shortest = std::numeric_limits<double>::max();
    ISelector::HistoryFrame const* before = nullptr;
    for (auto const& [frameNo, frame] : frames) {
        if (before != nullptr && frame.timestamp > before->timestamp) {
            shortest = std::min(shortest, secondsBetween(before->timestamp, frame.timestamp));
        }
        before = &frame;
    }
    constexpr double TOLERANCE = 1.5;  // a step of two intervals lacks a frame
    return shortest * TOLERANCE;
}

Candidate meanOf(Candidate const* first, size_t count) {
    Candidate mean{first->frame};
    for (size_t i = 0; i < count; ++i) {
        mean.share += first[i].share / static_cast<double>(count);
        mean.cost += first[i].cost / static_cast<double>(count);
    }
    return mean;
}

}  // namespace

FrameChooser::FrameChooser(ISelector::SelectInputParams const& in, BestShotRule const& rule,
                           std::vector<ISelector::HistoryFrame const*> const& usable)
    : mIn(in), mRule(rule), mMaxStep(maxStepOf(in.historyFrames)) {
    for (auto const& [index, info] : in.frameInfos) {
        mWanted.push_back(&info);
    }
    auto const first = std::find_if(usable.begin(), usable.end(), [&](auto const* frame) {
        return frame->timestamp >= in.zsdTs;
    });
    std::vector<double> const shares = sharpnessShares(usable);
    for (size_t i = 0; i < usable.size(); ++i) {
        int64_t const timestamp = usable[i]->timestamp;
        double const apart = timestamp < in.zsdTs ? secondsBetween(timestamp, in.zsdTs)
                                                  : secondsBetween((*first)->timestamp, timestamp);
        mCandidates.push_back({usable[i], shares[i], rule.costPerS * apart});
    }
}

bool FrameChooser::reachesWantedInstant() const {
    return !mCandidates.empty() && mCandidates.back().frame->timestamp >= mIn.zsdTs;
}

bool FrameChooser::fits(size_t candidate, size_t wanted) const {
    ISelector::HistoryFrame const& frame = *mCandidates[candidate].frame;
    return carriesStreams(frame, *mWanted[wanted]->requiredStreams) &&
           matchesSensorModes(frame, *mWanted[wanted]) && tellsFocus(frame, *mWanted[wanted]);
}

bool FrameChooser::areNeighbours(size_t earlier, size_t later) const {
    return secondsBetween(mCandidates[earlier].frame->timestamp,
                          mCandidates[later].frame->timestamp) <= mMaxStep;
}

/// The best `size` candidates in a row out of [begin, end), for the wanted ones from `firstWanted`
/// on. Each run stands for its mean.
FrameChooser::Choice FrameChooser::bestRun(size_t begin, size_t end, size_t firstWanted,
                                           size_t size, Gaps gaps) const {
    std::vector<Candidate> runs;  // by start, from `begin` on; one that does not fit has no frame
    double sharpest = 0;
    for (size_t start = begin; start + size <= end; ++start) {
        bool isFit = true;
        for (size_t i = 0; i < size && isFit; ++i) {
            isFit = fits(start + i, firstWanted + i) &&
                    (gaps == Gaps::Taken || i == 0 || areNeighbours(start + i - 1, start + i));
        }
        runs.push_back(isFit ? meanOf(&mCandidates[start], size) : Candidate{});
        sharpest = std::max(sharpest, runs.back().share);
    }
    std::optional<size_t> best;
    for (size_t i = 0; i < runs.size(); ++i) {
        if (runs[i].frame != nullptr && runs[i].share >= mRule.minShare * sharpest &&
            (!best || runs[i].score() > runs[*best].score())) {
            best = i;
        }
    }
    Choice choice;
    for (size_t i = 0; best && i < size; ++i) {
        choice.push_back(&mCandidates[begin + *best + i]);
    }
    return choice;
}

/// The candidates in as many parts of the same size as there are wanted frames, and the best one of
/// each.
FrameChooser::Choice FrameChooser::bestSpread() const {
    size_t const parts = mWanted.size();
    Choice choice;
    for (size_t part = 0; part < parts; ++part) {
        Choice const one = bestRun(part * mCandidates.size() / parts,
                                   (part + 1) * mCandidates.size() / parts, part, 1, Gaps::Taken);
        if (one.empty()) {
            return {};
        }
        choice.push_back(one.front());
    }
    return choice;
}

/// As many as possible: what is left over for the wanted frames that wait on is newer than this.
FrameChooser::Choice FrameChooser::allInOrder() const {
    Choice choice;
    for (size_t i = 0; i < mCandidates.size() && choice.size() < mWanted.size(); ++i) {
        if (fits(i, choice.size())) {
            choice.push_back(&mCandidates[i]);
        }
    }
    return choice;
}

FrameChooser::Choice FrameChooser::best() const {
    return mRule.burst == BestShotRule::Burst::Spread
               ? bestSpread()
               : bestRun(0, mCandidates.size(), 0, mWanted.size(), Gaps::Refused);
}

FrameChooser::Choice FrameChooser::forced() const {
    Choice choice = best();
    if (choice.empty()) {
        choice = bestRun(0, mCandidates.size(), 0, mWanted.size(), Gaps::Taken);
    }
    return choice.empty() ? allInOrder() : choice;
}

}  // namespace kit
