#include "commands/Help.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <stdexcept>

#include "base/Text.h"

namespace zebcam::tool::commands {

using base::TextStyle;
using base::Tone;

namespace {

constexpr std::pair<std::string_view, std::string_view> kRefused = {
    "2",
    "the arguments or the input are no good, or a result cannot be written; one line on "
    "standard error says what"};

std::vector<CommandGuide> const& guides() {
    static std::vector<CommandGuide> const GUIDES = {
        {"replay",
         "replay.md",
         {{"zsl replay walk.csv --offset 100ms",
           "ten captures of the moment 100 ms before a press"},
          {"zsl replay walk.csv --press 1.2s --explain", "why one of them took its frame"},
          {"zsl replay walk.csv --report walk.html", "the same to look at"}},
         {{"0",
           "every capture was answered and the ledger balances; of a device's recording: "
           "the processor decides as it did on the device"},
          {"1", "not so; the last lines say what"},
          kRefused}},
        {"live",
         "live.md",
         {{"zsl live --duration 10s", "ten seconds of generated frames"},
          {"zsl live walk.csv --press-every 200ms --record walk.zslrec",
           "a recording, and what the processor saw, for zsl replay"}},
         {{"0", "every capture was answered and the ledger balances"},
          {"1", "not so; the last lines say what"},
          kRefused}},
        {"camera",
         "camera.md",
         {{"zsl camera /dev/video0 --pictures shots", "a laptop's camera; Enter takes a picture"},
          {"zsl camera lavfi:testsrc2=size=640x360:rate=30 --press-every 1s --duration 10s",
           "ten presses without a camera"}},
         {{"0",
           "every capture was answered, the ledger balances, and the camera is there or came to "
           "its end"},
          {"1", "not so; the last lines say what"},
          kRefused,
          {"128 + N", "signal N ended it before there was a picture"}}},
        {"generate",
         "recordings.md",
         {{"zsl generate --output made.csv", "300 frames as of a phone"},
          {"zsl generate --fps 60 --error-rate 0.05 --seed 7 --output - | zsl replay -",
           "unusable images at 60 frames/s, replayed at once"},
          {"zsl generate --output made.csv --video made.mp4 --frames 60",
           "with pictures that tell when they were taken"}},
         {{"0", "the recording is written"}, kRefused}},
        {"explain",
         "explain.md",
         {{"adb logcat -d | zsl explain", "every capture in a device's log"},
          {"zsl explain log.txt --request 7", "one of them"},
          {"zsl explain log.txt --report log.html", "the same to look at"}},
         {{"0", "the captures are told"}, {"1", "the log has nothing to tell"}, kRefused}},
        {"compare",
         "compare.md",
         {{"zsl compare walk.csv --policy default --policy multiframe", "two policies"},
          {"zsl compare *.csv --offset 50ms --offset 100ms --fail-if 'p95_lag_ms>0'",
           "two offsets over all recordings, with a limit for a CI"}},
         {{"0", "all runs are in order and within the limits"},
          {"1", "one is not; standard error says which"},
          kRefused,
          {"128 + N", "signal N ended it"}}},
        {"list",
         "replay.md",
         {{"zsl list faults", "what --fault can let go wrong"},
          {"zsl list", "all that can be listed"}},
         {{"0", "it is listed"}, kRefused}},
        {"help",
         "replay.md",
         {{"zsl help replay", "options, examples and exit status of zsl replay"}},
         {{"0", "it is told"}, kRefused}},
        {"version",
         "replay.md",
         {{"zsl version", "version and revision"}},
         {{"0", "it is told"}, kRefused}},
    };
    return GUIDES;
}

constexpr size_t kMostColumns = 100;  // wider lines of prose lose their reader
constexpr size_t kTermEnd = 29;

/// A term and what it means, beside each other.
std::string entry(TextStyle const& style, std::string const& term, std::string_view meaning) {
    return base::wrap("  " + style.paint(term, Tone::Good), meaning,
                      {.indent = kTermEnd, .columns = std::min(style.columns, kMostColumns)});
}

std::string heading(TextStyle const& style, std::string_view text) {
    return "\n" + style.paint(text, Tone::Heading) + "\n";
}

std::string paragraph(TextStyle const& style, std::string_view text) {
    return base::wrap("", text, {.columns = std::min(style.columns, kMostColumns)});
}

std::string usageOf(CLI::App const& command) {
    std::string text = "zsl " + command.get_name();
    for (CLI::Option const* const option : command.get_options()) {
        if (option->get_positional()) {
            std::string const name =
                option->get_name() + (option->get_items_expected_max() > 1 ? "..." : "");
            text += option->get_required() ? " " + name : " [" + name + "]";
        }
    }
    return text + " [OPTION...]";
}

std::string examplesOf(TextStyle const& style, CommandGuide const& guide) {
    std::string text;
    for (auto const& [command, meaning] : guide.examples) {
        text += fmt::format("  {}\n", style.paint(command, Tone::Good));
        text += base::wrap("", meaning,
                           {.indent = 6, .columns = std::min(style.columns, kMostColumns)});
    }
    return text;
}

}  // namespace

CommandGuide const& guideOf(std::string_view command) {
    auto const found = std::find_if(guides().begin(), guides().end(), [command](auto const& guide) {
        return guide.command == command;
    });
    if (found == guides().end()) {
        throw std::logic_error(fmt::format("zsl {} has no examples and no exit statuses", command));
    }
    return *found;
}

std::vector<CLI::App const*> commandsOf(CLI::App const& app) {
    // A command without a group is hidden.
    return app.get_subcommands(
        [](CLI::App const* command) { return !command->get_group().empty(); });
}

std::vector<std::pair<std::string, std::vector<CLI::Option const*>>> groupsOf(
    CLI::App const& command) {
    std::vector<std::pair<std::string, std::vector<CLI::Option const*>>> groups;
    for (std::string const& name : command.get_groups()) {
        auto options = command.get_options([&name](CLI::Option const* option) {
            return option->get_group() == name && option->nonpositional();
        });
        if (!options.empty() && !name.empty()) {
            groups.emplace_back(name, std::move(options));
        }
    }
    // The parser makes --help first, and nobody looks for it.
    std::stable_partition(groups.begin(), groups.end(),
                          [](auto const& group) { return group.first != "Options"; });
    return groups;
}

std::string generalHelp(CLI::App const& app, TextStyle const& style) {
    std::string text = paragraph(style, app.get_description() + ".");
    text += heading(style, "Usage") + "  zsl COMMAND [OPTION...]\n";
    text += heading(style, "Commands");
    for (CLI::App const* const command : commandsOf(app)) {
        text += entry(style, command->get_name(), command->get_description());
    }
    text += heading(style, "First steps");
    text += entry(style, "zsl generate -o made.csv", "make a recording, if you have none");
    text += entry(style, "zsl replay made.csv", "press the button ten times");
    text += entry(style, "zsl help replay", "what else it can do");
    return text + "\n" + paragraph(style, fmt::format("man zsl and {} tell more.", kDocumentation));
}

std::string commandHelp(CLI::App const& command, TextStyle const& style) {
    CommandGuide const& guide = guideOf(command.get_name());
    std::string text = paragraph(style, command.get_description() + ".");
    text += heading(style, "Usage") + "  " + usageOf(command) + "\n";
    std::string arguments;
    for (CLI::Option const* const option : command.get_options()) {
        if (option->get_positional()) {
            arguments += entry(style, option->get_name(), option->get_description());
        }
    }
    text += (arguments.empty() ? "" : "\n") + arguments;
    for (auto const& [group, options] : groupsOf(command)) {
        text += heading(style, group);
        for (CLI::Option const* const option : options) {
            std::string const type = option->get_type_name();
            text += entry(style, option->get_name(false, true) + (type.empty() ? "" : " " + type),
                          option->get_description());
        }
    }
    text += heading(style, "Examples") + examplesOf(style, guide);
    text += heading(style, "Exit status");
    for (auto const& [status, meaning] : guide.statuses) {
        text += entry(style, std::string(status), meaning);
    }
    return text + "\n" +
           paragraph(style, fmt::format("man zsl-{} and {}/{} tell more.", guide.command,
                                        kDocumentation, guide.page));
}

}  // namespace zebcam::tool::commands
