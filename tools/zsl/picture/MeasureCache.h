#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "picture/MeasuredVideo.h"

/// What was measured of videos is kept, because decoding them takes long and always comes to the
/// same. A file of the cache goes by what its video holds, whatever that is called and wherever it
/// lies; it appears whole or not at all, so that processes can share it. It may be deleted at any
/// time, and what cannot be read or written is done without.
namespace zebcam::tool::picture {

/// `zsl` in the user's folder for caches (XDG_CACHE_HOME); none where nobody says which that is.
std::optional<std::filesystem::path> cacheFolder();

/// What is kept of one video, or will be.
class MeasureCache {
public:
    /// Reads the video's file once. One that is not used has nothing, and keeps nothing.
    MeasureCache(VideoFile& video, bool isUsed);

    /// None where it is not kept.
    std::optional<MeasuredVideo> read() const;
    void write(MeasuredVideo const& video) const;

private:
    std::string const mName;  ///< of the video
    std::optional<std::filesystem::path> mPath;
};

}  // namespace zebcam::tool::picture
