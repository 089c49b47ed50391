#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <future>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "base/InputFile.h"
#include "picture/PictureMeter.h"
#include "picture/VideoFile.h"
#include "recording/Recording.h"

namespace zebcam::tool::picture {

/// A video of which every picture was decoded and measured, or only its times are known yet.
struct MeasuredVideo {
    std::string path;
    uint32_t width = 0;  ///< of the first picture, turned upright
    uint32_t height = 0;
    int rotation = 0;              ///< degrees clockwise by which the file has its pictures turned
    std::vector<int64_t> timesNs;  ///< of presentation, by picture
    std::vector<recording::PictureMeasures> measures;  ///< as many, or none

    bool isMeasured() const { return !measures.empty(); }
};

/// Whether `file` begins with what no text does, as all videos do, and is no recording of a device.
bool looksLikeVideo(base::InputFile const& file);

/// Measures the pictures of a video, each while the next is decoded.
class VideoMeter {
public:
    explicit VideoMeter(VideoFile const& video);

    /// Of the video's current picture, the next one in order. Throws InputError for too many.
    void add(VideoFile const& video);

    /// Of all that were added.
    MeasuredVideo& measured();

private:
    MeasuredVideo mMeasured;
    PictureMeter mMeter;
    std::future<recording::PictureMeasures> mMeasuring;  ///< goes before the meter
};

/// What `video` tells without its pictures being decoded: none where it is not sure what that is.
std::optional<MeasuredVideo> outlineOf(VideoFile& video);

/// Of all pictures of `video`. `progress` gets how many are done, and how many there are as the
/// file declares it, 0 where it does not.
MeasuredVideo measureVideo(
    VideoFile& video, std::function<void(size_t pictures, size_t declared)> const& progress = {});

/**
 * Gives each frame of `recording` the picture that belongs to it, of those with these times, and
 * tells by what: by the column where it has one; else where there are as many pictures as frames
 * one to one; else by time, to each frame the nearest picture within half an interval that is no
 * nearer to another. `name` is the video's.
 *
 * Throws InputError for a column that names a picture which is not there, and where times are
 * needed and do not ascend.
 */
recording::PictureMatch matchPictures(recording::Recording& recording,
                                      std::span<int64_t const> timesNs, std::string const& name);

/// The same, with what was measured of the pictures, if anything was.
void addPictures(recording::Recording& recording, MeasuredVideo const& video);

/// Gives what was measured of a video; it may have been measured before.
using Measure = std::function<MeasuredVideo(base::InputFile& file)>;

/**
 * Reads a recording with its pictures, as `options` ask for: a CSV file, alone or with a video, or
 * a video by itself. Throws RecordingError and InputError as readRecording() and `measure` do.
 */
recording::Recording readWithPictures(base::InputFile& file, recording::InputOptions const& options,
                                      Measure const& measure);

/// What a video is as a recording: its presentation times are the starts of exposure, and nothing
/// else is told. Throws RecordingError and InputError as readRecording() does.
recording::Recording recordingOf(MeasuredVideo const& video,
                                 recording::InputOptions const& options);

}  // namespace zebcam::tool::picture
