#pragma once

#include <filesystem>
#include <functional>
#include <optional>

#include "picture/MeasuredVideo.h"

/// What was measured of videos is kept, because decoding them takes long and always comes to the
/// same. A file of the cache goes by what its video holds, whatever that is called and wherever it
/// lies; it appears whole or not at all, so that processes can share it. It may be deleted at any
/// time, and what cannot be read or written is done without.
namespace zebcam::tool::picture {

/// `zsl` in the user's folder for caches (XDG_CACHE_HOME); none where nobody says which that is.
std::optional<std::filesystem::path> cacheFolder();

/// As measureVideo(), from the cache where it has it, else into it.
MeasuredVideo measureOnce(
    VideoFile& video, std::function<void(size_t pictures, size_t declared)> const& progress = {});

}  // namespace zebcam::tool::picture
