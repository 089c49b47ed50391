#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <span>
#include <string_view>

#include "base/Table.h"
#include "base/Text.h"
#include "report/ComparisonNames.h"
#include "report/Reports.h"
#include "report/RunText.h"

namespace zebcam::tool::report {

namespace {

using base::Table;
using base::Tone;
using compare::Change;
using compare::ComparisonRow;

constexpr char kNothing[] = "-";
constexpr size_t kMostChanges = 40;  // more is for a program to read

/// A field of a comparison as a column of a table.
struct FieldColumn {
    char const* group;
    char const* title;
    char const* field;
};

constexpr FieldColumn kColumns[] = {{"served", "once", "at_once"},
                                    {"served", "waited", "waited"},
                                    {"served", "late", "timed_out"},
                                    {"served", "flush", "flushed"},
                                    {"lag (ms)", "median", "median_lag_ms"},
                                    {"lag (ms)", "95 %", "p95_lag_ms"},
                                    {"lag (ms)", "max", "max_lag_ms"},
                                    {"waiting (ms)", "95 %", "p95_wait_ms"},
                                    {"waiting (ms)", "max", "max_wait_ms"},
                                    {"settled (%)", "focus", "settled_focus_percent"},
                                    {"settled (%)", "AE", "settled_exposure_percent"}};
/// Where there are pictures.
constexpr FieldColumn kPictureColumns[] = {
    {"sharpness (of best)", "median", "median_sharpness_share"},
    {"sharpness (of best)", "5 %", "p5_sharpness_share"},
    {"sharpness (of best)", "<half%", "below_half_percent"}};

/// Rows of one recording, or of all, with the settings that differ.
class RowTable {
public:
    RowTable(ComparisonNames const& names, base::TextStyle const& style)
        : mNames(names), mStyle(style) {}

    std::string text(std::span<ComparisonRow const> rows) const {
        std::vector<FieldColumn> const fields = fieldsOf(rows);
        Table table(columns(fields));
        for (ComparisonRow const& row : rows) {
            table.addRow(cells(row, fields));
            table.addBelow(below(row));
        }
        return table.text(mStyle);
    }

private:
    static std::vector<FieldColumn> fieldsOf(std::span<ComparisonRow const> rows) {
        std::vector<FieldColumn> fields(std::begin(kColumns), std::end(kColumns));
        if (std::ranges::any_of(rows, [](ComparisonRow const& row) {
                return row.numbers && row.numbers->summary.pictures.count > 0;
            })) {
            fields.insert(fields.end(), std::begin(kPictureColumns), std::end(kPictureColumns));
        }
        return fields;
    }

    std::vector<Table::Column> columns(std::vector<FieldColumn> const& fields) const {
        std::vector<Table::Column> columns = {
            {.title = "  policy", .kind = Table::Kind::Text, .isKey = true}};
        for (ComparisonNames::Setting const& setting : mNames.differing()) {
            columns.push_back({.title = setting.title, .isKey = true});
        }
        for (FieldColumn const& column : fields) {
            columns.push_back({.title = column.title, .group = column.group});
        }
        return columns;
    }

    std::vector<std::string> cells(ComparisonRow const& row,
                                   std::vector<FieldColumn> const& fields) const {
        bool const isGood = row.isGood();
        std::vector<std::string> cells = {mStyle.paint(
            (isGood ? "  " : "! ") + mNames.policyOf(row), isGood ? Tone::Plain : Tone::Bad)};
        for (ComparisonNames::Setting const& setting : mNames.differing()) {
            std::string const value = setting.value(row);
            cells.push_back(value.empty() ? kNothing : value);
        }
        for (FieldColumn const& column : fields) {
            compare::ComparisonField const& field = compare::fieldOf(column.field);
            bool const isBroken = std::ranges::any_of(row.broken, [&](std::string const& text) {
                return text.starts_with(field.name + ' ');
            });
            cells.push_back(
                mStyle.paint(shortText(row, field), isBroken ? Tone::Bad : Tone::Plain));
        }
        return cells;
    }

