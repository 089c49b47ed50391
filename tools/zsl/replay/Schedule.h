#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "recording/Recording.h"
#include "replay/ReplayOptions.h"

namespace zebcam::tool {

/// When a sensor frame moves on, boot time.
struct FrameTimes {
    int64_t announceNs = 0;  ///< it is in flight from here
    int64_t arrivalNs = 0;   ///< it is in the history from here
};

/// The times of every frame.
std::vector<FrameTimes> frameTimes(Recording const& recording, ReplayOptions const& options);

/// The presses in ascending time, from the first frame. Throws InputError when one of them, a
/// flush, a dump or a fault lies outside the recording.
std::vector<int64_t> pressTimes(Recording const& recording, ReplayOptions const& options);

/// What a capture pressed at boot time `pressNs` requires: the mode of the sensor at that moment,
/// by sensor id. Of the frames whose exposure has begun the newest that tells both decides, before
/// those the oldest; empty when no frame does.
std::map<uint32_t, uint32_t> sensorModesAt(Recording const& recording, int64_t pressNs);

}  // namespace zebcam::tool
