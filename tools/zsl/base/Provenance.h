#pragma once

#include <string>

namespace zebcam::tool::base {

/// Where a result comes from, so that a page in a bug report can be made again. What is not known
/// is empty.
struct Provenance {
    std::string revision;     ///< of the tool's and the library's sources
    std::string commandLine;  ///< as a shell takes it
    std::string date;         ///< UTC, as 2026-01-31T12:00:00Z
};

/// Of this process. The date is SOURCE_DATE_EPOCH's where that is set, so that results that are
/// compared byte by byte can be alike.
Provenance provenanceOf(int argc, char const* const* argv);

}  // namespace zebcam::tool::base
