#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>

#include "recording/Recording.h"

namespace zebcam::tool::picture {

/// What a synthetic scene is taken with.
struct SceneOptions {
    uint32_t width = 640;   ///< of the sensor's pictures, even
    uint32_t height = 360;  ///< in lines that are exposed one after the other, even
    int rotation = 0;       ///< degrees clockwise by which a player has to turn them, as in a hand
};

/// On either side of a picture. With fewer points its bars could not be told apart.
inline constexpr uint32_t MIN_SCENE_SIDE = 160;
inline constexpr uint32_t MAX_SCENE_SIDE = 4096;

/**
 * Writes the video of a camera that looked at a synthetic scene while it took `recording`: a
 * picture for each frame, in their order, presented when its exposure started, counted from that of
 * the first frame. docs/pictures.md says what they show, and how the sensor time of a picture's
 * middle line is read from its bars.
 *
 * The same recording and options make the same bytes with the same libraries. Memory does not grow
 * with the length. `out` must be able to go back, as a file's stream is; its errors are left in its
 * state, and end the work. `progress` gets how many pictures are done. Throws InputError where this
 * build or FFmpeg's libraries cannot encode.
 */
void writeScene(recording::Recording const& recording, SceneOptions const& options,
                std::ostream& out, std::function<void(size_t pictures)> const& progress = {});

}  // namespace zebcam::tool::picture
