#pragma once

namespace CLI {
class App;
}

namespace zebcam::tool {

struct CliStreams;

/// Adds `explain`, which tells from a log why each capture got what it got, to the commands of
/// `app`. When parsing meets it, it runs and sets `exitStatus`: 0, or 1 after a message when the
/// log has nothing to explain. What cannot be read or written is thrown. `streams` and `exitStatus`
/// must outlive `app`'s parsing.
void addExplainCommand(CLI::App& app, CliStreams const& streams, int& exitStatus);

}  // namespace zebcam::tool
