#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <set>
#include <vector>

#include "picture/VideoFile.h"
#include "recording/Recording.h"

namespace zebcam::tool::picture {

/**
 * The pictures of frames out of their video, for somebody who asks for them nearly in order, as
 * frames arrive: those that were passed over and are still to be asked for are kept meanwhile, up
 * to a bound, so that the video is decoded once. Only who asks in another order than that pays with
 * decoding from the start again.
 */
class PictureReel {
public:
    /// `frames` are those that will be asked for.
    PictureReel(VideoFile video, std::vector<recording::SensorFrame> const& frames);

    /// Null for a frame without a picture. One that somebody still holds is given again. Throws
    /// InputError for what cannot be decoded.
    std::shared_ptr<Picture const> of(recording::SensorFrame const& frame);

private:
    std::shared_ptr<Picture const> decode(size_t index);
    void keep(size_t index);

    VideoFile mVideo;
    std::set<size_t> mWanted;  ///< positions that were not asked for yet
    std::map<size_t, std::shared_ptr<Picture const>> mKept;  ///< passed over
    std::map<size_t, std::weak_ptr<Picture const>> mGiven;   ///< the latest ones
    size_t mNext = 0;  ///< position of the picture that is decoded next
};

}  // namespace zebcam::tool::picture
