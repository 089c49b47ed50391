#include "report/Reports.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <optional>
#include <ostream>
#include <span>
#include <string_view>

#include "base/Text.h"
#include "compare/ComparisonFields.h"

namespace zebcam::tool::report {

namespace {

constexpr size_t kColumns = 120;  // policy and numbers alone need 97
constexpr char kNothing[] = "-";

/// A setting that may differ between the rows.
struct Setting {
    char const* title;
    char const* unit;
    size_t width;
    std::string (*value)(compare::ComparisonRow const& row);
};

std::string offsetOf(compare::ComparisonRow const& row) {
    std::optional<int64_t> const offset = row.offsetMs();
    return offset ? fmt::to_string(*offset) : kNothing;
}

Setting const kSettings[] = {
    {"offset", " ms", 7, offsetOf},
    {"frames", "", 6,
     [](compare::ComparisonRow const& row) {
         return fmt::to_string(row.options.framesPerCapture);
     }},
    {"history", "", 7,
     [](compare::ComparisonRow const& row) { return fmt::to_string(row.options.history); }},
};

/// Plug-ins are numbered, because paths are long and often differ in the middle only.
std::map<std::string, std::string> policyLabels(std::vector<compare::ComparisonRow> const& rows) {
    std::map<std::string, std::string> labels;
    size_t plugins = 0;
    for (compare::ComparisonRow const& row : rows) {
        pipeline::PolicyOption const& policy = row.options.policy;
        if (labels.count(policy.name()) == 0) {
            labels[policy.name()] = policy.kind == pipeline::PolicyKind::Plugin
                                        ? fmt::format("plug-in {}", ++plugins)
                                        : policy.name();
        }
    }
    return labels;
}

std::string legendOf(std::vector<compare::ComparisonRow> const& rows,
                     std::map<std::string, std::string> const& labels) {
    std::map<size_t, std::string> lines;
    for (compare::ComparisonRow const& row : rows) {
        pipeline::PolicyOption const& policy = row.options.policy;
        if (policy.kind == pipeline::PolicyKind::Plugin) {
            // By number, for names sort otherwise.
            std::string const& label = labels.at(policy.name());
            lines[std::stoul(label.substr(label.rfind(' ')))] =
                fmt::format("{:<11}  {}\n", label, base::printable(policy.name()));
        }
    }
    std::string legend;
    for (auto const& [number, line] : lines) {
        legend += line;
    }
    return legend.empty() ? "" : legend + "\n";
}

std::string ms(bool isThere, int64_t ns) {
    constexpr int64_t kNsPerTenthMs = 100'000;
    if (!isThere) {
        return kNothing;
    }
    // Rounded half away from zero, as all times are.
    int64_t const tenths = (ns + (ns < 0 ? -1 : 1) * kNsPerTenthMs / 2) / kNsPerTenthMs;
    return fmt::format("{}{}.{}", tenths < 0 ? "-" : "", std::abs(tenths) / 10,
                       std::abs(tenths) % 10);
}

constexpr char kNumbers[] = "{:>6}{:>7}{:>6}{:>6}{:>9}{:>9}{:>9}{:>9}{:>8}{:>8}{:>8}";

std::string numbersText(compare::RunNumbers const& numbers) {
    run::ReplaySummary const& summary = numbers.summary;
    base::Spread const& lag = summary.lag;
    base::Spread const& wait = numbers.summary.wait;
    bool const hasLag = lag.count > 0;
    bool const hasWait = wait.count > 0;
    return fmt::format(kNumbers, summary.atOnce, summary.waited, summary.timedOut, summary.flushed,
                       ms(hasLag, lag.min), ms(hasLag, lag.median), ms(hasLag, lag.p95),
                       ms(hasLag, lag.max), ms(hasWait, wait.p95), ms(hasWait, wait.max),
                       ms(numbers.ledger.handedOut > 0, numbers.longestHeldNs));
}

std::string trimmedLine(std::string line) {
    line.erase(line.find_last_not_of(' ') + 1);
    return line + "\n";
}

/// `, offset 50 ms, frames 1`; without what is not known.
std::string settingsText(compare::ComparisonRow const& row,
                         std::vector<Setting const*> const& settings) {
    std::string text;
    for (Setting const* const setting : settings) {
        if (std::string const value = setting->value(row); value != kNothing) {
            text += fmt::format(", {} {}{}", setting->title, value, setting->unit);
        }
    }
    return text;
}

/// Lays out the rows with the settings that differ as columns.
class Table {
public:
    explicit Table(std::vector<compare::ComparisonRow> const& rows)
        : mRows(rows), mLabels(policyLabels(rows)) {
        // What all rows share is told once, in the heading: the line has no room for it.
        for (Setting const& setting : kSettings) {
            bool const differs = std::any_of(rows.begin(), rows.end(), [&](auto const& row) {
                return setting.value(row) != setting.value(rows.front());
            });
            (differs ? mColumns : mShared).push_back(&setting);
        }
    }

