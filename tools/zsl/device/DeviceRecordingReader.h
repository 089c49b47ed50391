#pragma once

#include <iosfwd>
#include <string>

#include "device/DeviceRecording.h"

namespace zebcam::tool::device {

/**
 * Reads a recording that a recorder wrote. Where it was cut off or a block is damaged, what came
 * before is used and a note says so. Throws DeviceRecordingError, with file, place, and what was
 * expected and found, when nothing can be used, the version is another one, or a sound block holds
 * what no recorder writes. Takes no more memory than in proportion to the file.
 */
DeviceRecording readDeviceRecording(std::string const& path);

/// The same from a stream; `name` stands for the path in errors and in the result.
DeviceRecording readDeviceRecording(std::istream& in, std::string const& name);

}  // namespace zebcam::tool::device
