// Takes the videos' place in a build without FFmpeg's libraries: no video is ever opened.

#include "base/InputError.h"
#include "picture/Camera.h"
#include "picture/Jpeg.h"
#include "picture/Scene.h"
#include "picture/VideoFile.h"

namespace zebcam::tool::picture {

class VideoFile::Source {};

std::unique_ptr<Camera> openCamera(CameraOptions const& options, std::function<void()> const&) {
    throw base::InputError(options.source + ": " + NO_VIDEOS);
}

bool canReadVideos() {
    return false;
}

VideoFile::VideoFile(base::InputFile& input) {
    throw base::InputError(input.name() + ": " + NO_VIDEOS);
}

VideoFile::~VideoFile() = default;
VideoFile::VideoFile(VideoFile&&) noexcept = default;

std::string const& VideoFile::name() const {
    static std::string const NONE;
    return NONE;
}

int VideoFile::rotation() const {
    return 0;
}

size_t VideoFile::declaredPictures() const {
    return 0;
}

bool VideoFile::next() {
    return false;
}

void VideoFile::rewind() {
}

size_t VideoFile::index() const {
    return 0;
}

int64_t VideoFile::timeNs() const {
    return 0;
}

std::shared_ptr<Picture const> const& VideoFile::picture() const {
    static std::shared_ptr<Picture const> const NONE;
    return NONE;
}

std::string VideoFile::contentKey() {
    return {};
}

void writeScene(recording::Recording const&, SceneOptions const&, std::ostream&,
                std::function<void(size_t)> const&) {
    throw base::InputError(NO_VIDEOS);
}

std::optional<std::vector<int64_t>> VideoFile::packetTimes() {
    return std::nullopt;
}

Pixels Picture::pixels(PixelKind, uint32_t) const {
    return {};
}

std::string toJpeg(Pixels const&, int, PictureFacts const*) {
    return {};
}

}  // namespace zebcam::tool::picture
