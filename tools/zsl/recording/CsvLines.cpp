#include "recording/CsvLines.h"

#include <algorithm>
#include <new>
#include <utility>

#include "base/Text.h"
#include "recording/Recording.h"

namespace zebcam::tool::recording {

namespace {

// A file without line ends, say a picture, is refused before it fills the memory.
constexpr size_t kMaxLineBytes = 1 << 20;
constexpr size_t kCellBlockBytes = 1 << 16;  // long cells grow the buffer in few steps
constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";

// Called from C code, through which no exception may pass.
void storeCell(void* content, size_t size, void* cells) noexcept {
    std::string_view cell(static_cast<char const*>(content), size);
    cell.remove_prefix(std::min(cell.find_first_not_of(BLANKS), cell.size()));
    cell = cell.substr(0, cell.find_last_not_of(BLANKS) + 1);
    static_cast<std::vector<std::string>*>(cells)->emplace_back(cell);
}

}  // namespace

CsvLines::CsvLines(std::istream& in, std::string name)
    : mIn(in), mName(std::move(name)), mBuffer(kMaxLineBytes + 2) {
    if (csv_init(&mParser, CSV_STRICT | CSV_STRICT_FINI) != 0) {
        throw std::bad_alloc();
    }
    csv_set_blk_size(&mParser, kCellBlockBytes);
}

CsvLines::~CsvLines() {
    csv_free(&mParser);
}

bool CsvLines::next(std::vector<std::string>& cells) {
    cells.clear();
    std::string_view text;
    // The parser gives no cells for a blank line, and such lines mean nothing.
    while (cells.empty() && readLine(text)) {
        rejectBinary(text);
        if (mSeparator != '\0' || takeHead(text)) {
            split(text, cells);
        }
    }
    return !cells.empty();
}

std::vector<std::string> CsvLines::comment() {
    std::vector<std::string> cells;
    std::string_view text = mComment;
    text.remove_prefix(std::min(text.find_first_not_of('#'), text.size()));
    if (text.find_first_not_of(BLANKS) != std::string_view::npos) {
        split(text, cells);
    }
    return cells;
}

// True for the first line that is neither blank nor a comment, by which the separator is known.
bool CsvLines::takeHead(std::string_view text) {
    if (text.find_first_not_of(BLANKS) == std::string_view::npos) {
        return false;
    }
    if (text.starts_with('#')) {
        mComment = text;
        mCommentLine = mLine;
        return false;
    }
    // Names may hold semicolons; a comma beside one in numbers stands for the point.
    constexpr std::string_view kNumeric = "0123456789+-.,;\t eE";
    bool const isNumeric = text.find_first_not_of(kNumeric) == std::string_view::npos;
    for (char const separator : std::string_view(isNumeric ? ";\t," : ",;\t")) {
        if (text.find(separator) != std::string_view::npos) {
            mSeparator = separator;
            break;
        }
    }
    mSeparator = mSeparator == '\0' ? ',' : mSeparator;
    csv_set_delim(&mParser, static_cast<unsigned char>(mSeparator));
    return true;
}

bool CsvLines::readLine(std::string_view& text) {
    mIn.getline(mBuffer.data(), static_cast<std::streamsize>(mBuffer.size()));
    auto size = static_cast<size_t>(mIn.gcount());
    // Getting a line fails at the end of the stream too and where it does not fit: only what is
    // bad is an error of the disk.
    if (mIn.bad()) {
        throw RecordingError({mName, mLine + 1, {}}, "a readable line", "a read error");
    }
    if (!mIn.eof() && !mIn.fail()) {
        --size;  // the line end is counted
    } else if (size == 0) {
        return false;
    }
    ++mLine;
    if (size > kMaxLineBytes) {
        throw RecordingError({mName, mLine, {}}, "a line of at most 1 MiB", "a longer one");
    }
    text = {mBuffer.data(), size};
    // Spreadsheets put one before the first column's name, which would then be unknown.
    if (mLine == 1 && text.starts_with(kByteOrderMark)) {
        text.remove_prefix(kByteOrderMark.size());
    }
    if (text.ends_with('\r')) {
        text.remove_suffix(1);
    }
    return true;
}

// The parser would take control characters for content, and a NUL would end the text of an error.
void CsvLines::rejectBinary(std::string_view text) const {
    auto const isBinary = [](char c) { return (c >= '\0' && c < ' ' && c != '\t') || c == '\x7f'; };
    auto const at = std::find_if(text.begin(), text.end(), isBinary);
    if (at != text.end()) {
        auto const rest = text.substr(static_cast<size_t>(at - text.begin()));
        throw RecordingError({mName, mLine, {}}, "text without control characters",
                             base::quoteContent(rest));
    }
}

void CsvLines::split(std::string_view text, std::vector<std::string>& cells) {
    // Finished after every line: a quote that is open at its end would swallow the next lines.
    auto const parsed = csv_parse(&mParser, text.data(), text.size(), storeCell, nullptr, &cells);
    if (parsed != text.size() || csv_fini(&mParser, storeCell, nullptr, &cells) != 0) {
        throw RecordingError({mName, mLine, {}}, "quotes in pairs around whole cells",
                             base::quoteContent(text));
    }
}

}  // namespace zebcam::tool::recording
