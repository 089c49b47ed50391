#pragma once

#include <cstddef>
#include <exception>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <vector>

#include "picture/MeasuredVideo.h"
#include "picture/VideoFile.h"
#include "recording/Recording.h"

namespace zebcam::tool::picture {

/// The pictures are others than the outline of their video said: it is to be measured first.
class OutlineError : public std::exception {};

/**
 * The pictures of frames out of their video, for somebody who asks for them nearly in order, as
 * frames arrive: those that were passed over and are still to be asked for are kept meanwhile, up
 * to a bound, so that the video is decoded once. Only who asks in another order than that pays with
 * decoding from the start again. A video that is not measured yet is so on the way.
 */
class PictureReel {
public:
    /// `frames` are those that will be asked for, and have their pictures by `known`.
    PictureReel(VideoFile video, MeasuredVideo known,
                std::vector<recording::SensorFrame> const& frames);

    /// Null for a frame without a picture. One that somebody still holds is given again. Tells the
    /// frame what was measured of it. Throws InputError for what cannot be decoded, and
    /// OutlineError.
    std::shared_ptr<Picture const> of(recording::SensorFrame& frame);

    /// What is known of the video once all of it is measured. Throws as of().
    MeasuredVideo const& measured();

private:
    bool next();
    std::shared_ptr<Picture const> decode(size_t index);
    void keep(size_t index);

    VideoFile mVideo;
    MeasuredVideo mKnown;
    std::optional<VideoMeter> mMeter;  ///< while there is something to be measured
    std::set<size_t> mWanted;          ///< positions that were not asked for yet
    std::map<size_t, std::shared_ptr<Picture const>> mKept;  ///< passed over
    std::map<size_t, std::weak_ptr<Picture const>> mGiven;   ///< the latest ones
    size_t mNext = 0;  ///< position of the picture that is decoded next
};

}  // namespace zebcam::tool::picture
