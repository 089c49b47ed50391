#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "picture/Picture.h"

namespace zebcam::tool::picture {

/// What a file tells of its picture beyond the points, as EXIF; what has no value is left out.
struct PictureFacts {
    std::optional<int64_t> timeNs;  ///< start of exposure, from 1970 on, UTC
    std::optional<int64_t> exposureNs;
    std::optional<int32_t> iso;
    std::optional<float> focalLengthMm;
    std::optional<float> focusDistance;  ///< diopters
    std::string description;             ///< empty: none
};

/// `rgb` as a JPEG file. `quality` is from 1 to 100. Throws std::runtime_error for what no JPEG
/// holds: more than 65,535 points in one direction, or none.
std::string toJpeg(Pixels const& rgb, int quality, PictureFacts const* facts = nullptr);

}  // namespace zebcam::tool::picture
