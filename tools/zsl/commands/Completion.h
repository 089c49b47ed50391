#pragma once

#include <string>

namespace CLI {
class App;
}

namespace zebcam::tool::commands {

/// What makes a shell complete the command line of `app`: commands, options, the words that an
/// option knows, and files.
std::string bashCompletion(CLI::App const& app);
std::string zshCompletion(CLI::App const& app);
std::string fishCompletion(CLI::App const& app);

}  // namespace zebcam::tool::commands
