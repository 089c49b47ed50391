#pragma once

#include "cli/Cli.h"

namespace CLI {
class App;
}

namespace zebcam::tool {

/// Adds `compare` to `app`. When it is chosen, parsing runs it and sets `exitStatus`; bad input
/// throws. `streams` and `exitStatus` must outlive `app`.
void addCompareCommand(CLI::App& app, CliStreams const& streams, int& exitStatus);

}  // namespace zebcam::tool
