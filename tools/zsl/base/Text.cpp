#include "base/Text.h"

#include <fmt/format.h>

#include <algorithm>

namespace zebcam::tool::base {

namespace {

bool isPrintable(char c) {
    return c >= ' ' && c <= '~';
}

constexpr size_t kMaxQuoted = 40;

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

std::string printable(std::string_view text) {
    if (std::all_of(text.begin(), text.end(), isPrintable)) {
        return std::string(text);
    }
    std::string out;
    for (char const c : text) {
        if (isPrintable(c)) {
            out += c;
        } else {
            out += fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
        }
    }
    return out;
}

}  // namespace zebcam::tool::base
