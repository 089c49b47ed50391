#pragma once

#include <iosfwd>

namespace CLI {
class App;
}

namespace zebcam::tool::commands {

/// Where a command's text goes.
struct CliStreams {
    std::ostream& out;
    std::ostream& err;
    bool showProgress = false;  ///< `err` is a terminal that somebody looks at
};

/// Each adds a command to `app`. When parsing meets the command, it runs and sets `exitStatus`; bad
/// input leaves the parsing as an exception whose text says what was expected and found. `streams`
/// and `exitStatus` must outlive `app`'s parsing.

/// `compare`, replays recordings under several settings: 0 when all runs are in order and within
/// the limits, else 1; 128 and the signal when one ended it.
void addCompareCommand(CLI::App& app, CliStreams const& streams, int& exitStatus);

/// `explain`, tells from a log why each capture got what it got: 0, or 1 after a message when the
/// log has nothing to explain.
void addExplainCommand(CLI::App& app, CliStreams const& streams, int& exitStatus);

/// `generate`, writes a made-up recording: 0.
void addGenerateCommand(CLI::App& app, CliStreams const& streams, int& exitStatus);

/// `live`, runs the pipeline in real time: 0 when every capture was answered and the ledger
/// balances, else 1.
void addLiveCommand(CLI::App& app, CliStreams const& streams, int& exitStatus);

/// `replay`, replays a recording: 0 when every capture was answered and the ledger balances, or all
/// decisions are the device's; else 1.
void addReplayCommand(CLI::App& app, CliStreams const& streams, int& exitStatus);

}  // namespace zebcam::tool::commands
