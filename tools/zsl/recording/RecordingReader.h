#pragma once

#include <iosfwd>
#include <string>

#include "recording/Recording.h"
#include "recording/RecordingError.h"

namespace zebcam::tool {

/// Reads a recording, a CSV file with a header line and a line for each sensor frame
/// (docs/recordings.md describes the columns and their defaults). The path `-` is standard input.
/// Throws RecordingError for whatever cannot be read in full: nothing is half-read.
Recording readRecording(std::string const& path);

/// The same from a stream; `name` stands for the path in errors and in the result.
Recording readRecording(std::istream& in, std::string const& name);

}  // namespace zebcam::tool
