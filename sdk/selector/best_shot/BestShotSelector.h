#pragma once

#include <policy/zsl/ISelector.h>
#include <zebcam/ThreadSafety.h>

#include <cstdint>
#include <map>
#include <set>
#include <utility>

#include "best_shot/FrameChooser.h"

namespace kit {

/**
 * Takes the sharpest frame that is not too far from the wanted instant.
 *
 * A frame may serve if it passes the built-in criteria but that of time, instead of which it is at
 * most `maxAgeMs` older than wanted; of the focus it need only tell. BestShotRule says what is best
 * among those. Several wanted frames get different history frames in ascending order.
 *
 * The capture waits until the history has reached the wanted instant and can give all that it
 * wants, but no longer than `maxWaitMs`. Meanwhile the policy locks what it would serve at once if
 * it had to, as far as that would age out of the history first, and `maxLocks` and half of the
 * frames in sight allow. With its answer it gives back what it kept for the capture.
 */
class BestShotSelector final : public NSCam::ZslPolicy::ISelector {
public:
    /// The longest waits that make sense, ms: after 3000 the processor serves a capture without its
    /// policy, which could then give nothing back.
    static constexpr int64_t MAX_WAIT_MS = 2900;

    explicit BestShotSelector(BestShotRule const& rule) : mRule(rule) {}

    char const* getName() const override { return "BestShotSelector"; }
    SelectOutputParams select(SelectInputParams const& in) const override;

private:
    // A number with a time, because frames and captures of two processors may have the same number.
    using FrameKey = std::pair<uint32_t, int64_t>;    ///< frame number and timestamp
    using CaptureKey = std::pair<uint32_t, int64_t>;  ///< request number and wanted instant
    using FrameKeys = std::set<FrameKey>;

    static FrameKey keyOf(HistoryFrame const& frame) { return {frame.frameNo, frame.timestamp}; }
    bool isKept(HistoryFrame const& frame) const REQUIRES(mLock);
    void forgetEnded(SelectInputParams const& in) const REQUIRES(mLock);
    FrameKeys takeDeliveredTwice(SelectInputParams const& in) const REQUIRES(mLock);
    void keep(SelectInputParams const& in, FrameChooser::Choice const& promising,
              FrameKeys const& excepted) const REQUIRES(mLock);
    void giveOrders(SelectInputParams const& in, FrameChooser::Choice const& promising,
                    SelectOutputParams& out) const;
    void tellReasons(SelectInputParams const& in, FrameChooser const& chooser,
                     FrameChooser::Choice const& choice, SelectOutputParams const& out) const;

    BestShotRule const mRule;
    mutable zebcam::Mutex mLock;  ///< one policy may serve several processors
    /// What each waiting capture wants to be kept. All share one list of locked frames, and only
    /// this tells which of them nobody wants any more. An entry goes with the capture's answer.
    mutable std::map<CaptureKey, FrameKeys> mKept GUARDED_BY(mLock);
};

}  // namespace kit
