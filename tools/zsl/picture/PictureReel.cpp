#include "picture/PictureReel.h"

#include <fmt/format.h>

#include <utility>

#include "base/InputError.h"
#include "base/Text.h"

namespace zebcam::tool::picture {

namespace {

/// What may be passed over: a second of 1080p, which is more than frames overtake each other by.
constexpr size_t kMostKeptPoints = 32 * size_t{1920} * 1080;
/// Of whom it is known whether somebody still holds them.
constexpr size_t kMostGiven = 1'000;

}  // namespace

PictureReel::PictureReel(VideoFile video, MeasuredVideo known,
                         std::vector<recording::SensorFrame> const& frames)
    : mVideo(std::move(video)), mKnown(std::move(known)) {
    if (!mKnown.isMeasured()) {
        mMeter.emplace(mVideo);
    }
    for (recording::SensorFrame const& frame : frames) {
        if (frame.videoFrame) {
            mWanted.insert(*frame.videoFrame);
        }
    }
    mVideo.rewind();
}

std::shared_ptr<Picture const> PictureReel::of(recording::SensorFrame& frame) {
    if (!frame.videoFrame) {
        return nullptr;
    }
    size_t const index = *frame.videoFrame;
    mWanted.erase(index);
    std::shared_ptr<Picture const> picture;
    if (auto kept = mKept.extract(index)) {
        picture = std::move(kept.mapped());
    } else if (auto const given = mGiven.find(index); given != mGiven.end()) {
        picture = given->second.lock();
    }
    if (picture == nullptr) {
        picture = decode(index);
    }
    if (mMeter) {
        frame.picture = mMeter->measured().measures[index];
    }
    mGiven[index] = picture;
    if (mGiven.size() > kMostGiven) {
        mGiven.erase(mGiven.begin());
    }
    return picture;
}

std::shared_ptr<Picture const> PictureReel::decode(size_t index) {
    if (index < mNext) {
        mVideo.rewind();
        mNext = 0;
    }
    while (next()) {
        if (mNext - 1 == index) {
            return mVideo.picture();
        }
        keep(mNext - 1);
    }
    if (mMeter) {
        throw OutlineError();
    }
    throw base::InputError(fmt::format("{}: expected picture {} as before, found {}", mVideo.name(),
                                       index, base::counted(mNext, "picture", "pictures")));
}

/// Measures each picture when it comes for the first time.
bool PictureReel::next() {
    bool const isThere = mVideo.next();
    size_t const measured = mMeter ? mMeter->measured().timesNs.size() : 0;
    if (isThere && mMeter && mNext == measured) {
        if (mNext >= mKnown.timesNs.size() || mVideo.timeNs() != mKnown.timesNs[mNext]) {
            throw OutlineError();
        }
        mMeter->add(mVideo);
    }
    mNext += isThere ? 1 : 0;
    return isThere;
}

MeasuredVideo const& PictureReel::measured() {
    if (mMeter) {
        if (mNext < mMeter->measured().timesNs.size()) {
            decode(mMeter->measured().timesNs.size() - 1);
        }
        while (next()) {
        }
        if (mMeter->measured().timesNs.size() != mKnown.timesNs.size()) {
            throw OutlineError();
        }
        mKnown = std::move(mMeter->measured());
        mMeter.reset();
    }
    return mKnown;
}

void PictureReel::keep(size_t index) {
    if (!mWanted.contains(index)) {
        return;
    }
    Picture const& picture = *mVideo.picture();
    mKept[index] = mVideo.picture();
    // The first to go is the one that has waited longest: of a frame that is lost, most likely.
    if (mKept.size() * picture.width() * picture.height() > kMostKeptPoints) {
        mKept.erase(mKept.begin());
    }
}

}  // namespace zebcam::tool::picture
