#include "base/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <type_traits>

namespace zebcam::tool::base {

namespace {

constexpr size_t kMaxQuoted = 40;

bool isPrintable(char c) {
    return c >= ' ' && c <= '~';
}

std::string escape(char c) {
    switch (c) {
        case '\t':
            return "\\t";
        case '\r':
            return "\\r";
        case '\n':
            return "\\n";
        default:
            return isPrintable(c) ? std::string(1, c)
                                  : fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
    }
}

/// Whether `text` is a value of the field, all of it.
template <typename T>
bool take(std::string_view text, T* field) {
    if constexpr (std::is_same_v<T, char>) {
        *field = text.empty() ? '\0' : text[0];
        return text.size() == 1;
    } else {
        auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), *field);
        return error == std::errc() && end == text.data() + text.size();
    }
}

bool take(std::string_view text, std::string_view* field) {
    *field = text;
    return true;
}

}  // namespace

std::string quoteContent(std::string_view content) {
    std::string text = "\"";
    for (char const c : content) {
        bool const wouldMislead = c == '"' || c == '\\';
        std::string const escaped = (wouldMislead ? "\\" : "") + escape(c);
        if (text.size() + escaped.size() > kMaxQuoted + 1) {
            return text + "...\"";
        }
        text += escaped;
    }
    return text + "\"";
}

std::string printable(std::string_view text) {
    std::string out;
    for (char const c : text) {
        isPrintable(c) ? out += c : out += escape(c);
    }
    return out;
}

bool match(std::string_view text, std::string_view form, FormFields fields) {
    while (true) {
        size_t const open = std::min(form.find('<'), form.size());
        if (!text.starts_with(form.substr(0, open))) {
            return false;
        }
        text.remove_prefix(open);
        if (open == form.size()) {
            return text.empty();
        }
        size_t const close = form.find('>', open);
        std::string_view const name = form.substr(open + 1, close - open - 1);
        auto const* const field = std::find_if(
            fields.begin(), fields.end(), [name](auto const& each) { return each.first == name; });
        bool const isWanted = field != fields.end();
        bool const isText = !isWanted || std::holds_alternative<std::string_view*>(field->second);
        while (!isText && text.starts_with(' ')) {
            text.remove_prefix(1);
        }
        form.remove_prefix(close + 1);
        // No second place is tried: a line that is made for it would cost the square of its length.
        std::string_view const next = form.substr(0, form.find('<'));
        size_t const end = next.empty() ? text.size() : text.find(next);
        if (end == std::string_view::npos) {
            return false;
        }
        auto const takeInto = [piece = text.substr(0, end)](auto target) {
            return take(piece, target);
        };
        if (isWanted && !std::visit(takeInto, field->second)) {
            return false;
        }
        text.remove_prefix(end);
    }
}

}  // namespace zebcam::tool::base
