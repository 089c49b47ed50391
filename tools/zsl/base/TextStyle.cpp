#include "base/TextStyle.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <optional>

namespace zebcam::tool::base {

namespace {

// Narrower and no table can be read, wider and the eye loses the line.
constexpr size_t kMinColumns = 40;
constexpr size_t kMaxColumns = 240;

// Of the sixteen colours that every terminal's user has chosen to suit the background.
char const* colourOf(Tone tone) {
    switch (tone) {
        case Tone::Plain:
            return "";
        case Tone::Heading:
            return "\033[1m";
        case Tone::Good:
            return "\033[32m";
        case Tone::Doubtful:
            return "\033[33m";
        case Tone::Bad:
            return "\033[31m";
        case Tone::Faint:
            return "\033[2m";
    }
    return "";
}

std::string_view environment(char const* name) {
    char const* const value = std::getenv(name);
    return value != nullptr ? value : "";
}

std::optional<size_t> columnsOf(int fd) {
    winsize size{};
    // A terminal that was never told its size, as of a serial line, says 0.
    if (ioctl(fd, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
        return size.ws_col;
    }
    std::string_view const told = environment("COLUMNS");
    size_t columns = 0;
    auto const [end, error] = std::from_chars(told.data(), told.data() + told.size(), columns);
    bool const isNumber = error == std::errc() && end == told.data() + told.size();
    return isNumber && columns > 0 ? std::optional(columns) : std::nullopt;
}

}  // namespace

std::string TextStyle::paint(std::string_view text, Tone tone) const {
    if (!hasColour || tone == Tone::Plain || text.empty()) {
        return std::string(text);
    }
    return std::string(colourOf(tone)).append(text).append("\033[0m");
}

TextStyle styleFor(int fd) {
    TextStyle style;
    if (auto const columns = columnsOf(fd)) {
        style.columns = std::clamp(*columns, kMinColumns, kMaxColumns);
    }
    std::string_view const terminal = environment("TERM");
    style.hasColour = isatty(fd) != 0 && environment("NO_COLOR").empty() && !terminal.empty() &&
                      terminal != "dumb";
    return style;
}

}  // namespace zebcam::tool::base
