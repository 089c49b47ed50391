#pragma once

#include <cstdint>
#include <vector>

#include "picture/Picture.h"
#include "recording/Recording.h"

namespace zebcam::tool::picture {

/// Pictures are measured at most this wide, so that those of different sizes compare.
inline constexpr uint32_t MEASURED_WIDTH = 320;

/// Measures the pictures of a video, one after the other in their order.
class PictureMeter {
public:
    /// Of the luma of the next picture, MEASURED_WIDTH wide at most. Without motion for the first
    /// one, and for one of another size than the one before.
    recording::PictureMeasures measure(Pixels luma);

private:
    /// The picture before, and the same in a half, a quarter and an eighth of its size where it is
    /// large enough.
    std::vector<Pixels> mBefore;
};

}  // namespace zebcam::tool::picture
