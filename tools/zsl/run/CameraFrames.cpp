#include "run/CameraFrames.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "pipeline/CaptureBook.h"
#include "recording/FrameStates.h"
#include "run/CapturePictures.h"
#include "run/ReplayResult.h"

namespace zebcam::tool::run {

namespace {

/// More than any history and what policies keep; without their pictures they take little.
constexpr size_t kMostFrames = 10'000;
/// In which a frame comes that was being exposed, by the usual interval.
constexpr int64_t kIntervalsToWait = 3;

/// A camera tells nothing but the time.
recording::Recording untold(picture::CameraFacts const& facts) {
    recording::Recording recording;
    recording.path = facts.source;
    recording.medianIntervalNs = facts.intervalNs;
    for (size_t i = static_cast<size_t>(recording::Column::Exposure);
         i < static_cast<size_t>(recording::Column::VideoFrame); ++i) {
        recording.absent.push_back(static_cast<recording::Column>(i));
    }
    return recording;
}

}  // namespace

CameraFrames::CameraFrames(std::unique_ptr<picture::Camera> camera, size_t pictures)
    : mCamera(std::move(camera)), mRecording(untold(mCamera->facts())), mKeptPictures(pictures) {
}

std::optional<FrameSource::Event> CameraFrames::next(std::stop_token const& stop) {
    using enum pipeline::SensorEventKind;
    if (mEvents.empty()) {
        auto const picture = mCamera->next(stop);
        if (!picture) {
            return std::nullopt;
        }
        recording::SensorFrame frame = frameOf(*picture);
        keep({frame, picture->picture});
        recording::SensorFrame following = frame;
        ++following.frameNo;
        if (frame.frameNo == 1) {
            mEvents.push_back({frame.timestampNs, Announce, {frame, {}}, nullptr});
        }
        mEvents.push_back({frame.timestampNs, Announce, {std::move(following), {}}, nullptr});
        mEvents.push_back({frame.timestampNs, Arrival, {std::move(frame), {}}, picture->picture});
    }
    Event event = std::move(mEvents.front());
    mEvents.pop_front();
    return event;
}

recording::SensorFrame CameraFrames::frameOf(picture::CameraPicture const& picture) {
    recording::SensorFrame frame;
    frame.frameNo = ++mFrameNo;
    frame.timestampNs = picture.timeNs;
    frame.durationNs = mRecording.medianIntervalNs;
    frame.picture = picture.measures;
    return recording::withAssumed(std::move(frame), mRecording);
}

void CameraFrames::keep(PicturedFrame const& arrived) {
    LockGuard const lock(mLock);
    mNewest = arrived;
    mFrames.push_back(arrived.frame);
    if (mFrames.size() > kMostFrames) {
        mFrames.pop_front();
    }
    if (mKeptPictures > 0) {
        mPictures.push_back(arrived);
    }
    if (mPictures.size() > mKeptPictures) {
        mPictures.pop_front();
    }
    for (auto& [requestNo, press] : mPresses) {
        if (arrived.frame.timestampNs <= press.timeNs) {
            press.frame = arrived;
        }
    }
    mArrived.notify_all();
}

std::optional<PicturedFrame> CameraFrames::newest() const {
    LockGuard const lock(mLock);
    return mNewest.picture != nullptr ? std::optional(mNewest) : std::nullopt;
}

std::shared_ptr<picture::Picture const> CameraFrames::pictureOf(uint32_t frameNo) const {
    LockGuard const lock(mLock);
    for (PicturedFrame const& known : mPictures) {
        if (known.frame.frameNo == frameNo) {
            return known.picture;
        }
    }
    return nullptr;
}

recording::Recording CameraFrames::recording() const {
    recording::Recording recording = mRecording;
    picture::CameraFacts const camera = facts();
    LockGuard const lock(mLock);
    for (recording::SensorFrame const& frame : mFrames) {
        recording.frames.push_back(recording::withoutAssumed(frame, mRecording));
    }
    if (recording.frames.size() > 1) {
        recording.medianIntervalNs = recording::medianIntervalNs(recording.frames);
    }
    recording.video.emplace() = {.path = camera.source,
                                 .width = camera.width,
                                 .height = camera.height,
                                 .pictures = recording.frames.size(),
                                 .match = recording::PictureMatch::Itself};
    return recording;
}

void CameraFrames::press(uint32_t requestNo, int64_t pressNs) {
    LockGuard const lock(mLock);
    mPresses[requestNo] = {pressNs, mNewest};
}

std::optional<PicturedFrame> CameraFrames::takePress(uint32_t requestNo) {
    int64_t const untilNs = pipeline::nowNs() + kIntervalsToWait * intervalNs();
    LockGuard const lock(mLock);
    auto const found = mPresses.find(requestNo);
    if (found == mPresses.end()) {
        return std::nullopt;  // another frame of the capture has it
    }
    while (mNewest.frame.timestampNs <= found->second.timeNs) {
        std::chrono::nanoseconds const left(untilNs - pipeline::nowNs());
        if (left.count() <= 0) {
            break;
        }
        mArrived.wait_for(mLock, left);
    }
    PicturedFrame frame = std::move(found->second.frame);
    mPresses.erase(found);
    return frame.picture != nullptr ? std::optional(std::move(frame)) : std::nullopt;
}

/// Those that a capture has got or could have got.
std::map<uint32_t, recording::SensorFrame> CameraFrames::framesOf(
    pipeline::CaptureRecord const& capture) const {
    std::vector<uint32_t> wanted;
    for (pipeline::FrameOutcome const& frame : capture.frames) {
        wanted.push_back(frame.historyFrame.value_or(0));
    }
    for (pipeline::TryRecord const& attempt : capture.tries) {
        wanted.insert(wanted.end(), attempt.historyFrames.begin(), attempt.historyFrames.end());
        wanted.insert(wanted.end(), attempt.lockedFrames.begin(), attempt.lockedFrames.end());
    }
    std::map<uint32_t, recording::SensorFrame> known;
    LockGuard const lock(mLock);
    for (uint32_t const frameNo : wanted) {
        auto const found =
            std::ranges::lower_bound(mFrames, frameNo, {}, &recording::SensorFrame::frameNo);
        if (found != mFrames.end() && found->frameNo == frameNo) {
            known.emplace(frameNo, *found);
        }
    }
    return known;
}

CameraShot CameraFrames::shotOf(LiveFrame const& frame) {
    CameraShot shot{frame.capture, frame.index, nullptr, takePress(frame.capture.requestNo)};
    shot.picture = std::dynamic_pointer_cast<picture::Picture const>(frame.content);
    pipeline::FrameOutcome& outcome = shot.capture.frames.at(frame.index);
    if (shot.press) {
        shot.capture.pressFrame = shot.press->frame.frameNo;
    }
    if (!outcome.historyFrame) {
        return shot;
    }
    // The others are told of when their results come.
    pipeline::CaptureRecord one = shot.capture;
    one.frames = {outcome};
    one.frames.front().tryIndex =
        outcome.tryIndex && !one.tries.empty() ? std::optional<size_t>(0) : std::nullopt;
    std::map<uint32_t, recording::SensorFrame> const known = framesOf(one);
    std::vector<pipeline::CaptureRecord> captures = {std::move(one)};
    addChosenFrames(captures, [&known](uint32_t frameNo) {
        auto const found = known.find(frameNo);
        return found != known.end() ? &found->second : nullptr;
    });
    outcome = captures.front().frames.front();
    if (outcome.chosen) {
        outcome.chosen = recording::withoutAssumed(std::move(*outcome.chosen), mRecording);
    }
    return shot;
}

}  // namespace zebcam::tool::run
