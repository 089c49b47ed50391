#pragma once

#include <zebcam/ThreadSafety.h>

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>

#include "picture/Camera.h"
#include "pipeline/CaptureRecord.h"
#include "recording/Recording.h"
#include "run/FrameSource.h"
#include "run/LiveRun.h"

namespace zebcam::tool::run {

/// A frame of the sensor with its picture.
struct PicturedFrame {
    recording::SensorFrame frame;
    std::shared_ptr<picture::Picture const> picture;
};

/// What a capture got.
struct CameraShot {
    pipeline::CaptureRecord capture;  ///< with the try that built this frame, if one did
    size_t index = 0;                 ///< of the frame within the capture
    std::shared_ptr<picture::Picture const> picture;  ///< that its builder got; null: none
    /// That was being exposed at the press, or the last before it; told with the capture's first
    /// frame that comes back.
    std::optional<PicturedFrame> press;
};

/**
 * The pictures of a camera as sensor frames, numbered from 1. The sensor is taken to start on the
 * next as it hands one over. What a camera does not tell of them is assumed as of a recording that
 * lacks the columns.
 *
 * Thread-safe, but for next().
 */
class CameraFrames final : public FrameSource {
public:
    /// Of the latest `pictures` frames the pictures stay for pictureOf(), whoever lets them go.
    explicit CameraFrames(std::unique_ptr<picture::Camera> camera, size_t pictures = 0);

    std::string name() const override { return mRecording.path; }
    int64_t intervalNs() const override { return mRecording.medianIntervalNs; }
    std::optional<int64_t> lengthNs() const override { return std::nullopt; }
    void start(int64_t, pipeline::FaultInjector*) override {}
    std::optional<Event> next(std::stop_token const& stop) override;
    std::map<uint32_t, uint32_t> sensorModesAt(int64_t) const override { return {{0, 0}}; }

    picture::CameraFacts facts() const { return mCamera->facts(); }
    /// That came last; none before the first.
    std::optional<PicturedFrame> newest() const EXCLUDES(mLock);

    /// Null: it has been too long.
    std::shared_ptr<picture::Picture const> pictureOf(uint32_t frameNo) const EXCLUDES(mLock);
    /// The latest frames, up to 10,000.
    recording::Recording recording() const EXCLUDES(mLock);

    /// A capture is pressed: the frame that is being exposed is kept for shotOf().
    void press(uint32_t requestNo, int64_t pressNs) EXCLUDES(mLock);
    /// Adds to a frame that came back what is known of the history frame that it got. Waits a
    /// moment for the frame that was being exposed at the press, should it not have come yet.
    CameraShot shotOf(LiveFrame const& frame) EXCLUDES(mLock);

private:
    struct Press {
        int64_t timeNs = 0;
        PicturedFrame frame;
    };

    recording::SensorFrame frameOf(picture::CameraPicture const& picture);
    void keep(PicturedFrame const& arrived) EXCLUDES(mLock);
    std::map<uint32_t, recording::SensorFrame> framesOf(
        pipeline::CaptureRecord const& capture) const EXCLUDES(mLock);
    std::optional<PicturedFrame> takePress(uint32_t requestNo) EXCLUDES(mLock);

    std::unique_ptr<picture::Camera> const mCamera;
    recording::Recording const mRecording;  ///< without frames: what it would tell of them
    size_t const mKeptPictures;
    // Of next() only.
    uint32_t mFrameNo = 0;
    std::deque<Event> mEvents;

    mutable Mutex mLock;
    std::condition_variable_any mArrived;
    PicturedFrame mNewest GUARDED_BY(mLock);
    std::deque<recording::SensorFrame> mFrames GUARDED_BY(mLock);  ///< the latest, ascending
    std::deque<PicturedFrame> mPictures GUARDED_BY(mLock);         ///< of the very latest of them
    std::map<uint32_t, Press> mPresses GUARDED_BY(mLock);          ///< by request number
};

}  // namespace zebcam::tool::run