    std::string below(ComparisonRow const& row) const {
        if (!row.numbers) {
            // Of a total nothing else is known; standard error has what failed in full.
            return row.problems.empty()
                       ? ""
                       : base::wrap("", "failed: " + base::printable(row.problems.front()),
                                    {.indent = 4, .columns = mStyle.columns, .cutsWords = true});
        }
        compare::RefusalCounts const& refusals = row.numbers->refusals;
        return refusals.total() == 0
                   ? ""
                   : mStyle.paint(
                         base::wrap("",
                                    fmt::format("refused {}: {}", refusals.total(),
                                                refusals.text(row.ownRefusals)),
                                    {.indent = 4, .columns = mStyle.columns, .breakAfter = ", "}),
                         Tone::Faint);
    }

    ComparisonNames const& mNames;
    base::TextStyle const& mStyle;
};

std::string rankingText(compare::Comparison const& comparison, ComparisonNames const& names,
                        base::TextStyle const& style) {
    if (comparison.rankings.empty()) {
        return "";
    }
    Table table({{.title = "field", .kind = Table::Kind::Text, .isKey = true},
                 {.title = "best", .kind = Table::Kind::Text},
                 {.title = "then, with the ratio to the best", .kind = Table::Kind::Prose}});
    for (compare::Ranking const& ranking : comparison.rankings) {
        std::string best;
        std::string others;
        for (compare::Place const& place : ranking.places) {
            ComparisonRow const& row = comparison.totals.rows[place.setting];
            bool const isBest =
                compare::asNumber(place.value) == compare::asNumber(ranking.places.front().value);
            std::string& list = isBest ? best : others;
            list += list.empty() ? "" : ", ";
            list += isBest ? names.nameOf(row)
                           : fmt::format("{} {}{}", names.nameOf(row),
                                         shortText(row, *ranking.field), ratioText(place));
        }
        ComparisonRow const& first = comparison.totals.rows[ranking.places.front().setting];
        table.addRow({ranking.field->name,
                      style.paint(best + " " + shortText(first, *ranking.field), Tone::Good),
                      others});
    }
    return "\n" + table.text(style);
}

std::string sinceText(compare::Comparison const& comparison, ComparisonNames const& names,
                      base::TextStyle const& style) {
    if (!comparison.since) {
        return "";
    }
    compare::Since const& since = *comparison.since;
    std::string text =
        "\n" + base::wrap("", "Since " + sinceSummary(since), {.columns = style.columns});
    Table table({{.title = "  recording", .kind = Table::Kind::Text, .isKey = true},
                 {.title = "setting", .kind = Table::Kind::Text, .isKey = true},
                 {.title = "field", .kind = Table::Kind::Text},
                 {.title = "was"},
                 {.title = "is"},
                 {.title = "change"},
                 {.title = "", .kind = Table::Kind::Text}});
    size_t shown = 0;
    // What got worse first, for that is what the table is read for.
    for (Change::Trend const trend : {Change::Trend::Worse, Change::Trend::Tolerated,
                                      Change::Trend::Better, Change::Trend::Other}) {
        for (Change const& change : since.changes) {
            if (change.trend != trend || shown++ >= kMostChanges) {
                continue;
            }
            ComparisonRow const& row =
                (change.isOfTotal ? comparison.totals.rows : comparison.rows)[change.row];
            bool const isWorse = trend == Change::Trend::Worse;
            Tone const tone = isWorse                          ? Tone::Bad
                              : trend == Change::Trend::Better ? Tone::Good
                                                               : Tone::Plain;
            table.addRow({(isWorse ? "! " : "  ") +
                              (change.isOfTotal ? "all" : base::printable(row.recording)),
                          names.nameOf(row), change.field->name, shortText(change.was),
                          shortText(change.is), changeText(change),
                          style.paint(toString(trend), tone)});
        }
    }
    if (shown == 0) {
        return text;
    }
    std::string const more =
        shown > kMostChanges
            ? fmt::format("  and {} more, which --json tells\n", shown - kMostChanges)
            : "";
    return text + table.text(style) + more;
}

/// Whether all rows of the recording that begins at `rows` failed for the same reason.
bool failAlike(std::span<ComparisonRow const> rows) {
    return std::all_of(rows.begin(), rows.end(), [&](ComparisonRow const& row) {
        return !row.numbers && row.problems == rows.front().problems;
    });
}

/// The rows of each recording.
std::vector<std::span<ComparisonRow const>> byRecording(std::vector<ComparisonRow> const& rows,
                                                        size_t settings) {
    std::vector<std::span<ComparisonRow const>> groups;
    for (size_t begin = 0; begin < rows.size(); begin += settings) {
        groups.emplace_back(&rows[begin], settings);
    }
    return groups;
}

}  // namespace

std::string comparisonTable(compare::Comparison const& comparison, base::TextStyle const& style) {
    ComparisonNames const names(comparison.rows);
    std::string text;
    for (auto const& [name, path] : names.libraries()) {
        text += fmt::format("{}  {}\n", name, path);
    }
    text += text.empty() ? "" : "\n";
    RowTable const table(names, style);
    std::string const shared = names.shared().empty() ? "" : ", " + names.shared();
    for (auto const& rows : byRecording(comparison.rows, comparison.totals.rows.size())) {
        text += fmt::format("Recording {}{}\n", base::printable(rows.front().recording), shared);
        auto const seen = std::ranges::find_if(
            rows, [](ComparisonRow const& row) { return row.video.has_value(); });
        if (seen != rows.end()) {
            text += fmt::format("Video {}: {}\n", base::printable(seen->video->path),
                                videoText(*seen->video));
        }
        text += table.text(rows) + "\n";
    }
    compare::Totals const& totals = comparison.totals;
    size_t const recordings = totals.recordings + totals.leftOut;
    if (recordings > 1) {
        text += fmt::format("Total of {}{}{}\n",
                            base::counted(totals.recordings, "recording", "recordings"), shared,
                            totals.leftOut > 0
                                ? fmt::format(", without {} in which a run failed", totals.leftOut)
                                : "") +
                table.text(totals.rows);
    } else {
        text.pop_back();
    }
    return text + rankingText(comparison, names, style) + sinceText(comparison, names, style);
}

std::string comparisonComplaints(compare::Comparison const& comparison) {
    std::string text;
    ComparisonNames const names(comparison.rows);
    auto const add = [&](std::string const& recording, std::string const& where,
                         std::string const& complaint) {
        // What cannot be read names its place in the file.
        bool const isPlaced = where.empty() && complaint.starts_with(recording);
        text += isPlaced ? base::printable(complaint) + "\n"
                         : fmt::format("{}{}: {}\n", base::printable(recording), where,
                                       base::printable(complaint));
    };
    auto const addRow = [&](ComparisonRow const& row, std::string const& recording, bool isOne) {
        std::string const where = isOne ? "" : fmt::format(" ({})", names.fullNameOf(row));
        for (auto const* const texts : {&row.problems, &row.broken}) {
            for (std::string const& complaint : *texts) {
                add(recording, where, complaint);
            }
        }
        if (!row.worse.empty()) {
            add(recording, where, row.worse);
        }
    };
    for (auto const& runs : byRecording(comparison.rows, comparison.totals.rows.size())) {
        // A file that cannot be read fails under every setting, and needs to be told of once.
        bool const isOne = failAlike(runs);
        for (ComparisonRow const& row : isOne ? runs.first(1) : runs) {
            addRow(row, row.recording, isOne);
        }
    }
    for (ComparisonRow const& total : comparison.totals.rows) {
        addRow(total, "all recordings", false);
    }
    if (comparison.since && comparison.since->matched == 0) {
        text += fmt::format(
            "--baseline {}: none of its runs has recording and settings of one "
            "of these\n",
            base::printable(comparison.since->path));
    }
    return text;
}

}  // namespace zebcam::tool::report
