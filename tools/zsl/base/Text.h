#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace zebcam::tool::base {

inline constexpr int64_t NS_PER_MS = 1'000'000;
inline constexpr int64_t NS_PER_SECOND = 1'000'000'000;

/// `content` between double quotes, fit for a terminal: what is not printable ASCII is escaped and
/// what exceeds 40 characters is cut off and marked by `...`.
std::string quoteContent(std::string_view content);

/// `text` with each byte that is not printable ASCII escaped, fit for a terminal and for JSON.
std::string printable(std::string_view text);

/// Whether `c` is one of ASCII's.
constexpr bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

/// The ns of a time as `1.2s`, `350ms`, `5us` or `-20ns`. Throws std::invalid_argument, with a text
/// that says what was expected and found, for anything else, for parts of a ns and for what does
/// not fit 64 bits.
int64_t parseDuration(std::string_view text);

/// `ns` in a form that parseDuration reads: in seconds, without needless zeros.
std::string formatDuration(int64_t ns);

/// `ns` in ms (in s) with two (three) decimals, rounded half away from zero.
std::string formatMs(int64_t ns);
std::string formatSeconds(int64_t ns);

/// `ns` in ms without needless zeros: with up to two decimals, or with as many as are needed for
/// what is not 0 not to read as 0.
std::string formatBriefMs(int64_t ns);

/// Where match() puts the fields of a form, by their names.
using FormField = std::pair<std::string_view,
                            std::variant<char*, uint32_t*, int64_t*, uint64_t*, std::string_view*>>;
using FormFields = std::initializer_list<FormField>;

/**
 * Whether all of `text` is of a form such as `OUT(#<frames>):`. Names in angle brackets are fields,
 * all else stands for itself. A field goes up to the first place at which what follows it in the
 * form is found. Letters and numbers may have blanks before them, as columns do; what is not in
 * `fields` is passed over. Texts point into `text`. When the answer is no, some fields may have
 * been filled.
 */
bool match(std::string_view text, std::string_view form, FormFields fields);

/// `1 frame`, `2 frames`.
std::string counted(size_t count, std::string_view one, std::string_view many);

/// `; did you mean late?` with the one of `names` that is most like `word`; empty when none is.
std::string didYouMean(std::string_view word, std::span<std::string const> names);

/// `a, b or c`.
std::string anyOf(std::span<std::string const> names);

/// The columns that `text` takes on a terminal: a colour takes none, a character in UTF-8 one.
size_t shownWidth(std::string_view text);

/// How wrap() breaks a text into lines.
struct Wrapping {
    size_t indent = 0;  ///< column at which the text begins, in every line
    size_t columns = 100;
    std::string_view breakAfter = " ";  ///< ends with the blank that goes with the line's end
    bool cutsWords = false;  ///< else what is longer than a line stays whole, so that it is found
};

/// `head`, and from the indent on (or a blank after a longer head) `text`, ending with a newline.
std::string wrap(std::string head, std::string_view text, Wrapping const& wrapping);

}  // namespace zebcam::tool::base