    std::string text() const {
        std::string out = legendOf(mRows, mLabels);
        std::string const* recording = nullptr;
        for (compare::ComparisonRow const& row : mRows) {
            if (recording == nullptr || *recording != row.recording) {
                out += recording != nullptr ? "\n" : "";
                out += heading(row);
                recording = &row.recording;
            }
            out += line(row);
        }
        return out;
    }

private:
    std::string heading(compare::ComparisonRow const& first) const {
        std::string above = fmt::format("  {:<10}", "");
        std::string titles = fmt::format("  {:<10}", "policy");
        for (Setting const* const setting : mColumns) {
            above += fmt::format(" {:{}}", "", setting->width);
            titles += fmt::format(" {:>{}}", setting->title, setting->width);
        }
        above +=
            fmt::format("{:>25}{:>36}{:>16}{:>8}", "served", "lag (ms)", "waiting (ms)", "held");
        titles += fmt::format(kNumbers, "once", "waited", "late", "flush", "min", "median", "95 %",
                              "max", "95 %", "max", "max");
        return fmt::format("Recording {}{}\n", base::printable(first.recording),
                           settingsText(first, mShared)) +
               trimmedLine(above) + trimmedLine(titles);
    }

    std::string line(compare::ComparisonRow const& row) const {
        std::string out = fmt::format("{} {:<10}", row.isGood() ? " " : "!",
                                      mLabels.at(row.options.policy.name()));
        for (Setting const* const setting : mColumns) {
            out += fmt::format(" {:>{}}", setting->value(row), setting->width);
        }
        // The reason takes the numbers' place; standard error has it in full.
        if (!row.numbers) {
            out += "  failed: " + base::printable(row.problems.front());
            return (out.size() > kColumns ? out.substr(0, kColumns - 3) + "..." : out) + "\n";
        }
        out += numbersText(*row.numbers) + "\n";
        compare::RefusalCounts const& refusals = row.numbers->refusals;
        if (refusals.total() > 0) {
            out += base::wrap("", fmt::format("refused {}: {}", refusals.total(), refusals.text()),
                              {.indent = 4, .columns = kColumns, .breakAfter = ", "});
        }
        return out;
    }

    std::vector<compare::ComparisonRow> const& mRows;
    std::map<std::string, std::string> const mLabels;
    std::vector<Setting const*> mColumns;
    std::vector<Setting const*> mShared;
};

/// Whether all rows of the recording that begins at `rows` failed for the same reason.
bool failAlike(std::span<compare::ComparisonRow const> rows) {
    return std::all_of(rows.begin(), rows.end(), [&](compare::ComparisonRow const& row) {
        return !row.numbers && row.problems == rows.front().problems;
    });
}

}  // namespace

std::string comparisonTable(std::vector<compare::ComparisonRow> const& rows,
                            base::TextStyle const& /*style*/) {
    return Table(rows).text();
}

std::string comparisonComplaints(std::vector<compare::ComparisonRow> const& rows) {
    std::string text;
    std::vector<Setting const*> settings;
    for (Setting const& setting : kSettings) {
        settings.push_back(&setting);
    }
    for (size_t begin = 0, end = 0; begin < rows.size(); begin = end) {
        while (end < rows.size() && rows[end].recording == rows[begin].recording) {
            ++end;
        }
        std::span const runs(&rows[begin], end - begin);
        // A file that cannot be read fails under every setting, and needs to be told of once.
        bool const isOne = failAlike(runs);
        for (compare::ComparisonRow const& row : isOne ? runs.first(1) : runs) {
            std::string const where =
                isOne ? ""
                      : fmt::format(" (policy {}{})", base::printable(row.options.policy.name()),
                                    settingsText(row, settings));
            for (auto const* const texts : {&row.problems, &row.broken}) {
                for (std::string const& complaint : *texts) {
                    // What cannot be read names its place in the file.
                    bool const isPlaced = isOne && complaint.starts_with(row.recording);
                    text += isPlaced ? base::printable(complaint) + "\n"
                                     : fmt::format("{}{}: {}\n", base::printable(row.recording),
                                                   where, base::printable(complaint));
                }
            }
        }
    }
    return text;
}

namespace {

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
std::string messageOf(compare::ComparisonRow const& row) {
    std::string text;
    for (auto const* const texts : {&row.problems, &row.broken}) {
        for (std::string const& complaint : *texts) {
            text += text.empty() ? "" : "; ";
            text += complaint;
        }
    }
    return text;
}

}  // namespace

void writeCsv(std::vector<compare::ComparisonRow> const& rows, std::ostream& out) {
    out << "recording,policy,offset_ms,frames_per_capture,history_frames,status,message";
    for (compare::ComparisonField const& field : compare::comparisonFields()) {
        out << ',' << field.name;
    }
    out << '\n';
    for (compare::ComparisonRow const& row : rows) {
        std::optional<int64_t> const offsetMs = row.offsetMs();
        out << fmt::format("{},{},{},{},{},{},{}", csvField(row.recording),
                           csvField(row.options.policy.name()),
                           offsetMs ? fmt::to_string(*offsetMs) : "", row.options.framesPerCapture,
                           row.options.history, row.status(), csvField(messageOf(row)));
        for (compare::ComparisonField const& field : compare::comparisonFields()) {
            out << ',' << (row.numbers ? compare::asText(field.value(*row.numbers)) : "");
        }
        out << '\n';
    }
}

}  // namespace zebcam::tool::report
