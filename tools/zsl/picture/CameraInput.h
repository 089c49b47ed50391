#pragma once

#include <functional>
#include <memory>

#include "picture/Camera.h"
#include "picture/PictureDecoder.h"

/// Where a camera's packets come from. For this room's sources alone, as PictureDecoder.h.
namespace zebcam::tool::picture {

/// Who waits for an input asks now and then whether to give up. May be asked on FFmpeg's threads.
using GiveUp = std::function<bool()>;

/// A descriptor that FFmpeg reads; none where it opens the source itself.
class InputDescriptor;

/// An input that FFmpeg has opened.
struct CameraInput {
    CameraInput();
    CameraInput(CameraInput&&) noexcept;
    CameraInput& operator=(CameraInput&&) = delete;
    ~CameraInput();

    enum class Kind : uint8_t {
        Device,  ///< gives pictures as they are taken, and times of its driver
        Stream,  ///< gives pictures as they come
        Paced,   ///< gives pictures as fast as they are read
    };

    Kind kind = Kind::Stream;
    std::unique_ptr<InputDescriptor> descriptor;  ///< before what reads it
    FormatContext format;
};

/// Opens `options.source`. `giveUp` is borrowed as long as the input lives. Throws InputError.
CameraInput openInput(CameraOptions const& options, GiveUp const& giveUp);

}  // namespace zebcam::tool::picture
