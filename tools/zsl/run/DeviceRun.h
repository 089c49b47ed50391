#pragma once

#include <cstddef>
#include <cstdint>
#include <map>

#include "device/DeviceRecording.h"
#include "run/DeviceComparison.h"
#include "run/DeviceReplay.h"
#include "run/Replay.h"

namespace zebcam::tool::run {

/// What the clocks showed when the processor took a capture, by position among the submissions,
/// where it is not to be what the recording says at first glance.
using AssumedInstants = std::map<size_t, record::ClockReading>;

/// One replay. The recorded properties must be set.
DeviceReplayResult runDevice(device::DeviceRecording const& recording,
                             AssumedInstants const& instants, uint32_t logLevel,
                             ReplayListener const& listener);

/// How far a replay with these instants does what the device did.
DeviceAgreement agreementOf(device::DeviceRecording const& recording,
                            AssumedInstants const& instants);

}  // namespace zebcam::tool::run
