#pragma once

namespace CLI {
class App;
}

namespace zebcam::tool {

/// Adds `generate`, which writes a made-up recording, to the commands of `app`. When parsing meets
/// it, it runs and sets `exitStatus`: 0 when done, 2 after a message on standard error when an
/// option's value or the output is no good. `exitStatus` must outlive `app`'s parsing.
void addGenerateCommand(CLI::App& app, int& exitStatus);

}  // namespace zebcam::tool
