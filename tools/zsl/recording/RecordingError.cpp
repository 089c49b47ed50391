#include "recording/RecordingError.h"

#include <fmt/format.h>

namespace zebcam::tool {
namespace {

constexpr size_t kMaxQuoted = 40;

std::string describe(RecordingPlace const& place, std::string_view expected,
                     std::string_view found) {
    std::string text = place.path + ":";
    if (place.line > 0) {
        text += fmt::format("{}:", place.line);
    }
    if (!place.column.empty()) {
        text += fmt::format(" column \"{}\":", place.column);
    }
    return text + fmt::format(" expected {}, found {}", expected, found);
}

std::string escape(char c) {
    switch (c) {
        case '\t':
            return "\\t";
        case '\r':
            return "\\r";
        case '\n':
            return "\\n";
        case '"':
        case '\\':
            return {'\\', c};
        default:
            bool const printable = c >= ' ' && c <= '~';
            return printable ? std::string(1, c)
                             : fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
    }
}

}  // namespace

RecordingError::RecordingError(RecordingPlace const& place, std::string_view expected,
                               std::string_view found)
    : std::runtime_error(describe(place, expected, found)) {
}

std::string quoteContent(std::string_view content) {
    std::string text = "\"";
    for (char const c : content) {
        std::string const escaped = escape(c);
        if (text.size() + escaped.size() > kMaxQuoted + 1) {
            return text + "...\"";
        }
        text += escaped;
    }
    return text + "\"";
}

}  // namespace zebcam::tool
