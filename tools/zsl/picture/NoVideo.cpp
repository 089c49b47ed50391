// Takes the videos' place in a build without FFmpeg's libraries: no video is ever opened.

#include "base/InputError.h"
#include "picture/VideoFile.h"

namespace zebcam::tool::picture {

class VideoFile::Decoder {};

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

uint32_t VideoFile::width() const {
    return 0;
}

uint32_t VideoFile::height() const {
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

Pixels VideoFile::pixels(PixelKind, uint32_t) {
    return {};
}

std::string VideoFile::contentKey() {
    return {};
}

void forEachPicture(VideoFile&, std::span<size_t const>, std::function<void(VideoFile&)> const&) {
}

}  // namespace zebcam::tool::picture
