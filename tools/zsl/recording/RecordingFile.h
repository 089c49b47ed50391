#pragma once

#include <iosfwd>
#include <string>

#include "recording/Recording.h"

namespace zebcam::tool::recording {

/// Reads a recording, a CSV file with a header line and a line for each sensor frame
/// (docs/recordings.md describes the columns and their defaults). The path `-` is standard input.
/// Throws RecordingError for whatever cannot be read in full: nothing is half-read.
Recording readRecording(std::string const& path);

/// The same from a stream; `name` stands for the path in errors and in the result.
Recording readRecording(std::istream& in, std::string const& name);

/// Writes every column that the reader knows, so that reading gives the same frames back. A state
/// without value becomes an empty cell. Errors are left in the stream's state.
void writeRecording(Recording const& recording, std::ostream& out);

/// The same into a file, which appears whole or not at all. Throws OutputError.
void writeRecording(Recording const& recording, std::string const& path);

}  // namespace zebcam::tool::recording
