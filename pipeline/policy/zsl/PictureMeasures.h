#pragma once

#include <metadata/IMetadata.h>
#include <policy/zsl/ISelector.h>

#include <optional>

namespace NSCam::ZslPolicy {

/// The tags under which a frame's application results may tell what its picture looks like, each
/// with one float. A replay with pictures fills them in; on a device the ISP's statistics can, as
/// long as the numbers of neighbouring frames compare as these do. They lie below those of recorded
/// columns (policy/zsl/RecordedColumns.h).
///
/// How much detail there is: the variance of the 3x3 Laplacian of the luma in percent of its mean.
inline constexpr IMetadata::Tag PICTURE_SHARPNESS = 0xaf000000;
/// How much moved since the picture before, apart from the picture as a whole: the mean absolute
/// difference of the luma, 0 to 255, after the shift that makes it least.
inline constexpr IMetadata::Tag PICTURE_MOTION = 0xaf000001;
/// The mean of the luma, 0 to 255.
inline constexpr IMetadata::Tag PICTURE_BRIGHTNESS = 0xaf000002;
/// The share of pixels that are black or white to the limit, 0 to 1.
inline constexpr IMetadata::Tag PICTURE_CLIPPED = 0xaf000003;

/// What those tags say of a frame; without a value where nobody filled them in.
struct PictureMeasures {
    std::optional<float> sharpness;
    std::optional<float> motion;
    std::optional<float> brightness;
    std::optional<float> clipped;
};

/// What is told of the picture of a frame, whose `appMetas` these are.
inline PictureMeasures pictureMeasures(ISelector::MetaMap const& metas) {
    auto const find = [&metas](IMetadata::Tag tag) -> std::optional<float> {
        for (auto const& [info, metadata] : metas) {
            if (metadata == nullptr) {
                continue;
            }
            IMetadata::IEntry const entry = metadata->entryFor(tag);
            if (!entry.isEmpty()) {
                return entry.itemAt(0, Type2Type<float>());
            }
        }
        return std::nullopt;
    };
    return {find(PICTURE_SHARPNESS), find(PICTURE_MOTION), find(PICTURE_BRIGHTNESS),
            find(PICTURE_CLIPPED)};
}

}  // namespace NSCam::ZslPolicy
