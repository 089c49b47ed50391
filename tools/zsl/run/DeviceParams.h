#pragma once

#include <pipeline/IPipelineBufferSetFrameControl.h>
#include <pipelinemodel_utils/ParsedStreamInfo_P1.h>

#include <cstddef>
#include <vector>

#include "device/DeviceRecording.h"
#include "run/DeviceScript.h"

namespace zebcam::tool::run {

/// What goes into the processor's operations, made anew from a recording.

/// The first of the device's sensors comes first here too: its streams carry the early shutter.
NSCam::v3::pipeline::policy::ParsedStreamInfoMap_P1 sensorsOf(
    DeviceStreams const& streams, std::vector<device::DeviceSensor> const& recorded);

/// When a capture was submitted, as exactly as the recording tells. `servedIn` is the operation in
/// which the device built the last of its frames.
DeviceSubmission submissionOf(device::DeviceRecording const& recording,
                              device::DeviceOperation const& submission, size_t servedIn);

/// A result with the sensor timestamps that its metadata had.
NSCam::v3::pipeline::IPipelineBufferSetFrameControl::IAppCallback::Result resultOf(
    DeviceStreams const& streams, device::ResultCall const& call);

}  // namespace zebcam::tool::run
