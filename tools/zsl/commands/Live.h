#pragma once

#include "cli/Cli.h"

namespace CLI {
class App;
}

namespace zebcam::tool {

/// Adds `live`, which runs the pipeline in real time, to the commands of `app`. When parsing meets
/// it, it runs and sets `exitStatus`: 0 when every capture was answered and the ledger balances,
/// else 1. Input that is no good leaves the parsing as an exception. `streams` and `exitStatus`
/// must outlive `app`'s parsing.
void addLiveCommand(CLI::App& app, CliStreams const& streams, int& exitStatus);

}  // namespace zebcam::tool
