#pragma once

#include <policy/zsl/ISelector.h>

#include <optional>
#include <vector>

namespace kit {

using NSCam::ZslPolicy::ISelector;

/// How sharp the frame's picture is, as its results tell: under PICTURE_SHARPNESS, or in a recorded
/// column `Sharpness`. Nothing where nobody measured it.
std::optional<double> measuredSharpness(ISelector::HistoryFrame const& frame);

/// The sharpness of each frame as a share of the sharpest one's, 0 to 1. `frames` ascend.
///
/// If some are measured, one that is not counts as the least sharp of those: it will not be taken
/// for being unknown. If none is, the frames are told apart by what blurs pictures: the exposure
/// time, along which motion blur grows, and a focus that scans or a lens that moves, each of which
/// counts as half the sharpness, of that frame and of those before.
std::vector<double> sharpnessShares(std::vector<ISelector::HistoryFrame const*> const& frames);

}  // namespace kit
