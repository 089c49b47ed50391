#pragma once

#include <csv.h>

#include <cstddef>
#include <istream>
#include <string>
#include <string_view>
#include <vector>

namespace zebcam::tool::recording {

/// What may stand around a cell and means nothing.
inline constexpr std::string_view BLANKS = " \t";

/// The cells of a CSV stream line by line, so that every complaint has a line number and no more
/// than one line is held. A cell therefore cannot span lines. The first line tells what separates
/// cells: a comma, a semicolon or a tab. Lines before it that begin with # are passed over. Throws
/// RecordingError.
class CsvLines {
public:
    /// `in` is borrowed for the lifetime of this object; `name` is the path in errors.
    CsvLines(std::istream& in, std::string name);
    ~CsvLines();
    CsvLines(CsvLines const&) = delete;
    CsvLines& operator=(CsvLines const&) = delete;

    /// Puts the next line that is not blank into `cells`, without blanks around them. False at the
    /// end of the stream.
    bool next(std::vector<std::string>& cells);

    /// Number of the line that next() gave last, from 1; 0 before the first.
    size_t line() const { return mLine; }

    char separator() const { return mSeparator; }

    /// The cells of the last line that was passed over, without its #, and its number; none and 0
    /// without one.
    std::vector<std::string> comment();
    size_t commentLine() const { return mCommentLine; }

private:
    bool takeHead(std::string_view text);
    bool readLine(std::string_view& text);
    void rejectBinary(std::string_view text) const;
    void split(std::string_view text, std::vector<std::string>& cells);

    std::istream& mIn;
    std::string mName;
    std::vector<char> mBuffer;
    csv_parser mParser{};
    size_t mLine = 0;
    char mSeparator = '\0';  ///< until the first line
    std::string mComment;
    size_t mCommentLine = 0;
};

}  // namespace zebcam::tool::recording
