#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "recording/Recording.h"

/// What the states of a sensor frame mean.
namespace zebcam::tool::recording {

/// Android's word for a state, as `passive scan`; the number of one that Android does not define.
std::string afModeName(uint8_t mode);
std::string afStateName(uint8_t state);
std::string lensStateName(uint8_t state);

/// `frame` with the states that `recording` tells of no frame and without which the processor would
/// refuse them all, or log an error for each. What only some frames lack stays missing: that is
/// what the phone reported.
SensorFrame withAssumed(SensorFrame frame, Recording const& recording);

/// `frame` as the pipeline got it, without what was only assumed because `recording` tells it of no
/// frame.
SensorFrame withoutAssumed(SensorFrame frame, Recording const& recording);

/// Whether no focus scan ran and the lens stood still, as the processor judges it; none when the
/// frame does not tell enough.
std::optional<bool> isFocusSettled(SensorFrame const& frame);

/// Whether the automatic exposure had come to rest; none when the frame does not tell.
std::optional<bool> isExposureSettled(SensorFrame const& frame);

/// From the start to the end of exposure; none when the frame does not tell.
std::optional<int64_t> exposureNs(SensorFrame const& frame);

}  // namespace zebcam::tool::recording
