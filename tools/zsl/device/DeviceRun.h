#pragma once

#include <cstddef>
#include <cstdint>
#include <map>

#include "device/DeviceComparison.h"
#include "device/DeviceRecording.h"
#include "device/DeviceReplay.h"
#include "replay/Replay.h"

namespace zebcam::tool {

/// What the clocks showed when the processor took a capture, by position among the submissions,
/// where it is not to be what the recording says at first glance.
using AssumedInstants = std::map<size_t, record::ClockReading>;

/// One replay. The recorded properties must be set.
DeviceReplayResult runDevice(DeviceRecording const& recording, AssumedInstants const& instants,
                             uint32_t logLevel, ReplayListener const& listener);

/// How far a replay with these instants does what the device did.
DeviceAgreement agreementOf(DeviceRecording const& recording, AssumedInstants const& instants);

}  // namespace zebcam::tool
