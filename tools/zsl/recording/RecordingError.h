#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>

namespace zebcam::tool::recording {

/// Where in a recording something is wrong. Line 0 means the file as a whole, an empty column the
/// whole line.
struct RecordingPlace {
    std::string path;
    size_t line = 0;  ///< from 1, the header's line
    std::string column;
};

/// A recording that cannot be used. The text is
/// `<path>:<line>: column "<name>": expected ..., found ...`, with line and column where they
/// apply.
class RecordingError : public std::runtime_error {
public:
    RecordingError(RecordingPlace const& place, std::string_view expected, std::string_view found);
};

}  // namespace zebcam::tool::recording
