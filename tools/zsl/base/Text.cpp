#include "base/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <numeric>
#include <stdexcept>
#include <type_traits>
#include <utility>
#include <vector>

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
        // The quotation mark before it does not count.
        if (text.size() + escaped.size() > kMaxQuoted + 1) {
            return text + "...\"";
        }
        text += escaped;
    }
    return text + "\"";
}

std::string printable(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (char const c : text) {
        // Most are; a text of its own for each of them would take longer than all else.
        if (isPrintable(c)) {
            out += c;
        } else {
            out += escape(c);
        }
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

namespace {

constexpr uint64_t kNsPerSecond = 1'000'000'000;
constexpr std::array<std::pair<std::string_view, uint64_t>, 4> kUnits = {
    {{"s", kNsPerSecond}, {"ms", 1'000'000}, {"us", 1'000}, {"ns", 1}}};

[[noreturn]] void refuse(std::string_view expected, std::string_view text) {
    throw std::invalid_argument(fmt::format("expected {}, found {}", expected, quoteContent(text)));
}

/// Takes the digits at the front of `rest`.
std::string_view takeDigits(std::string_view& rest) {
    auto const end = std::find_if_not(rest.begin(), rest.end(), isDigit);
    std::string_view const digits = rest.substr(0, static_cast<size_t>(end - rest.begin()));
    rest.remove_prefix(digits.size());
    return digits;
}

/// Appends a digit worth `weight` ns; false when it does not fit.
bool addDigit(int64_t& ns, char digit, int64_t weight) {
    int64_t part = 0;
    return !__builtin_mul_overflow(static_cast<int64_t>(digit - '0'), weight, &part) &&
           !__builtin_add_overflow(ns, part, &ns);
}

uint64_t magnitude(int64_t ns) {
    // Unsigned first: the smallest number has no positive counterpart.
    return ns < 0 ? -static_cast<uint64_t>(ns) : static_cast<uint64_t>(ns);
}

std::string roundedTo(int64_t ns, uint64_t nsPerUnit, int decimals, uint64_t nsPerStep) {
    uint64_t const size = magnitude(ns);
    uint64_t const steps = size / nsPerStep + (size % nsPerStep * 2 >= nsPerStep ? 1 : 0);
    uint64_t const stepsPerUnit = nsPerUnit / nsPerStep;
    return fmt::format("{}{}.{:0{}}", ns < 0 && steps > 0 ? "-" : "", steps / stepsPerUnit,
                       steps % stepsPerUnit, decimals);
}

}  // namespace

int64_t parseDuration(std::string_view text) {
    constexpr std::string_view kExpected = "a time with its unit, such as 1.2s, 350ms or 5us";
    std::string_view rest = text;
    bool const isNegative = rest.starts_with('-');
    if (isNegative || rest.starts_with('+')) {
        rest.remove_prefix(1);
    }
    std::string_view const whole = takeDigits(rest);
    std::string_view fraction;
    if (rest.starts_with('.')) {
        rest.remove_prefix(1);
        fraction = takeDigits(rest);
    }
    auto const unit = std::find_if(kUnits.begin(), kUnits.end(),
                                   [&](auto const& candidate) { return candidate.first == rest; });
    if (unit == kUnits.end() || (whole.empty() && fraction.empty())) {
        refuse(kExpected, text);
    }
    int64_t const unitNs = static_cast<int64_t>(unit->second);
    int64_t ns = 0;
    for (char const digit : whole) {
        if (__builtin_mul_overflow(ns, int64_t{10}, &ns) || !addDigit(ns, digit, unitNs)) {
            refuse("a time within 292 years", text);
        }
    }
    int64_t weight = unitNs;
    for (char const digit : fraction) {
        weight /= 10;
        if (weight == 0 && digit != '0') {
            refuse("whole nanoseconds", text);
        }
        if (!addDigit(ns, digit, weight)) {
            refuse("a time within 292 years", text);
        }
    }
    return isNegative ? -ns : ns;
}

std::string formatDuration(int64_t ns) {
    uint64_t const size = magnitude(ns);
    std::string text =
        fmt::format("{}{}.{:09}", ns < 0 ? "-" : "", size / kNsPerSecond, size % kNsPerSecond);
    text.erase(text.find_last_not_of('0') + 1);
    if (text.ends_with('.')) {
        text.pop_back();
    }
    return text + "s";
}

std::string formatMs(int64_t ns) {
    return roundedTo(ns, 1'000'000, 2, 10'000);
}

std::string formatSeconds(int64_t ns) {
    return roundedTo(ns, kNsPerSecond, 3, 1'000'000);
}

std::string formatBriefMs(int64_t ns) {
    constexpr int64_t kShown = 5'000;  // rounds to 0.01 ms
    std::string text = ns == 0 || ns >= kShown || ns <= -kShown
                           ? roundedTo(ns, 1'000'000, 2, 10'000)
                           : roundedTo(ns, 1'000'000, 6, 1);
    text.erase(text.find_last_not_of('0') + 1);
    if (text.ends_with('.')) {
        text.pop_back();
    }
    return text;
}

std::string counted(size_t count, std::string_view one, std::string_view many) {
    return fmt::format("{} {}", count, count == 1 ? one : many);
}

namespace {

/// How many characters must be put in, left out, exchanged or swapped to make `b` of `a`.
size_t distance(std::string_view a, std::string_view b) {
    std::vector<size_t> beforeLast(b.size() + 1);
    std::vector<size_t> last(b.size() + 1);
    std::iota(last.begin(), last.end(), size_t{0});
    for (size_t i = 1; i <= a.size(); ++i) {
        std::vector<size_t> row{i};
        for (size_t j = 1; j <= b.size(); ++j) {
            size_t const exchanged = last[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
            row.push_back(std::min({last[j] + 1, row[j - 1] + 1, exchanged}));
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
                row[j] = std::min(row[j], beforeLast[j - 2] + 1);
            }
        }
        beforeLast = std::exchange(last, std::move(row));
    }
    return last.back();
}

}  // namespace

std::string didYouMean(std::string_view word, std::span<std::string const> names) {
    constexpr size_t kLongest = 100;  // nobody's slip of the keyboard, and costly
    // Dashes are in all options and make none of them alike.
    std::string_view const letters =
        word.substr(std::min(word.find_first_not_of('-'), word.size()));
    if (letters.empty() || letters.size() > kLongest) {
        return "";
    }
    std::string const* best = nullptr;
    size_t least = 1 + letters.size() / 4;
    for (std::string const& name : names) {
        size_t const slips = distance(word, name);
        // What is only begun is often all that somebody remembers.
        bool const isBegun = letters.size() >= 3 && name.starts_with(word);
        if (slips <= least || (isBegun && best == nullptr)) {
            best = &name;
            least = std::min(least, slips - std::min(slips, size_t{1}));
        }
    }
    return best != nullptr ? fmt::format("; did you mean {}?", *best) : "";
}

std::string anyOf(std::span<std::string const> names) {
    std::string text;
    for (size_t i = 0; i < names.size(); ++i) {
        text += i == 0 ? "" : i + 1 == names.size() ? " or " : ", ";
        text += names[i];
    }
    return text;
}

namespace {

/// How many bytes at the front of `text` show at most `columns` columns, and how many they show.
std::pair<size_t, size_t> measure(std::string_view text, size_t columns) {
    size_t shown = 0;
    size_t at = 0;
    while (at < text.size()) {
        size_t next = at + 1;
        bool isShown = true;
        if (text[at] == '\033') {
            next = std::min(text.find('m', at), text.size() - 1) + 1;
            isShown = false;
        }
        // A character goes with the bytes that continue it.
        while (isShown && next < text.size() && (text[next] & 0xc0) == 0x80) {
            ++next;
        }
        if (isShown && shown == columns) {
            break;
        }
        shown += isShown ? 1 : 0;
        at = next;
    }
    return {at, shown};
}

}  // namespace

size_t shownWidth(std::string_view text) {
    return measure(text, std::string_view::npos).second;
}

std::string wrap(std::string head, std::string_view text, Wrapping const& wrapping) {
    auto const& [indent, columns, breakAfter, cutsWords] = wrapping;
    // A head that reaches into the text pushes it along, a blank between them.
    size_t const shown = shownWidth(head);
    size_t start = std::max(shown + (head.empty() ? 0 : 1), indent);
    head.append(start - shown, ' ');
    std::string out;
    while (true) {
        // However long the head is, half a line is left for the text.
        size_t const room = columns - std::min(start, columns / 2);
        size_t const fitting = measure(text, room).first;
        if (text.size() <= fitting) {
            break;
        }
        size_t const visible = breakAfter.size() - 1;
        size_t at = text.rfind(breakAfter, fitting - std::min(visible, fitting));
        if (at == 0 || at == std::string_view::npos) {
            // Nothing fits: the next break is too far right, but better than none.
            at = cutsWords ? std::string_view::npos : text.find(breakAfter, 1);
            if (!cutsWords && at == std::string_view::npos) {
                break;
            }
        }
        bool const isCut = at == std::string_view::npos;
        out += head;
        out += text.substr(0, isCut ? fitting : at + visible);
        out += '\n';
        text.remove_prefix(isCut ? fitting : at + breakAfter.size());
        head.assign(indent, ' ');
        start = indent;
    }
    out += head;
    out += text;
    out.erase(out.find_last_not_of(' ') + 1);
    return out + "\n";
}

}  // namespace zebcam::tool::base
