#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "base/InputFile.h"
#include "picture/MeasureCache.h"
#include "picture/MeasuredVideo.h"
#include "picture/PictureReel.h"
#include "recording/Recording.h"

namespace zebcam::tool::picture {

/// A recording and the video that shows it, for somebody who wants to see its pictures frame by
/// frame. With its outline alone the video need not be decoded before: what is measured of a
/// picture is then known when its frame is shown.
class Footage {
public:
    struct Options {
        bool usesCache = true;
        /// The outline of a video is taken where it has one. When its pictures turn out to be
        /// others, this is an OutlineError, and the video is to be measured first.
        bool trustsOutline = false;
    };

    /// Reads it as readWithPictures() does. `measure` measures a video that has to be.
    Footage(base::InputFile& file, recording::InputOptions const& input, Options const& options,
            std::function<MeasuredVideo(VideoFile&)> const& measure);

    recording::Recording& recording() { return mRecording; }
    bool hasVideo() const { return mVideo || mReel; }

    /// The picture of a frame, as PictureReel has it. To be called once, and only with a video.
    std::function<std::shared_ptr<Picture const>(recording::SensorFrame&)> show();

    /// Makes what was measured while it was shown known to the recording, and measures the rest.
    /// Throws as PictureReel::measured() does.
    void finish();

private:
    recording::Recording mRecording;
    std::optional<VideoFile> mVideo;  ///< until it is shown
    std::optional<MeasureCache> mCache;
    MeasuredVideo mKnown;
    std::shared_ptr<PictureReel> mReel;
};

}  // namespace zebcam::tool::picture
