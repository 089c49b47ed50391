#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <sstream>
#include <string_view>
#include <vector>

#include "Fuzz.h"
#include "commands/Commands.h"

using namespace zebcam;

namespace {

/// Goes to an empty folder and closes standard input, so that a command finds nothing to work on.
/// The fuzzer's own paths must be absolute therefore.
class Nowhere {
public:
    Nowhere() {
        std::string path = std::filesystem::temp_directory_path() / "zsl-fuzz-XXXXXX";
        fuzz::require(mkdtemp(path.data()) != nullptr && chdir(path.c_str()) == 0, "a folder");
        mPath = path;
        int const nothing = open("/dev/null", O_RDONLY);
        fuzz::require(dup2(nothing, STDIN_FILENO) == STDIN_FILENO, "nothing to read");
        close(nothing);
    }
    ~Nowhere() { std::filesystem::remove_all(mPath); }

private:
    std::filesystem::path mPath;
};

/// Whether the argument could make a command write, load a library, leave the folder or run long.
bool isHarmful(std::string const& argument) {
    constexpr std::array<std::string_view, 10> REFUSED{
        "write-manual", "--json",   "--csv",    "--report", "--trace",
        "--pictures",   "--record", "--output", "-o",       "live"};
    return argument.find('/') != std::string::npos || argument.find(".so") != std::string::npos ||
           std::any_of(REFUSED.begin(), REFUSED.end(),
                       [&](auto refused) { return argument.starts_with(refused); });
}

}  // namespace

/// An argument a line. Whatever they are, the command ends with a status and says what is wrong.
int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    static Nowhere const nowhere;
    std::vector<std::string> arguments{"zsl"};
    std::istringstream lines(fuzz::textOf(data, size));
    for (std::string line; std::getline(lines, line);) {
        line.resize(std::min(line.size(), line.find('\0')));
        if (isHarmful(line)) {
            return 0;
        }
        arguments.push_back(line);
    }
    std::vector<char const*> argv;
    for (auto const& argument : arguments) {
        argv.push_back(argument.c_str());
    }
    std::ostringstream out;
    std::ostringstream err;
    int const status =
        tool::commands::runCli(static_cast<int>(argv.size()), argv.data(), {out, err, false});
    fuzz::require(status >= 0 && status <= 2, "the status is 0, 1 or 2");
    fuzz::require((status == 0) == err.str().empty(), "a failure says why, a success nothing");
    fuzz::require(status != 2 || out.str().empty(), "bad arguments print nothing on the output");
    return 0;
}
