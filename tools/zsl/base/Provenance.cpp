#include "base/Provenance.h"

#include <fmt/chrono.h>

#include <cstdlib>
#include <ctime>
#include <string_view>

#include "Version.h"

namespace zebcam::tool::base {

namespace {

/// A word that a shell takes as it is, or in single quotes.
std::string shellWord(std::string_view word) {
    constexpr std::string_view kPlain =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_./=:,@%+";
    if (!word.empty() && word.find_first_not_of(kPlain) == std::string_view::npos) {
        return std::string(word);
    }
    std::string quoted = "'";
    for (char const c : word) {
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return quoted + "'";
}

std::time_t now() {
    char const* const epoch = std::getenv("SOURCE_DATE_EPOCH");
    char* end = nullptr;
    long long const seconds = epoch != nullptr ? std::strtoll(epoch, &end, 10) : 0;
    // What is no number is somebody else's mistake.
    return epoch != nullptr && end != epoch && *end == '\0' ? static_cast<std::time_t>(seconds)
                                                            : std::time(nullptr);
}

}  // namespace

Provenance provenanceOf(int argc, char const* const* argv) {
    std::string commandLine = "zsl";  // wherever it lies
    for (int i = 1; i < argc; ++i) {
        commandLine += " " + shellWord(argv[i]);
    }
    std::time_t const seconds = now();
    std::tm parts{};
    bool const isDate = gmtime_r(&seconds, &parts) != nullptr;
    return {REVISION, std::move(commandLine),
            isDate ? fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", parts) : std::string()};
}

}  // namespace zebcam::tool::base
