#pragma once

#include <array>
#include <cstdint>
#include <iosfwd>
#include <memory>

#include "picture/Picture.h"

namespace zebcam::tool::picture {

/// The three planes of a picture as video has them, in the narrow range: luma from 16 to 235, and
/// at half its width and height blue and red difference around 128.
using Planes = std::array<Pixels, 3>;

struct VideoFormat {
    uint32_t width = 0;  ///< even, as is the height
    uint32_t height = 0;
    int rotation = 0;        ///< degrees clockwise by which a player has to turn the pictures
    int64_t intervalNs = 0;  ///< usual time between pictures
};

/**
 * Writes pictures as H.264 in MP4, with times to the microsecond and with pictures that refer to
 * later ones, as phones do. One thread encodes, so that the bytes do not depend on the machine.
 *
 *     VideoWriter writer(file.stream(), {640, 360, 90, 33'333'333});
 *     writer.write(planes, 0);
 *     writer.finish();
 *
 * `out`, which must be able to go back, outlives the object and keeps its errors in its state.
 */
class VideoWriter {
public:
    /// Throws InputError where FFmpeg's libraries have no encoder for it.
    VideoWriter(std::ostream& out, VideoFormat const& format);
    ~VideoWriter();
    VideoWriter(VideoWriter const&) = delete;
    VideoWriter& operator=(VideoWriter const&) = delete;

    /// Presented at `timeNs`, later than the one before, until the next is.
    void write(Planes const& planes, int64_t timeNs);

    /// Completes the file. Without it there is none.
    void finish();

private:
    class Encoder;

    std::unique_ptr<Encoder> mEncoder;
};

}  // namespace zebcam::tool::picture
