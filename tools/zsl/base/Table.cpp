#include "base/Table.h"

#include <algorithm>
#include <cstddef>
#include <numeric>
#include <utility>

#include "base/Text.h"

namespace zebcam::tool::base {

namespace {

constexpr size_t kGap = 2;
constexpr size_t kMinProse = 18;  // less, and a sentence becomes a tower

std::vector<std::string> linesOf(std::string_view text, size_t columns) {
    std::string const wrapped = wrap("", text, {.columns = columns, .cutsWords = true});
    std::vector<std::string> lines;
    for (size_t begin = 0; begin < wrapped.size();) {
        size_t const end = wrapped.find('\n', begin);
        lines.push_back(wrapped.substr(begin, end - begin));
        begin = end + 1;
    }
    return lines;
}

size_t longestWord(std::string_view text) {
    size_t longest = 0;
    while (!text.empty()) {
        size_t const end = std::min(text.find(' '), text.size());
        longest = std::max(longest, shownWidth(text.substr(0, end)));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return longest;
}

std::string padded(std::string_view text, size_t width, Table::Kind kind) {
    std::string const blanks(width - std::min(width, shownWidth(text)), ' ');
    return kind == Table::Kind::Number ? blanks + std::string(text) : std::string(text) + blanks;
}

size_t lengthOf(std::vector<size_t> const& widths) {
    return std::accumulate(widths.begin(), widths.end(), size_t{0}) +
           kGap * (widths.size() - std::min(widths.size(), size_t{1}));
}

void endLine(std::string& text) {
    text.erase(text.find_last_not_of(' ') + 1);
    text += '\n';
}

}  // namespace

Table::Table(std::vector<Column> columns) : mColumns(std::move(columns)) {
}

size_t Table::endOfGroup(size_t column) const {
    std::string const& group = mColumns[column].group;
    size_t end = column + 1;
    while (end < mColumns.size() && !group.empty() && mColumns[end].group == group) {
        ++end;
    }
    return end;
}

std::vector<size_t> Table::widths(bool breaksTitles) const {
    std::vector<size_t> widths;
    for (size_t i = 0; i < mColumns.size(); ++i) {
        Column const& column = mColumns[i];
        size_t width = std::max(
            column.width, breaksTitles ? longestWord(column.title) : shownWidth(column.title));
        for (Row const& row : mRows) {
            width = std::max(width, shownWidth(row.cells[i]));
        }
        widths.push_back(width);
    }
    return widths;
}

std::vector<Table::Part> Table::parts(size_t columns) const {
    std::vector<size_t> widths = this->widths(false);
    if (lengthOf(widths) > columns) {
        widths = this->widths(true);
    }
    if (!mColumns.empty() && mColumns.back().kind == Kind::Prose && lengthOf(widths) > columns) {
        size_t const others = lengthOf(widths) - widths.back();
        size_t const room = columns - std::min(columns, others);
        widths.back() = std::min(widths.back(), std::max(room, kMinProse));
    }
    auto const isKey = [](Column const& column) { return column.isKey; };
    auto const keys = static_cast<size_t>(std::count_if(mColumns.begin(), mColumns.end(), isKey));
    Part head{std::vector<size_t>(keys),
              {widths.begin(), widths.begin() + static_cast<std::ptrdiff_t>(keys)}};
    std::iota(head.columns.begin(), head.columns.end(), size_t{0});
    std::vector<Part> parts{head};
    for (size_t i = keys; i < mColumns.size();) {
        // Columns of one group are read together and so stay together.
        size_t const end = endOfGroup(i);
        size_t length = lengthOf(parts.back().widths);
        for (size_t each = i; each < end; ++each) {
            length += kGap + widths[each];
        }
        if (length > columns && parts.back().columns.size() > keys) {
            parts.push_back(head);
        }
        for (; i < end; ++i) {
            parts.back().columns.push_back(i);
            parts.back().widths.push_back(widths[i]);
        }
    }
    return parts;
}

std::string Table::groups(Part const& part, TextStyle const& style) const {
    std::string text;
    for (size_t i = 0; i < part.columns.size();) {
        size_t const first = part.columns[i];
        size_t const last = endOfGroup(first) - 1;
        size_t width = part.widths[i];
        while (part.columns[i++] != last) {
            width += kGap + part.widths[i];
        }
        text += text.empty() ? "" : std::string(kGap, ' ');
        text += padded(style.paint(mColumns[first].group, Tone::Heading), width, Kind::Number);
    }
    endLine(text);
    return text == "\n" ? "" : text;
}

std::string Table::titles(Part const& part, TextStyle const& style) const {
    std::vector<std::vector<std::string>> titles;
    size_t height = 1;
    for (size_t i = 0; i < part.columns.size(); ++i) {
        titles.push_back(linesOf(mColumns[part.columns[i]].title, part.widths[i]));
        height = std::max(height, titles.back().size());
    }
    std::string text = groups(part, style);
    for (size_t y = 0; y < height; ++y) {
        std::vector<std::string> cells(mColumns.size());
        for (size_t i = 0; i < part.columns.size(); ++i) {
            // Upon the rows, as what has one line stands beside the last line of the others.
            size_t const above = height - titles[i].size();
            if (y >= above) {
                cells[part.columns[i]] = style.paint(titles[i][y - above], Tone::Heading);
            }
        }
        text += line(part, cells);
    }
    return text;
}

std::string Table::line(Part const& part, std::span<std::string const> cells) const {
    std::string text;
    size_t length = 0;
    for (size_t i = 0; i < part.columns.size(); ++i) {
        Column const& column = mColumns[part.columns[i]];
        std::string const& cell = cells[part.columns[i]];
        if (column.kind == Kind::Prose) {
            // wrap() fills up to the indent, the gap included.
            size_t const indent = i == 0 ? 0 : length + kGap;
            return wrap(text, cell,
                        {.indent = indent, .columns = indent + part.widths[i], .cutsWords = true});
        }
        text += i == 0 ? "" : std::string(kGap, ' ');
        text += padded(cell, part.widths[i], column.kind);
        length += (i == 0 ? 0 : kGap) + part.widths[i];
    }
    endLine(text);
    return text;
}

std::string Table::text(TextStyle const& style) const {
    std::string text;
    std::vector<Part> const all = parts(style.columns);
    for (Part const& part : all) {
        text += text.empty() ? "" : "\n";
        text += titles(part, style);
        for (Row const& row : mRows) {
            text += line(part, row.cells);
            // Once, where the reader has seen all of the row.
            text += &part == &all.back() ? row.below : "";
        }
    }
    return text;
}

}  // namespace zebcam::tool::base
