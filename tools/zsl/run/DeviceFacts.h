#pragma once

#include <cstdint>

#include "device/DeviceRecording.h"
#include "pipeline/ReplayOptions.h"
#include "recording/Recording.h"

namespace zebcam::tool::run {

/// The sensor frames that the device's history offered, as far as their numbers and times ascend.
/// What their results do not tell is 0 or missing; durations are then the median interval.
recording::Recording sensorFramesOf(device::DeviceRecording const& recording);

/// The options that come nearest to what the device did: those of its first capture.
pipeline::ReplayOptions optionsOf(device::DeviceRecording const& recording);

/// The sum of the recorded offset properties, ms.
int64_t offsetMsOf(device::DeviceRecording const& recording);

/// The clock that the device's sensor timestamps follow, of a reading.
int64_t sensorClockNs(device::DeviceRecording const& recording,
                      record::ClockReading const& reading);

/// When the processor had read the clock for a submission at the latest.
record::ClockReading latestSubmission(device::DeviceOperation const& operation);

}  // namespace zebcam::tool::run
