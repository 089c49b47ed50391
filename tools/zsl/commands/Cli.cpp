#include "commands/Commands.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <exception>
#include <ostream>
#include <string>
#include <vector>

#include "Version.h"
#include "base/Text.h"

namespace zebcam::tool::commands {

namespace {

std::vector<std::string> commandNames(CLI::App const& app) {
    std::vector<std::string> names;
    for (CLI::App const* const command : app.get_subcommands({})) {
        names.push_back(command->get_name());
    }
    return names;
}

/// `a, b or c`.
std::string anyOf(std::vector<std::string> const& names) {
    std::string text;
    for (size_t i = 0; i < names.size(); ++i) {
        text += i == 0 ? "" : i + 1 == names.size() ? " or " : ", ";
        text += names[i];
    }
    return text;
}

/// One line that says what is wrong, one that says where to read on.
int refuse(std::ostream& err, std::string const& command, std::string const& problem) {
    err << command << ": " << problem << "\ntry " << command << " --help\n";
    return kBadInput;
}

// The parser breaks some of its complaints into lines, and exceptions may hold anything.
std::string oneLine(std::string text) {
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text;
}

}  // namespace

int runCli(int argc, char const* const* argv, CliStreams const& given) {
    CliStreams streams = given;
    streams.provenance = base::provenanceOf(argc, argv);
    CLI::App app("Replays recordings of a phone's sensor through the zero-shutter-lag processor",
                 "zsl");
    std::string const version = fmt::format("zsl {} ({})", VERSION, REVISION);
    app.set_version_flag("--version", version);
    app.require_subcommand(1);
    int status = 0;
    addReplayCommand(app, streams, status);
    addLiveCommand(app, streams, status);
    addGenerateCommand(app, streams, status);
    addExplainCommand(app, streams, status);
    addCompareCommand(app, streams, status);
    // People ask for it on either side of the command.
    for (CLI::App* const command : app.get_subcommands({})) {
        command->set_version_flag("--version", version);
    }
    std::string const first = argc > 1 ? argv[1] : "";
    std::vector<std::string> const commands = commandNames(app);
    bool const isCommand = std::find(commands.begin(), commands.end(), first) != commands.end();
    std::string const command = isCommand ? "zsl " + first : "zsl";
    // The parser would complain of a missing subcommand, and not say what it met instead.
    if (!isCommand && !first.starts_with('-')) {
        std::string const found = argc > 1 ? ", found " + base::quoteContent(first) : "";
        return refuse(streams.err, command, "expected the command " + anyOf(commands) + found);
    }
    try {
        app.parse(argc, argv);
    } catch (CLI::Success const& request) {
        return app.exit(request, streams.out, streams.err);
    } catch (CLI::ParseError const& error) {
        return refuse(streams.err, command, oneLine(error.what()));
    } catch (std::exception const& error) {
        // The input is no good, of which --help knows nothing.
        streams.err << command << ": " << oneLine(error.what()) << '\n';
        return kBadInput;
    }
    // A full disk behind a redirection shows now at the latest.
    if (!streams.out.flush()) {
        streams.err << command << ": standard output cannot be written\n";
        return kBadInput;
    }
    return status;
}

}  // namespace zebcam::tool::commands
