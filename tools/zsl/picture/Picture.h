#pragma once

#include <host/ImageStreamBuffer.h>

#include <cstdint>
#include <memory>
#include <vector>

struct AVFrame;

namespace zebcam::tool::picture {

/// Points of a picture, row by row without gaps: one byte of luma each, 0 black to 255 white, or
/// three of red, green and blue.
struct Pixels {
    uint32_t width = 0;
    uint32_t height = 0;
    std::vector<uint8_t> bytes;
};

enum class PixelKind : uint8_t { Luma, Rgb };

/// More in one direction, or more points altogether, is a slip or an attack: beyond what phones
/// take.
inline constexpr uint32_t MAX_PICTURE_SIDE = 16'384;
inline constexpr int64_t MAX_PICTURE_POINTS = int64_t{1} << 26;

/// A decoded picture, which an image buffer can show. It shares the decoder's memory and never
/// changes, so that threads may share it.
class Picture final : public host::ImageContent {
public:
    /// `width` and `height` are those of the picture once it is upright, with square points;
    /// `rotation`, in degrees clockwise and a multiple of 90, turns it upright.
    Picture(std::shared_ptr<AVFrame const> frame, uint32_t width, uint32_t height, int rotation);

    uint32_t width() const { return mWidth; }
    uint32_t height() const { return mHeight; }

    /// Upright, with square points, at most as wide as `width`, scaled by area.
    Pixels pixels(PixelKind kind, uint32_t width = MAX_PICTURE_SIDE) const;

private:
    std::shared_ptr<AVFrame const> const mFrame;
    uint32_t const mWidth;
    uint32_t const mHeight;
    int const mRotation;
};

}  // namespace zebcam::tool::picture
