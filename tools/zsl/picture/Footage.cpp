#include "picture/Footage.h"

#include <utility>

namespace zebcam::tool::picture {

Footage::Footage(base::InputFile& file, recording::InputOptions const& input,
                 Options const& options, std::function<MeasuredVideo(VideoFile&)> const& measure) {
    auto const known = [&](base::InputFile& videoFile) {
        mVideo.emplace(videoFile);
        mCache.emplace(*mVideo, options.usesCache);
        std::optional<MeasuredVideo> video = mCache->read();
        if (!video && options.trustsOutline) {
            video = outlineOf(*mVideo);
        }
        if (!video) {
            video = measure(*mVideo);
            mCache->write(*video);
        }
        return mKnown = *std::move(video);
    };
    mRecording = readWithPictures(file, input, known);
}

std::function<std::shared_ptr<Picture const>(recording::SensorFrame&)> Footage::show() {
    mReel = std::make_shared<PictureReel>(*std::move(mVideo), mKnown, mRecording.frames);
    mVideo.reset();
    return [reel = mReel](recording::SensorFrame& frame) { return reel->of(frame); };
}

void Footage::finish() {
    if (mReel == nullptr || mKnown.isMeasured()) {
        return;
    }
    mKnown = mReel->measured();
    for (recording::SensorFrame& frame : mRecording.frames) {
        if (frame.videoFrame) {
            frame.picture = mKnown.measures[*frame.videoFrame];
        }
    }
    mCache->write(mKnown);
}

}  // namespace zebcam::tool::picture
