#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <optional>
#include <ostream>
#include <span>
#include <string_view>

#include "base/Text.h"
#include "report/ComparisonNames.h"
#include "report/Reports.h"

namespace zebcam::tool::report {

namespace {

using compare::ComparisonRow;

std::string csvField(std::string_view text) {
    // Quoted only where it must be, so that simple tools can split the lines.
    if (text.find_first_of(",\"\r\n") == std::string_view::npos) {
        return std::string(text);
    }
    std::string out = "\"";
    for (char const c : text) {
        out += c == '"' ? "\"\"" : std::string(1, c);
    }
    return out + "\"";
}

// One cell, for CSV knows no lists.
std::string messageOf(ComparisonRow const& row) {
    std::string text;
    for (auto const* const texts : {&row.problems, &row.broken}) {
        for (std::string const& complaint : *texts) {
            text += text.empty() ? "" : "; ";
            text += complaint;
        }
    }
    if (!row.worse.empty()) {
        text += (text.empty() ? "" : "; ") + row.worse;
    }
    return text;
}

std::string parametersOf(ComparisonRow const& row) {
    std::string text;
    for (auto const& [name, value] : row.options.policyParameters) {
        text += fmt::format("{}{}={}", text.empty() ? "" : " ", name, value);
    }
    return text;
}

}  // namespace

void writeCsv(compare::Comparison const& comparison, std::ostream& out) {
    out << "recording,policy,policy_name,policy_options,offset_ms,frames_per_capture,"
           "history_frames,status,message";
    for (compare::ComparisonField const& field : compare::comparisonFields()) {
        out << ',' << field.name;
    }
    out << '\n';
    for (ComparisonRow const& row : comparison.rows) {
        std::optional<int64_t> const offsetMs = row.offsetMs();
        out << fmt::format("{},{},{},{},{},{},{},{},{}", csvField(row.recording),
                           csvField(row.options.policy.name()),
                           csvField(row.options.policy.ownName), csvField(parametersOf(row)),
                           offsetMs ? fmt::to_string(*offsetMs) : "", row.options.framesPerCapture,
                           row.options.history, row.status(), csvField(messageOf(row)));
        for (compare::ComparisonField const& field : compare::comparisonFields()) {
            out << ',' << (row.numbers ? compare::asText(field.value(*row.numbers)) : "");
        }
        out << '\n';
    }
}

namespace {

// What a table of a pull request has room for.
constexpr std::array kMarkdownFields = {"at_once",
                                        "waited",
                                        "timed_out",
                                        "flushed",
                                        "median_lag_ms",
                                        "p95_lag_ms",
                                        "p95_wait_ms",
                                        "p95_distance_ms",
                                        "settled_focus_percent",
                                        "settled_exposure_percent",
                                        "median_exposure_ms",
                                        "median_iso"};

std::string escaped(std::string_view text) {
    std::string out;
    for (char const c : base::printable(text)) {
        // Names have underlines, and a bar would end the cell.
        out += std::string_view("|_*`<[").find(c) != std::string_view::npos ? std::string("\\") + c
                                                                            : std::string(1, c);
    }
    return out;
}

void writeHead(std::span<std::string const> titles, size_t texts, std::ostream& out) {
    for (std::string const& title : titles) {
        out << "| " << escaped(title) << ' ';
    }
    out << "|\n";
    for (size_t i = 0; i < titles.size(); ++i) {
        out << (i < texts ? "|---" : "|---:");
    }
    out << "|\n";
}

void writeRows(std::span<ComparisonRow const> rows, ComparisonNames const& names,
               std::ostream& out) {
    std::vector<std::string> titles = {"", "setting"};
    titles.insert(titles.end(), kMarkdownFields.begin(), kMarkdownFields.end());
    writeHead(titles, 2, out);
    for (ComparisonRow const& row : rows) {
        out << (row.isGood() ? "| " : "| **" + std::string(row.status()) + "** ") << "| "
            << escaped(names.nameOf(row)) << ' ';
        for (char const* const field : kMarkdownFields) {
            out << "| " << shortText(row, compare::fieldOf(field)) << ' ';
        }
        out << "|\n";
    }
    out << '\n';
}

void writeRankings(compare::Comparison const& comparison, ComparisonNames const& names,
                   std::ostream& out) {
    if (comparison.rankings.empty()) {
        return;
    }
    out << "### Best first\n\n";
    writeHead(std::array<std::string, 2>{"field", "settings, with the ratio to the best"}, 2, out);
    for (compare::Ranking const& ranking : comparison.rankings) {
        out << "| " << escaped(ranking.field->name) << " | ";
        for (compare::Place const& place : ranking.places) {
            bool const isFirst = &place == &ranking.places.front();
            bool const isBest =
                compare::asNumber(place.value) == compare::asNumber(ranking.places.front().value);
            ComparisonRow const& row = comparison.totals.rows[place.setting];
            std::string const text =
                escaped(names.nameOf(row)) + ' ' + shortText(row, *ranking.field);
            out << (isFirst ? "" : ", ") << (isBest ? "**" + text + "**" : text)
                << ratioText(place);
        }
        out << " |\n";
    }
    out << '\n';
}

void writeSince(compare::Comparison const& comparison, ComparisonNames const& names,
                std::ostream& out) {
    if (!comparison.since) {
        return;
    }
    out << "### Since the baseline\n\n" << escaped(sinceSummary(*comparison.since)) << "\n\n";
    if (comparison.since->changes.empty()) {
        return;
    }
    writeHead(
        std::array<std::string, 7>{"", "recording", "setting", "field", "was", "is", "change"}, 4,
        out);
    for (compare::Change const& change : comparison.since->changes) {
        ComparisonRow const& row =
            (change.isOfTotal ? comparison.totals.rows : comparison.rows)[change.row];
        bool const isWorse = change.trend == compare::Change::Trend::Worse;
        out << fmt::format("| {0}{1}{0} | {2} | {3} | {4} | {5} | {6} | {7} |\n",
                           isWorse ? "**" : "", toString(change.trend),
                           change.isOfTotal ? "all" : escaped(row.recording),
                           escaped(names.nameOf(row)), escaped(change.field->name),
                           shortText(change.was), shortText(change.is), changeText(change));
    }
    out << '\n';
}

}  // namespace

void writeMarkdown(compare::Comparison const& comparison, std::ostream& out) {
    ComparisonNames const names(comparison.rows);
    compare::Totals const& totals = comparison.totals;
    size_t const recordings = totals.recordings + totals.leftOut;
    out << fmt::format("## zsl compare: {} of {}\n\n",
                       base::counted(totals.rows.size(), "setting", "settings"),
                       base::counted(recordings, "recording", "recordings"));
    out << (comparison.isGood() ? "Everything is in order.\n\n"
                                : "**Not everything is in order:**\n\n");
    std::string const complaints = comparisonComplaints(comparison);
    for (size_t begin = 0; begin < complaints.size();) {
        size_t const end = complaints.find('\n', begin);
        out << "- " << escaped(std::string_view(complaints).substr(begin, end - begin)) << '\n';
        begin = end + 1;
    }
    out << (complaints.empty() ? "" : "\n");
    for (auto const& [name, path] : names.libraries()) {
        out << fmt::format("- {}: {}\n", escaped(name), escaped(path));
    }
    out << (names.libraries().empty() ? "" : "\n");
    out << fmt::format("All settings: {}\n\n", escaped(names.shared()));
    if (recordings > 1) {
        out << fmt::format("### Total of {}\n\n",
                           base::counted(totals.recordings, "recording", "recordings"));
        writeRows(totals.rows, names, out);
    }
    writeRankings(comparison, names, out);
    writeSince(comparison, names, out);
    // Folded: of a large corpus only some will be looked at.
    bool const isFolded = recordings > 1;
    for (size_t begin = 0; begin < comparison.rows.size(); begin += totals.rows.size()) {
        std::span const rows(&comparison.rows[begin], totals.rows.size());
        std::string const name = escaped(rows.front().recording);
        out << (isFolded ? fmt::format("<details><summary>{}</summary>\n\n", name)
                         : fmt::format("### {}\n\n", name));
        writeRows(rows, names, out);
        out << (isFolded ? "</details>\n\n" : "");
    }
}

}  // namespace zebcam::tool::report
