#pragma once

#include "commands/Cli.h"

namespace CLI {
class App;
}

namespace zebcam::tool::commands {

/// Adds `compare` to `app`. When it is chosen, parsing runs it and sets `exitStatus`; bad input
/// throws. `streams` and `exitStatus` must outlive `app`.
void addCompareCommand(CLI::App& app, CliStreams const& streams, int& exitStatus);

struct CliStreams;

/// Adds `explain`, which tells from a log why each capture got what it got, to the commands of
/// `app`. When parsing meets it, it runs and sets `exitStatus`: 0, or 1 after a message when the
/// log has nothing to explain. What cannot be read or written is thrown. `streams` and `exitStatus`
/// must outlive `app`'s parsing.
void addExplainCommand(CLI::App& app, CliStreams const& streams, int& exitStatus);

/// Adds `generate`, which writes a made-up recording, to the commands of `app`. When parsing meets
/// it, it runs and sets `exitStatus`: 0 when done, 2 after a message on standard error when an
/// option's value or the output is no good. `exitStatus` must outlive `app`'s parsing.
void addGenerateCommand(CLI::App& app, int& exitStatus);

/// Adds `live`, which runs the pipeline in real time, to the commands of `app`. When parsing meets
/// it, it runs and sets `exitStatus`: 0 when every capture was answered and the ledger balances,
/// else 1. Input that is no good leaves the parsing as an exception. `streams` and `exitStatus`
/// must outlive `app`'s parsing.
void addLiveCommand(CLI::App& app, CliStreams const& streams, int& exitStatus);

/// Adds `replay` to the commands of `app`. When parsing meets it, it runs and sets `exitStatus`: 0
/// when every capture was answered and the ledger balances, else 1. Input that is no good leaves
/// the parsing as an exception. `streams` and `exitStatus` must outlive `app`'s parsing.
void addReplayCommand(CLI::App& app, CliStreams const& streams, int& exitStatus);

}  // namespace zebcam::tool::commands
