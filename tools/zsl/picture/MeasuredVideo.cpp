#include "picture/MeasuredVideo.h"

#include <fmt/format.h>
#include <recorder/RecordFormat.h>

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <sstream>
#include <string_view>
#include <utility>

#include "base/InputError.h"
#include "base/Text.h"

namespace zebcam::tool::picture {

namespace record = NSCam::v3::pipeline::model::record;

namespace {

using recording::PictureMatch;
using recording::SensorFrame;

constexpr std::string_view kTextualMagic = "YUV4MPEG2 ";

/// The boot time of the first picture of a video whose times count from about 0: late enough for
/// any press to stand for a moment before it.
constexpr int64_t kStartNs = 1'000'000'000'000;

/// Throws for the first time that is not after (`strictly`) or before the one that it follows.
void requireAscending(std::span<int64_t const> timesNs, std::string const& name, bool strictly) {
    auto const isWrong = [strictly](int64_t a, int64_t b) { return strictly ? a >= b : a > b; };
    auto const found = std::ranges::adjacent_find(timesNs, isWrong);
    if (found != timesNs.end()) {
        throw base::InputError(fmt::format(
            "{}: expected presentation times that ascend, found {} of picture {} after {}", name,
            base::formatDuration(found[1]), found - timesNs.begin() + 1,
            base::formatDuration(found[0])));
    }
}

void requirePictures(recording::Recording const& recording, size_t pictures,
                     std::string const& name) {
    for (SensorFrame const& frame : recording.frames) {
        if (frame.videoFrame && *frame.videoFrame >= pictures) {
            throw base::InputError(
                fmt::format("{}: expected picture {}, which frame {} of {} names, found {}", name,
                            *frame.videoFrame, frame.frameNo, recording.path,
                            base::counted(pictures, "picture", "pictures")));
        }
    }
}

/// Frames and pictures both ascend, so that one way through both will do. `originNs` is when a
/// picture of time 0 was exposed.
void matchByTime(recording::Recording& recording, std::span<int64_t const> timesNs,
                 int64_t originNs) {
    size_t picture = 0;
    SensorFrame* last = nullptr;  // that got a picture
    int64_t lastNs = 0;           // how far from it
    for (SensorFrame& frame : recording.frames) {
        auto const distanceNs = [&](size_t i) {
            return std::abs(frame.timestampNs - originNs - timesNs[i]);
        };
        while (picture + 1 < timesNs.size() && distanceNs(picture + 1) <= distanceNs(picture)) {
            ++picture;
        }
        int64_t const awayNs = distanceNs(picture);
        bool const isTaken = last != nullptr && last->videoFrame == picture;
        if (awayNs > recording.medianIntervalNs / 2 || (isTaken && lastNs <= awayNs)) {
            continue;
        }
        if (isTaken) {
            last->videoFrame.reset();
        }
        frame.videoFrame = static_cast<uint32_t>(picture);
        last = &frame;
        lastNs = awayNs;
    }
}

}  // namespace

bool looksLikeVideo(base::InputFile const& file) {
    auto const isControl = [](char c) {
        return static_cast<unsigned char>(c) < ' ' && c != '\t' && c != '\n' && c != '\r';
    };
    bool const isBinary = std::ranges::any_of(file.start(), isControl);
    return (isBinary && !record::hasMagic(file.start())) || file.start().starts_with(kTextualMagic);
}

VideoMeter::VideoMeter(VideoFile const& video) {
    mMeasured.path = video.name();
    mMeasured.rotation = video.rotation();
}

void VideoMeter::add(VideoFile const& video) {
    if (mMeasured.timesNs.empty()) {
        mMeasured.width = video.picture()->width();
        mMeasured.height = video.picture()->height();
    }
    if (mMeasured.timesNs.size() == recording::MAX_FRAMES) {
        throw base::InputError(fmt::format("{}: expected at most {} pictures, found one more",
                                           video.name(), recording::MAX_FRAMES));
    }
    mMeasured.timesNs.push_back(video.timeNs());
    Pixels luma = video.picture()->pixels(PixelKind::Luma, MEASURED_WIDTH);
    measured();
    mMeasuring = std::async(std::launch::async, [this, luma = std::move(luma)]() mutable {
        return mMeter.measure(std::move(luma));
    });
}

MeasuredVideo& VideoMeter::measured() {
    if (mMeasuring.valid()) {
        mMeasured.measures.push_back(mMeasuring.get());
    }
    return mMeasured;
}

MeasuredVideo measureVideo(VideoFile& video, std::function<void(size_t, size_t)> const& progress) {
    VideoMeter meter(video);
    for (size_t pictures = 1; video.next(); ++pictures) {
        meter.add(video);
        if (progress) {
            progress(pictures, video.declaredPictures());
        }
    }
    return std::move(meter.measured());
}

std::optional<MeasuredVideo> outlineOf(VideoFile& video) {
    auto times = video.packetTimes();
    if (!times || times->size() > recording::MAX_FRAMES || !video.next()) {
        return std::nullopt;
    }
    return MeasuredVideo{.path = video.name(),
                         .width = video.picture()->width(),
                         .height = video.picture()->height(),
                         .rotation = video.rotation(),
                         .timesNs = *std::move(times),
                         .measures = {}};
}

PictureMatch matchPictures(recording::Recording& recording, std::span<int64_t const> timesNs,
                           std::string const& name) {
    std::vector<SensorFrame>& frames = recording.frames;
    if (std::ranges::any_of(frames,
                            [](auto const& frame) { return frame.videoFrame.has_value(); })) {
        requirePictures(recording, timesNs.size(), name);
        return PictureMatch::Column;
    }
    if (frames.size() == timesNs.size()) {
        for (size_t i = 0; i < frames.size(); ++i) {
            frames[i].videoFrame = static_cast<uint32_t>(i);
        }
        return PictureMatch::Count;
    }
    requireAscending(timesNs, name, false);
    // Phones write videos with times from 0 on, or with those of a clock that need not be the
    // recording's.
    bool const isOneClock = timesNs.front() <= frames.back().timestampNs &&
                            frames.front().timestampNs <= timesNs.back();
    matchByTime(recording, timesNs, isOneClock ? 0 : frames.front().timestampNs - timesNs.front());
    return isOneClock ? PictureMatch::Time : PictureMatch::Start;
}

void addPictures(recording::Recording& recording, MeasuredVideo const& video) {
    PictureMatch const match = matchPictures(recording, video.timesNs, video.path);
    recording.video = {
        video.path, video.width, video.height, video.rotation, video.timesNs.size(), match, 0};
    for (SensorFrame& frame : recording.frames) {
        if (frame.videoFrame && video.isMeasured()) {
            frame.picture = video.measures[*frame.videoFrame];
        }
    }
}

recording::Recording readWithPictures(base::InputFile& file, recording::InputOptions const& options,
                                      Measure const& measure) {
    if (looksLikeVideo(file)) {
        if (options.video) {
            throw base::InputError(fmt::format(
                "--video {}: expected a CSV file with it, found {}, which is a video itself",
                *options.video, file.name()));
        }
        return recordingOf(measure(file), options);
    }
    if (!options.video) {
        return recording::readRecording(file, options);
    }
    // Pictures belong to the frames of the whole file.
    recording::Recording recording = recording::readRecording(file, {.anyRate = options.anyRate});
    base::InputFile video(*options.video);
    if (video.name() == file.name()) {
        throw base::InputError(
            fmt::format("--video {}: expected another file than the recording", *options.video));
    }
    addPictures(recording, measure(video));
    return recording::partOf(std::move(recording), options);
}

recording::Recording recordingOf(MeasuredVideo const& video,
                                 recording::InputOptions const& options) {
    requireAscending(video.timesNs, video.path, true);
    bool const isFromStart = video.timesNs.front() < kStartNs;
    int64_t const originNs = isFromStart ? kStartNs - video.timesNs.front() : 0;
    // As the list of timestamps that it is, so that what holds for recordings holds for it.
    std::ostringstream list;
    list << "Timestamp[nanosec],Video frame\n";
    for (size_t i = 0; i < video.timesNs.size(); ++i) {
        list << video.timesNs[i] + originNs << ',' << i << '\n';
    }
    std::istringstream in(list.str());
    recording::Recording recording =
        recording::readRecording(in, video.path, {.anyRate = options.anyRate});
    recording.notes.insert(
        recording.notes.begin(),
        isFromStart
            ? fmt::format("a video: its times are the starts of exposure, the first of them "
                          "taken for {} of boot time",
                          base::formatDuration(kStartNs))
            : std::string("a video: its times are the starts of exposure"));
    addPictures(recording, video);
    recording.video->match = PictureMatch::Itself;
    return recording::partOf(std::move(recording), options);
}

}  // namespace zebcam::tool::picture
