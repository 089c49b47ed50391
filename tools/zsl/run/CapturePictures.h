#pragma once

#include <host/FrameBuilder.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/AtomicFile.h"
#include "picture/Jpeg.h"
#include "pipeline/CaptureBook.h"
#include "recording/Recording.h"
#include "run/ReplayResult.h"

namespace zebcam::tool::run {

/// Of the JPEG files of captures.
inline constexpr int CAPTURE_QUALITY = 92;

/// `capture-0001-frame-0.jpg`, or without a frame `capture-0001-press.jpg`.
std::string pictureName(uint32_t requestNo, std::optional<size_t> frame);

/// What a picture's file tells of `frame`, which `what` (as `capture 1, press: frame`) says the use
/// of, and how far from the press at `pressNs` it was exposed. Its date is the time of the frame's
/// own clock, from 1970 on.
picture::PictureFacts factsOf(recording::SensorFrame const& frame, std::string const& what,
                              int64_t pressNs);

/// The picture that the image in `builder` shows; null without one.
std::shared_ptr<picture::Picture const> pictureIn(host::FrameBuilder const& builder);

/// What is wanted of a run's pictures.
struct PictureWishes {
    /// The picture of a frame, asked for as it arrives, null if it has none; also tells the frame
    /// what is measured of it, unless that is known. Empty: none is wanted.
    std::function<std::shared_ptr<picture::Picture const>(recording::SensorFrame&)> of;
    base::AtomicFolder const* folder = nullptr;  ///< for the files of captures; null: none
    bool copies = false;                         ///< for ReplayResult::pictures
};

/// Makes of the pictures of a replay what is wanted. Pictures are kept no longer than their frames'
/// buffers, but for the time of a call into the processor. For one thread.
class CapturePictures {
public:
    /// `copies`: how many are to be expected at most.
    CapturePictures(PictureWishes wishes, size_t copies);

    bool areWanted() const { return static_cast<bool>(mWishes.of); }

    /// A capture is going to be pressed then, while this frame is the newest.
    void expectPress(uint32_t requestNo, recording::SensorFrame const& frame, int64_t pressNs);

    /// A frame is about to reach the history; see PictureWishes::of.
    void arrive(recording::SensorFrame& frame);

    /// The picture of a frame that has arrived; null without one, or when nobody holds it any more.
    std::shared_ptr<picture::Picture const> of(uint32_t frameNo) const;

    /// From here to release() every picture stays that is alive or comes: in a call the processor
    /// may let go, or the history drop, what a capture was offered in it.
    void hold();
    void release() { mHeld.clear(); }

    /// A frame of a capture was built, of `chosen` as far as the ledger knows. Its picture is the
    /// one that its builder got.
    void built(pipeline::BuiltFrame const& frame, pipeline::CaptureRecord const& capture,
               recording::SensorFrame const* chosen);

    /// Adds copies and files to `result`, and says what was left out.
    void finish(ReplayResult& result);

private:
    struct Press {
        uint32_t requestNo = 0;
        int64_t timeNs = 0;
    };

    void copy(uint32_t frameNo, picture::Picture const& picture);
    void write(std::string const& name, picture::Picture const& picture,
               picture::PictureFacts const& facts);

    PictureWishes const mWishes;
    uint32_t const mCopyWidth;
    std::multimap<uint32_t, Press> mPresses;  ///< by the number of the frame
    std::map<uint32_t, std::weak_ptr<picture::Picture const>> mAlive;  ///< by frame number
    std::vector<std::shared_ptr<picture::Picture const>> mHeld;
    std::map<uint32_t, PictureCopy> mCopies;
    size_t mCopiedBytes = 0;
    size_t mUncopied = 0;
    std::vector<std::string> mFiles;
};

}  // namespace zebcam::tool::run
