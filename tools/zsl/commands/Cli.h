#pragma once

#include "commands/Commands.h"

namespace zebcam::tool::commands {

/// The `zsl` command line. Gives the exit status: 0 when all is well, 1 when a command found
/// something wrong, 2 for arguments or input that are no good (with one line on `err` that says
/// what, and nothing on `out`).
int runCli(int argc, char const* const* argv, CliStreams const& streams);

}  // namespace zebcam::tool::commands
