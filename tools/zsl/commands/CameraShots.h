#pragma once

#include <zebcam/ThreadSafety.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "picture/Jpeg.h"
#include "run/CameraFrames.h"
#include "run/LiveRun.h"

namespace zebcam::tool::commands {

/// What becomes of a camera's captures: a line is told of each frame, its picture goes into a file
/// as it comes, and what is known of it is kept for the result. Thread-safe.
class CameraShots {
public:
    /// What else the pictures are kept for, in small.
    struct Copies {
        bool forPage = false;    ///< shown() and state()
        bool forReport = false;  ///< replayOf()
    };

    /// `folder` gets the pictures; none: nobody wants them. It is made if there is none. Throws
    /// OutputError when it cannot be, and InputError when it holds pictures of captures already.
    /// `frames` is borrowed; `tell` is called on the thread that take() is.
    CameraShots(run::CameraFrames& frames, std::optional<std::string> folder, Copies copies,
                std::function<void(std::string const& line)> tell);

    void take(run::LiveFrame const& frame) EXCLUDES(mLock);

    /// The picture of one of the latest frames, as JPEG; none of others.
    std::optional<std::string> shown(uint32_t requestNo, size_t index) const EXCLUDES(mLock);

    /// The latest frames, the camera and its troubles as JSON, for the page.
    std::string state() const EXCLUDES(mLock);

    /// Adds to the captures of `result` what is known of their pictures, and what could not be
    /// written to its failures. Once, at the end.
    void finish(run::LiveResult& result) EXCLUDES(mLock);

    /// A finished run as a replay, for what shows replays: of the latest frames, and the captures
    /// that were pressed while they came. None where there are less than two frames.
    std::optional<std::pair<recording::Recording, run::ReplayResult>> replayOf(
        run::LiveResult const& result) EXCLUDES(mLock);

private:
    struct Shown {
        run::CameraShot shot;  ///< without pictures
        std::string jpeg;      ///< empty: it has none
    };

    std::optional<std::string> write(std::string const& name, picture::Picture const& picture,
                                     picture::PictureFacts facts) EXCLUDES(mLock);
    void keep(run::CameraShot const& shot) EXCLUDES(mLock);
    void show(run::CameraShot const& shot) EXCLUDES(mLock);
    void copy(run::CameraShot const& shot) EXCLUDES(mLock);

    run::CameraFrames& mFrames;
    std::optional<std::string> const mFolder;
    std::function<void(std::string const&)> const mTell;
    int64_t const mStartNs;  ///< boot time

    Copies const mCopies;

    mutable Mutex mLock;
    std::map<uint32_t, pipeline::CaptureRecord> mCaptures GUARDED_BY(mLock);  ///< by request number
    std::deque<Shown> mShown GUARDED_BY(mLock);                               ///< the latest first
    std::map<uint32_t, run::PictureCopy> mReported GUARDED_BY(mLock);         ///< by frame number
    size_t mReportedBytes GUARDED_BY(mLock) = 0;
    std::vector<std::string> mFailures GUARDED_BY(mLock);
};

}  // namespace zebcam::tool::commands
