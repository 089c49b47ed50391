#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/TextStyle.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace zebcam::tool::commands {

/// What help and manual tell of a command beside its options.
struct CommandGuide {
    std::string_view command;
    std::string_view page;                                                ///< of the documentation
    std::vector<std::pair<std::string_view, std::string_view>> examples;  ///< and what each is for
    std::vector<std::pair<std::string_view, std::string_view>> statuses;  ///< of its exit
};

/// Throws std::logic_error for a command that has none.
CommandGuide const& guideOf(std::string_view command);

/// Where the documentation lies once it is installed.
inline constexpr std::string_view kDocumentation = "share/zebcam/docs";

/// The commands that are told of, in the order in which they are.
std::vector<CLI::App const*> commandsOf(CLI::App const& app);

/// A command's named options by group, in the order in which they are told; --help comes last.
std::vector<std::pair<std::string, std::vector<CLI::Option const*>>> groupsOf(
    CLI::App const& command);

/// What `zsl help` and `zsl --help` print.
std::string generalHelp(CLI::App const& app, base::TextStyle const& style);

/// The same for a command.
std::string commandHelp(CLI::App const& command, base::TextStyle const& style);

}  // namespace zebcam::tool::commands
