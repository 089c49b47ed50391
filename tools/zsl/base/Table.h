#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/TextStyle.h"

namespace zebcam::tool::base {

/**
 * Rows of cells under titles, for people. What is too wide for the reader's terminal is narrowed
 * step by step: titles are broken into lines, then the cells of a Prose column, and in the end the
 * columns are told in parts, one below the other, each of which begins with the key columns.
 */
class Table {
public:
    enum class Kind : uint8_t {
        Number,  ///< flush right
        Text,    ///< flush left
        Prose,   ///< flush left, and broken at blanks where the line ends; the last column only
    };

    struct Column {
        std::string title;
        Kind kind = Kind::Number;
        size_t width = 0;        ///< at least, so that tables below each other are alike
        bool isKey = false;      ///< tells whose row it is; such columns come first
        std::string group = {};  ///< above the titles of neighbours that share it
    };

    explicit Table(std::vector<Column> columns);

    /// A cell for each column, painted or not.
    void addRow(std::vector<std::string> cells) { mRows.push_back({std::move(cells), {}}); }

    /// Lines below the last row that are no part of the columns. Ends with a newline.
    void addBelow(std::string_view lines) { mRows.back().below += lines; }

    std::string text(TextStyle const& style) const;

private:
    struct Row {
        std::vector<std::string> cells;
        std::string below;
    };

    /// Columns that stand beside each other, with their widths.
    struct Part {
        std::vector<size_t> columns;
        std::vector<size_t> widths;
    };

    /// The column after the last one of this column's group.
    size_t endOfGroup(size_t column) const;

    std::vector<size_t> widths(bool breaksTitles) const;
    std::vector<Part> parts(size_t columns) const;
    std::string titles(Part const& part, TextStyle const& style) const;
    std::string groups(Part const& part, TextStyle const& style) const;
    std::string line(Part const& part, std::span<std::string const> cells) const;

    std::vector<Column> const mColumns;
    std::vector<Row> mRows;
};

}  // namespace zebcam::tool::base
