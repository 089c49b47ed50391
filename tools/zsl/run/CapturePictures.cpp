#include "run/CapturePictures.h"

#include <fmt/format.h>
#include <policy/zsl/RecordedColumns.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <variant>

#include "base/Text.h"
#include "recording/FrameStates.h"

namespace zebcam::tool::run {

namespace {

using picture::Picture;

// Copies are as large as lets a page of 50 captures with 9 pictures each, 240 wide, stay well below
// 12 MB: of fewer captures they are larger, as whoever enlarges them wants them, and of more
// smaller.
constexpr uint32_t kWidestCopy = 480;
constexpr uint32_t kNarrowestCopy = 80;
constexpr double kMostWideCopies = 112;
constexpr int kCopyQuality = 72;
/// What is told in a page takes a third more.
constexpr size_t kMostCopiedBytes = 9'000'000;

uint32_t copyWidth(size_t copies) {
    double const share =
        std::sqrt(kMostWideCopies / static_cast<double>(std::max<size_t>(copies, 1)));
    return std::clamp(static_cast<uint32_t>(kWidestCopy * std::min(share, 1.0)), kNarrowestCopy,
                      kWidestCopy);
}

/// Loggers of phones have a column of it, with or without the unit.
std::optional<float> focalLengthMm(recording::SensorFrame const& frame) {
    using NSCam::ZslPolicy::recordedColumnTag;
    for (recording::DataValue const& data : frame.data) {
        if (data.tag == recordedColumnTag("Focal length") ||
            data.tag == recordedColumnTag("Focal length[mm]")) {
            return std::visit([](auto value) { return static_cast<float>(value); }, data.value);
        }
    }
    return std::nullopt;
}

}  // namespace

std::string pictureName(uint32_t requestNo, std::optional<size_t> frame) {
    return frame ? fmt::format("capture-{:04}-frame-{}.jpg", requestNo, *frame)
                 : fmt::format("capture-{:04}-press.jpg", requestNo);
}

picture::PictureFacts factsOf(recording::SensorFrame const& frame, std::string const& what,
                              int64_t pressNs) {
    int64_t const lagNs = frame.timestampNs - pressNs;
    return {.timeNs = frame.timestampNs,
            .exposureNs = recording::exposureNs(frame),
            .iso = frame.iso,
            .focalLengthMm = focalLengthMm(frame),
            .focusDistance = frame.focusDistance,
            .description =
                fmt::format("{} {}, exposed {} ms {} the press", what, frame.frameNo,
                            base::formatMs(std::abs(lagNs)), lagNs > 0 ? "after" : "before")};
}

std::shared_ptr<Picture const> pictureIn(host::FrameBuilder const& builder) {
    for (auto const& [streamId, image] : builder.halImages()) {
        if (auto const* const buffer = dynamic_cast<host::ImageStreamBuffer*>(image.get())) {
            return std::dynamic_pointer_cast<Picture const>(buffer->content());
        }
    }
    return nullptr;
}

CapturePictures::CapturePictures(PictureWishes wishes, size_t copies)
    : mWishes(std::move(wishes)), mCopyWidth(copyWidth(copies)) {
}

void CapturePictures::expectPress(uint32_t requestNo, recording::SensorFrame const& frame,
                                  int64_t pressNs) {
    mPresses.emplace(frame.frameNo, Press{requestNo, pressNs});
}

void CapturePictures::arrive(recording::SensorFrame& frame) {
    std::shared_ptr<Picture const> const picture = mWishes.of ? mWishes.of(frame) : nullptr;
    if (picture == nullptr) {
        return;
    }
    mHeld.push_back(picture);
    mAlive[frame.frameNo] = picture;
    auto const [first, last] = mPresses.equal_range(frame.frameNo);
    for (auto press = first; press != last; ++press) {
        auto const& [requestNo, timeNs] = press->second;
        copy(frame.frameNo, *picture);
        write(pictureName(requestNo, std::nullopt), *picture,
              factsOf(frame, fmt::format("capture {}, press: frame", requestNo), timeNs));
    }
    mPresses.erase(first, last);  // of one that arrives twice the first is as good
}

std::shared_ptr<Picture const> CapturePictures::of(uint32_t frameNo) const {
    auto const known = mAlive.find(frameNo);
    return known != mAlive.end() ? known->second.lock() : nullptr;
}

void CapturePictures::hold() {
    std::erase_if(mAlive, [this](auto const& known) {
        std::shared_ptr<Picture const> picture = known.second.lock();
        bool const isGone = picture == nullptr;
        if (!isGone) {
            mHeld.push_back(std::move(picture));
        }
        return isGone;
    });
}

void CapturePictures::built(pipeline::BuiltFrame const& frame,
                            pipeline::CaptureRecord const& capture,
                            recording::SensorFrame const* chosen) {
    for (pipeline::TryRecord const& attempt : capture.tries) {
        for (auto const* const frames : {&attempt.historyFrames, &attempt.lockedFrames}) {
            for (uint32_t const frameNo : *frames) {
                if (auto const picture = of(frameNo)) {
                    copy(frameNo, *picture);
                }
            }
        }
    }
    auto const picture = pictureIn(*frame.builder);
    if (picture != nullptr && chosen != nullptr) {
        write(pictureName(capture.requestNo, frame.index), *picture,
              factsOf(*chosen,
                      fmt::format("capture {}, frame {}: history frame", capture.requestNo,
                                  frame.index),
                      capture.pressNs));
    }
}

void CapturePictures::copy(uint32_t frameNo, Picture const& picture) {
    if (!mWishes.copies || mCopies.contains(frameNo)) {
        return;
    }
    if (mCopiedBytes > kMostCopiedBytes) {
        ++mUncopied;
        return;
    }
    picture::Pixels const pixels = picture.pixels(picture::PixelKind::Rgb, mCopyWidth);
    PictureCopy const& made =
        mCopies[frameNo] = {picture::toJpeg(pixels, kCopyQuality), pixels.width, pixels.height};
    mCopiedBytes += made.jpeg.size();
}

void CapturePictures::write(std::string const& name, Picture const& picture,
                            picture::PictureFacts const& facts) {
    if (mWishes.folder == nullptr) {
        return;
    }
    std::string const jpeg =
        picture::toJpeg(picture.pixels(picture::PixelKind::Rgb), CAPTURE_QUALITY, &facts);
    std::ofstream file(mWishes.folder->newFile(name), std::ios::binary);
    file << jpeg;
    file.close();
    if (!file) {
        throw base::OutputError(fmt::format("cannot write '{}'", mWishes.folder->file(name)));
    }
    mFiles.push_back(name);
}

void CapturePictures::finish(ReplayResult& result) {
    result.pictures = std::move(mCopies);
    if (mUncopied > 0) {
        result.notes.push_back(fmt::format(
            "the page lacks {} pictures of the later captures: it would become too large",
            mUncopied));
    }
    if (mWishes.folder == nullptr) {
        return;
    }
    std::sort(mFiles.begin(), mFiles.end());
    auto const fileOf = [&](std::string const& name) {
        return std::binary_search(mFiles.begin(), mFiles.end(), name)
                   ? std::optional(mWishes.folder->file(name))
                   : std::nullopt;
    };
    for (pipeline::CaptureRecord& capture : result.captures) {
        capture.pressPictureFile = fileOf(pictureName(capture.requestNo, std::nullopt));
        for (size_t i = 0; i < capture.frames.size(); ++i) {
            capture.frames[i].pictureFile = fileOf(pictureName(capture.requestNo, i));
        }
    }
    result.pictureFolder = mWishes.folder->path();
    result.pictureFiles = std::move(mFiles);
}

}  // namespace zebcam::tool::run
