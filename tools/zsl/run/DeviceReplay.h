#pragma once

#include <cstdint>

#include "device/DeviceRecording.h"
#include "recording/Recording.h"
#include "run/Replay.h"
#include "run/ReplayResult.h"

namespace zebcam::tool::run {

/// What came of a replay of a device's recording.
struct DeviceReplayResult {
    ReplayResult replay;          ///< has a verdict
    recording::Recording frames;  ///< those that the device's history offered
};

/**
 * Carries a recording's operations out again, with the real processor and the recorded
 * surroundings, at the recorded times, and compares what it does with what it did on the device.
 *
 * Throws InputError when a recorded property cannot be set. At most one at a time.
 */
DeviceReplayResult replayDevice(device::DeviceRecording const& recording, uint32_t logLevel = 0,
                                ReplayListener const& listener = {});

}  // namespace zebcam::tool::run
