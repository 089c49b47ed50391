#include <fmt/format.h>
#include <unistd.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <exception>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "Version.h"
#include "base/AtomicFile.h"
#include "base/Text.h"
#include "commands/Commands.h"
#include "commands/Help.h"

namespace zebcam::tool::commands {

namespace {

/// Null for none of that name.
CLI::App* findCommand(CLI::App& app, std::string const& name) {
    auto const found = app.get_subcommands(
        [&name](CLI::App const* command) { return command->get_name() == name; });
    return found.empty() ? nullptr : found.front();
}

std::vector<std::string> commandNames(CLI::App const& app) {
    std::vector<std::string> names;
    for (CLI::App const* const command : commandsOf(app)) {
        names.push_back(command->get_name());
    }
    return names;
}

std::string unknownCommand(CLI::App const& app, std::string const& found) {
    std::vector<std::string> const names = commandNames(app);
    return fmt::format("expected the command {}, found {}{}", base::anyOf(names),
                       base::quoteContent(found), base::didYouMean(found, names));
}

// The parser breaks some of its complaints into lines, and exceptions may hold anything.
std::string oneLine(std::string text) {
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text;
}

/// What to say of words that nobody took, in the order in which they came.
std::string unexpected(CLI::App const& command, std::vector<std::string> const& words) {
    // A value behind an unknown option is an extra word as well, but not what is wrong.
    auto const option = std::find_if(words.begin(), words.end(), [](std::string const& word) {
        return word.size() > 1 && word.starts_with('-');
    });
    if (option != words.end()) {
        std::string const name = option->substr(0, option->find('='));
        std::vector<std::string> known;
        for (CLI::Option const* const each : command.get_options()) {
            for (std::string const& longName : each->get_lnames()) {
                known.push_back("--" + longName);
            }
        }
        return fmt::format("{}: there is no such option{}", base::printable(name),
                           base::didYouMean(name, known));
    }
    std::string found;
    for (std::string const& word : words) {
        found += " " + base::quoteContent(word);
    }
    return "expected nothing more, found" + found;
}

/// What the parser complains of, in the words of all other complaints.
std::string complaintOf(CLI::App const& command, CLI::ParseError const& error) {
    // First, for what else is missing is often the doing of a misspelt option.
    if (auto const words = command.remaining(); !words.empty()) {
        return unexpected(command, words);
    }
    std::string text = oneLine(error.what());
    std::string_view one;
    std::string_view other;
    base::FormFields const fields = {{"one", &one}, {"other", &other}};
    if (base::match(text, "<one>: 1 required <other> missing", fields)) {
        return fmt::format("{}: expected {}, found nothing", one, other);
    }
    if (base::match(text, "<one> is required", fields)) {
        return fmt::format("expected {}, found nothing", one);
    }
    if (base::match(text, "<one> excludes <other>", fields)) {
        return fmt::format("{}: {} is given as well", one, other);
    }
    if (base::match(text, "<one> requires <other>", fields)) {
        return fmt::format("{}: expected {} as well", one, other);
    }
    if (base::match(text, "<one> was given a disallowed flag override", fields)) {
        return fmt::format("--{}: expected no value", one);
    }
    return text;
}

void addHelpCommand(CLI::App& app, CliStreams const& streams) {
    auto const name = std::make_shared<std::optional<std::string>>();
    CLI::App* const help = app.add_subcommand("help", "Tell what a command does, and its options");
    help->add_option("COMMAND", *name, "The command; without one, all of them")
        ->type_name("COMMAND");
    help->callback([&app, &streams, name] {
        if (!*name) {
            streams.out << generalHelp(app, streams.outStyle);
            return;
        }
        CLI::App const* const command = findCommand(app, **name);
        if (command == nullptr) {
            throw CLI::ValidationError("COMMAND", unknownCommand(app, **name));
        }
        streams.out << commandHelp(*command, streams.outStyle);
    });
}

void addCommands(CLI::App& app, CliStreams const& streams, int& status) {
    std::string const version = fmt::format("zsl {} ({})", VERSION, REVISION);
    addReplayCommand(app, streams, status);
    addLiveCommand(app, streams, status);
    addCameraCommand(app, streams, status);
    addGenerateCommand(app, streams, status);
    addExplainCommand(app, streams, status);
    addCompareCommand(app, streams, status);
    addListCommand(app, streams, status);
    addHelpCommand(app, streams);
    addManualCommand(app);
    app.add_subcommand("version", "Tell version and revision")->callback([&streams, version] {
        streams.out << version << '\n';
    });
    app.set_version_flag("-V,--version", version);
    // People ask for it on either side of the command.
    for (CLI::App* const command : app.get_subcommands({})) {
        command->option_defaults()->group("Options");
        command->set_version_flag("--version", version, "Print version and revision");
        command->set_help_flag("-h,--help", "Print this");
    }
}

/// Parses and so runs. Gives what is wrong with the arguments; throws what is wrong with the input.
std::optional<std::string> parse(CLI::App& app, CLI::App const& command, int argc,
                                 char const* const* argv, CliStreams const& streams) {
    try {
        app.parse(argc, argv);
    } catch (CLI::CallForHelp const&) {
        streams.out << (&command == &app ? generalHelp(app, streams.outStyle)
                                         : commandHelp(command, streams.outStyle));
    } catch (CLI::CallForVersion const& version) {
        streams.out << version.what() << '\n';
    } catch (CLI::ParseError const& error) {
        return complaintOf(command, error);
    }
    return std::nullopt;
}

}  // namespace

void endForWantOfMemory() {
    constexpr std::string_view kLine =
        "zsl: out of memory; fewer captures or a shorter recording need less\n";
    [[maybe_unused]] auto const written = write(STDERR_FILENO, kLine.data(), kLine.size());
    base::AtomicFile::removeTemporaries();
    _exit(kBadInput);
}

int runCli(int argc, char const* const* argv, CliStreams const& given) {
    CliStreams streams = given;
    streams.provenance = base::provenanceOf(argc, argv);
    CLI::App app("Replays recordings of a phone's sensor through the zero-shutter-lag processor",
                 "zsl");
    app.require_subcommand(1);
    int status = 0;
    addCommands(app, streams, status);
    std::string const first = argc > 1 ? argv[1] : "";
    CLI::App const* const found = findCommand(app, first);
    std::string const name = found != nullptr ? "zsl " + first : "zsl";
    auto const refuse = [&](std::string const& problem) {
        streams.err << name << ": " << problem << '\n';
        return kBadInput;
    };
    // Where to read on, unless the complaint has said what to type instead.
    auto const refuseArguments = [&](std::string const& problem) {
        std::string const help = found != nullptr ? "zsl help " + first : "zsl help";
        return refuse(problem.ends_with('?') ? problem : problem + "; see " + help);
    };
    if (found == nullptr && !first.starts_with('-')) {
        // The parser would complain of a missing subcommand, and not say what it met instead.
        return refuseArguments(argc > 1 ? unknownCommand(app, first)
                                        : "expected the command " + base::anyOf(commandNames(app)) +
                                              ", found nothing");
    }
    try {
        if (auto const problem = parse(app, found != nullptr ? *found : app, argc, argv, streams)) {
            return refuseArguments(*problem);
        }
    } catch (std::exception const& error) {
        // The input is no good, of which help knows nothing.
        return refuse(oneLine(error.what()));
    }
    // A full disk behind a redirection shows now at the latest.
    return streams.out.flush() ? status : refuse("standard output cannot be written");
}

}  // namespace zebcam::tool::commands
