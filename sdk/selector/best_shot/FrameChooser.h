#pragma once

#include <policy/zsl/ISelector.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kit {

using NSCam::ZslPolicy::ISelector;

/// What counts as the best shot. Each member is a parameter of the policy.
struct BestShotRule {
    enum class Burst {
        Run,     ///< neighbours, for frames that are to be blended
        Spread,  ///< one from each part of the history, for frames that somebody is to choose from
    };

    double costPerS = 1.5;     ///< `cost_per_s`: share of the sharpness that a second is worth
    double minShare = 0.85;    ///< `min_share`: of the sharpest's sharpness, whatever the time
    int64_t maxAgeMs = 1000;   ///< `max_age_ms`: how much older than wanted a frame may be
    int64_t maxWaitMs = 200;   ///< `max_wait_ms`: for the history to reach the wanted instant
    int64_t holdMs = 0;        ///< `hold_ms`: how long to wait for better frames in any case
    size_t maxLocks = 4;       ///< `max_locks`: frames kept at a time while captures wait
    Burst burst = Burst::Run;  ///< `burst`: run or spread
};

/// A frame that may serve, and what speaks for it and against it; also a run of them by its means.
struct Candidate {
    ISelector::HistoryFrame const* frame = nullptr;
    double share = 0;  ///< of the sharpness of the sharpest one, 0 to 1
    double cost = 0;   ///< of its distance from the wanted instant

    double score() const { return share - cost; }
};

/**
 * Chooses frames for the frames that a capture still wants. What it is made from must outlive it.
 *
 * The cost of a frame's time is the rule's for each second by which it is older than the wanted
 * instant, or newer than the first frame from that instant on, which therefore costs nothing. The
 * best frame is the one of the highest score among those whose share is large enough. So it is
 * never less sharp than that first frame, which the default policy takes.
 */
class FrameChooser {
public:
    /// The n-th entry is for the n-th wanted frame; in ascending order.
    using Choice = std::vector<Candidate const*>;

    /// `usable`, in ascending order, are those that may serve some wanted frame.
    FrameChooser(ISelector::SelectInputParams const& in, BestShotRule const& rule,
                 std::vector<ISelector::HistoryFrame const*> const& usable);

    std::vector<Candidate> const& candidates() const { return mCandidates; }

    /// Whether a candidate is of the wanted instant or newer.
    bool reachesWantedInstant() const;

    /// All wanted frames as the rule asks for them; empty if the history cannot give them.
    Choice best() const;

    /// What a capture gets that can wait no longer: as good as possible, neighbours or not, and
    /// where there are too few, all.
    Choice forced() const;

private:
    enum class Gaps { Refused, Taken };

    bool fits(size_t candidate, size_t wanted) const;
    bool areNeighbours(size_t earlier, size_t later) const;
    Choice bestRun(size_t begin, size_t end, size_t firstWanted, size_t size, Gaps gaps) const;
    Choice bestSpread() const;
    Choice allInOrder() const;

    ISelector::SelectInputParams const& mIn;
    BestShotRule const& mRule;
    std::vector<ISelector::ZslFrameInfo const*> mWanted;
    std::vector<Candidate> mCandidates;
    double mMaxStep = 0;  ///< s between neighbours
};

}  // namespace kit
