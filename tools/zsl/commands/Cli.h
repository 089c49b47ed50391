#pragma once

#include <iosfwd>

namespace zebcam::tool::commands {

/// Where a command's text goes.
struct CliStreams {
    std::ostream& out;
    std::ostream& err;
    bool showProgress = false;  ///< `err` is a terminal that somebody looks at
};

/// The `zsl` command line. Gives the exit status: 0 when all is well, 1 when a command found
/// something wrong, 2 for arguments or input that are no good (with one line on `err` that says
/// what, and nothing on `out`).
int runCli(int argc, char const* const* argv, CliStreams const& streams);

}  // namespace zebcam::tool::commands
