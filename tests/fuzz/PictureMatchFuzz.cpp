#include <algorithm>
#include <cstdlib>

#include "Fuzz.h"
#include "base/InputError.h"
#include "picture/MeasuredVideo.h"

using namespace zebcam;
using namespace zebcam::tool;

namespace {

constexpr size_t kMostFrames = 64;

/// Frames at ascending and pictures at any times, from the input's bytes two by two.
struct Given {
    recording::Recording recording;
    std::vector<int64_t> timesNs;

    Given(uint8_t const* data, size_t size) {
        size_t const frames = 2 + data[0] % kMostFrames;
        bool const hasColumn = data[1] % 4 == 0;
        int64_t frameNs = 1 + data[2];
        int64_t pictureNs = data[2] % 2 == 0 ? 0 : frameNs;
        for (size_t i = 3; i + 1 < size; i += 2) {
            if (recording.frames.size() < frames) {
                recording::SensorFrame& frame = recording.frames.emplace_back();
                frame.timestampNs = frameNs += 1 + data[i];
                frame.frameNo = static_cast<uint32_t>(i);
                if (hasColumn && data[i + 1] % 2 == 0) {
                    frame.videoFrame = data[i + 1];
                }
            } else {
                timesNs.push_back(pictureNs += data[i] - data[i + 1] % 8);
            }
        }
        recording.medianIntervalNs = recording::medianIntervalNs(recording.frames);
    }
};

}  // namespace

/// A picture belongs to one frame, near it in time, and those between two go to frames between.
int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    if (size < 8) {
        return 0;
    }
    Given given(data, size);
    recording::Recording& recording = given.recording;
    if (recording.frames.size() < 2 || given.timesNs.empty()) {
        return 0;
    }
    recording::PictureMatch match{};
    try {
        match = picture::matchPictures(recording, given.timesNs, "fuzz.mp4");
    } catch (base::InputError const& refusal) {
        fuzz::require(*refusal.what() != '\0', "a refusal says why");
        return 0;
    }
    int64_t const originNs = match == recording::PictureMatch::Start
                                 ? recording.frames.front().timestampNs - given.timesNs.front()
                                 : 0;
    int64_t last = -1;
    for (recording::SensorFrame const& frame : recording.frames) {
        if (!frame.videoFrame) {
            fuzz::require(match != recording::PictureMatch::Count, "as many leave none out");
            continue;
        }
        fuzz::require(*frame.videoFrame < given.timesNs.size(), "the picture is there");
        if (match == recording::PictureMatch::Column) {
            continue;
        }
        fuzz::require(*frame.videoFrame > last, "pictures ascend with the frames");
        last = *frame.videoFrame;
        int64_t const awayNs =
            std::abs(frame.timestampNs - originNs - given.timesNs[*frame.videoFrame]);
        fuzz::require(
            match == recording::PictureMatch::Count || awayNs <= recording.medianIntervalNs / 2,
            "half an interval at most");
    }
    return 0;
}
