#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "device/DeviceRecording.h"
#include "recording/Recording.h"
#include "replay/Replay.h"
#include "replay/ReplayResult.h"

namespace zebcam::tool {

/// What came of a replay of a device's recording.
struct DeviceReplayResult {
    ReplayResult replay;
    Recording frames;        ///< those that the device's history offered
    size_t operations = 0;   ///< that were replayed
    size_t builtFrames = 0;  ///< by the device
    size_t sameFrames = 0;   ///< built just so by the replay
    size_t operationsThatDiffer = 0;
    std::vector<std::string> differences;  ///< the first ones

    bool isSame() const { return operationsThatDiffer == 0; }
};

/**
 * Carries a recording's operations out again, with the real processor and the recorded
 * surroundings, at the recorded times, and compares what it does with what it did on the device.
 *
 * Throws InputError when a recorded property cannot be set. At most one at a time.
 */
DeviceReplayResult replayDevice(DeviceRecording const& recording, uint32_t logLevel = 0,
                                ReplayListener const& listener = {});

/// What the comparison found, for people: a line if all is the same, else the first differences.
std::string comparisonText(DeviceReplayResult const& result);

}  // namespace zebcam::tool
