#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <utility>
#include <vector>

#include "picture/Picture.h"
#include "recording/Recording.h"

namespace zebcam::tool::picture {

/// By what the times of a camera's pictures are known.
enum class CameraClock : uint8_t {
    Driver,   ///< the driver tells them, by the system's monotonic clock
    Own,      ///< they are kept to: a file or made-up pictures, shown at their own pace
    Arrival,  ///< nobody tells them on a clock that is known: when the pictures arrived
};

constexpr char const* toString(CameraClock clock) {
    switch (clock) {
        case CameraClock::Driver:
            return "driver";
        case CameraClock::Own:
            return "own";
        case CameraClock::Arrival:
            break;
    }
    return "arrival";
}

struct CameraOptions {
    std::string source;  ///< as openCamera() takes it
    /// For the part of FFmpeg that reads the source, by its own names.
    std::vector<std::pair<std::string, std::string>> inputOptions;
    int64_t stallNs = 5'000'000'000;  ///< one that gives no picture for so long is gone
};

/// What there is to tell of a camera.
struct CameraFacts {
    std::string source;
    std::string format;  ///< FFmpeg's name of what reads it
    uint32_t width = 0;  ///< of the first picture, turned upright
    uint32_t height = 0;
    CameraClock clock = CameraClock::Arrival;
    int64_t intervalNs = 0;  ///< as it declares it, else that of 30 pictures a second

    // So far:
    uint64_t pictures = 0;       ///< that it gave
    uint64_t dropped = 0;        ///< not decoded, because decoding was too slow
    uint64_t broken = 0;         ///< that could not be decoded, or not whole
    uint64_t replacedTimes = 0;  ///< times that went back, or were too far off to be true
    uint64_t resized = 0;        ///< of another size than the one before
    std::string end;             ///< why there are no more; empty while there are
    bool hasBrokenOff = false;   ///< and nobody here wanted that
};

struct CameraPicture {
    int64_t timeNs = 0;  ///< boot time of the exposure, by the camera's clock; ascending
    std::shared_ptr<Picture const> picture;
    recording::PictureMeasures measures;
};

/// Pictures that come by themselves, in their own time. They are read by one thread and decoded and
/// measured by another, so that whoever waits for them gets each as soon as it is known.
class Camera {
public:
    virtual ~Camera() = default;

    /// Thread-safe.
    virtual CameraFacts facts() const = 0;

    /// Waits for the next picture until `stop`, after which there are none. None: the camera has
    /// ended, as its facts tell.
    virtual std::optional<CameraPicture> next(std::stop_token const& stop) = 0;
};

/**
 * Opens what FFmpeg reads: a V4L2 device by its path, `lavfi:GRAPH`, a pipe by its path, an address
 * with a protocol (`rtsp://...`), or a file, which is shown at its own pace. Comes back with the
 * first picture. `check` is called now and then until then and may throw, for somebody who does not
 * want to wait any longer.
 *
 * Throws InputError, with the source and the cause, for what cannot be opened or gives no picture.
 */
std::unique_ptr<Camera> openCamera(CameraOptions const& options,
                                   std::function<void()> const& check = {});

}  // namespace zebcam::tool::picture
