#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/InputFile.h"
#include "picture/Picture.h"

/// Videos: their pictures, and what can be measured of them.
namespace zebcam::tool::picture {

/// Whether this build has FFmpeg's libraries.
bool canReadVideos();

/// What to say where it has not.
inline constexpr char NO_VIDEOS[] =
    "this zsl was built without videos; build it with -DZSL_BUILD_VIDEO=ON, which needs FFmpeg's "
    "libraries (scripts/setup demo)";

/**
 * The pictures of a video in the order of presentation, one at a time: memory is bounded by the
 * size of a picture and what its codec refers back to, and by the pictures that somebody keeps. Of
 * several streams the one that FFmpeg holds for the best.
 *
 *     base::InputFile file("video.mp4");
 *     VideoFile video(file);
 *     while (video.next()) {
 *         show(video.timeNs(), video.picture()->pixels(PixelKind::Rgb, 320));
 *     }
 *
 * Whatever is wrong is an InputError, with the file's name and the cause: a file without pictures,
 * a size beyond all phones', one that is cut off, pictures that cannot be decoded whole.
 */
class VideoFile {
public:
    /// What cannot be gone back in, as standard input, is kept in a temporary file without a name.
    explicit VideoFile(base::InputFile& input);
    ~VideoFile();
    VideoFile(VideoFile&&) noexcept;
    VideoFile& operator=(VideoFile&&) = delete;

    std::string const& name() const;

    /// By how much the file wants its pictures turned clockwise: 0, 90, 180 or 270 degrees.
    int rotation() const;

    /// How many pictures there are as the file declares it; 0: it does not.
    size_t declaredPictures() const;

    /// Goes to the next picture; false after the last.
    bool next();

    /// Back to before the first picture.
    void rewind();

    /// Position of the current picture in the order of presentation, from 0.
    size_t index() const;

    /// Presentation time of the current picture; where the file has none, by its rate.
    int64_t timeNs() const;

    /// The current picture; null before the first.
    std::shared_ptr<Picture const> const& picture() const;

    /// Presentation times of all pictures without decoding them, as the file's packets tell them;
    /// none where those need not be the pictures'. Goes back to before the first picture.
    std::optional<std::vector<int64_t>> packetTimes();

    /// Stands for what the file holds: two files with the same key have the same pictures.
    std::string contentKey();

private:
    class Source;

    std::unique_ptr<Source> mSource;
};

}  // namespace zebcam::tool::picture
