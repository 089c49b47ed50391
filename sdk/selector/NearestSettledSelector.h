#pragma once

#include <policy/zsl/ISelector.h>

#include <cstdint>
#include <optional>

#include "FrameFacts.h"

namespace kit {

/**
 * Takes the settled frames nearest to the press.
 *
 * A history frame may serve a requested frame if focus and exposure were settled, it carries the
 * required streams in the required sensor modes, is synchronised where the capture asks for that,
 * and is at most `maxAgeMs` older than the press. Several requested frames get different history
 * frames in ascending order. As many as possible are served; among the ways to do so, the one
 * with the smallest sum of distances to the press is taken.
 *
 * A nearer frame may still be on its way as long as the history ends before the press. So the
 * policy serves nothing until the history has reached the press, or the capture is `maxWaitMs` old.
 *
 * For each frame that it passes over it gives a reason, which the log has.
 */
class NearestSettledSelector final : public NSCam::ZslPolicy::ISelector {
public:
    struct Limits {
        int64_t maxAgeMs = 500;   ///< how much older than the press a frame may be, ms
        int64_t maxWaitMs = 200;  ///< how long the history may take to reach the press, ms
    };

    explicit NearestSettledSelector(Limits limits) : mLimits(limits) {}

    char const* getName() const override { return "NearestSettledSelector"; }
    SelectOutputParams select(SelectInputParams const& in) const override;

private:
    /// None: the frame may serve.
    std::optional<Failure> judge(SelectInputParams const& in, HistoryFrame const& frame,
                                 ZslFrameInfo const& wanted) const;
    void tellReasons(SelectInputParams const& in, SelectOutputParams const& out) const;

    Limits const mLimits;
};

}  // namespace kit
