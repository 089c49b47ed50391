#pragma once

#include <iosfwd>
#include <string>

#include "recording/Recording.h"

namespace zebcam::tool::recording {

/// Writes every column that the reader knows, so that reading gives the same frames back. A state
/// without value becomes an empty cell. Errors are left in the stream's state.
void writeRecording(Recording const& recording, std::ostream& out);

/// The same into a file, or to standard output for the path `-`. The file appears whole or not at
/// all. Throws OutputError.
void writeRecording(Recording const& recording, std::string const& path);

}  // namespace zebcam::tool::recording
