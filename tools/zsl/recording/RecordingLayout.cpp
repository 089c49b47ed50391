#include "recording/RecordingLayout.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <string_view>
#include <utility>

#include "base/Text.h"
#include "recording/CsvLines.h"
#include "recording/RecordingColumns.h"

namespace zebcam::tool::recording {

namespace {

/// A unit of time, and all its names in headers; the first is the one to recommend.
struct TimeUnit {
    int exponent;  ///< it is 10^exponent ns
    std::string_view plural;
    std::array<std::string_view, 6> names;
};
constexpr std::array<TimeUnit, 4> kUnits = {{
    {0, "nanoseconds", {"nanosec", "ns", "nsec", "nanos", "nanosecond", "nanoseconds"}},
    {3, "microseconds", {"microsec", "us", "usec", "\xc2\xb5s", "microsecond", "microseconds"}},
    {6, "milliseconds", {"millisec", "ms", "msec", "millis", "millisecond", "milliseconds"}},
    {9, "seconds", {"sec", "s", "secs", "second", "seconds", "seconds"}},
}};

TimeUnit const* findUnit(std::string_view name) {
    auto const unit = std::ranges::find_if(kUnits, [name](TimeUnit const& candidate) {
        return std::ranges::find(candidate.names, name) != candidate.names.end();
    });
    return unit == kUnits.end() ? nullptr : &*unit;
}

/// What a sensor's interval can be: from 2000 frames/s to 1, of which a generated one may be a
/// little longer.
constexpr double kShortestNs = 5e5;
constexpr double kLongestNs = 1.11e9;

bool isInterval(double ns) {
    return ns >= kShortestNs && ns <= kLongestNs;
}

/// A column's name as loggers vary it: what it names, in lower case, and the unit behind it.
struct ColumnName {
    std::string stem;
    TimeUnit const* unit = nullptr;
};

ColumnName parseName(std::string_view header) {
    std::string name(header);
    for (char& c : name) {
        c = c == '_' || c == '\t' ? ' '
                                  : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    size_t end = name.size();
    size_t begin = std::string::npos;
    if (name.ends_with(']') || name.ends_with(')')) {
        begin = name.find_last_of("[(");
        --end;
    } else {
        begin = name.find_last_of(' ');
    }
    ColumnName result{name, nullptr};
    if (begin != std::string::npos) {
        result.unit = findUnit(std::string_view(name).substr(begin + 1, end - begin - 1));
        result.stem.resize(result.unit != nullptr ? begin : result.stem.size());
    }
    result.stem.erase(result.stem.find_last_not_of(BLANKS) + 1);
    return result;
}

/// Other names of columns, beyond letter case and unit.
constexpr std::pair<std::string_view, Column> kOtherStems[] = {
    {"frame timestamp", Column::Timestamp}, {"sensor timestamp", Column::Timestamp},
    {"timestamps", Column::Timestamp},      {"frame no", Column::FrameNo},
    {"frame number", Column::FrameNo},
};

constexpr std::string_view kFrameTimestamp = "Frame timestamp[nanosec]";

/// The column with exactly this documented name.
std::optional<Column> documentedColumn(std::string_view header) {
    auto const known = std::ranges::find(columns::TRAITS, header, &ColumnTraits::header);
    if (known != columns::TRAITS.end()) {
        return known->column;
    }
    return header == kFrameTimestamp ? std::optional(Column::Timestamp) : std::nullopt;
}

/// The column that a name means in another form.
std::optional<Column> meantColumn(ColumnName const& name) {
    auto const other =
        std::ranges::find(kOtherStems, name.stem, &std::pair<std::string_view, Column>::first);
    std::optional<Column> column;
    if (other != std::end(kOtherStems)) {
        column = other->second;
    }
    for (ColumnTraits const& traits : columns::TRAITS) {
        if (parseName(traits.header).stem == name.stem) {
            column = traits.column;
        }
    }
    // A time without a unit says little, but timestamps do by their intervals; what is no time has
    // no unit.
    bool const fits = column && (*column == Column::Timestamp ||
                                 traitsOf(*column).isTime == (name.unit != nullptr));
    return fits ? column : std::nullopt;
}

std::string likelyCause(std::vector<std::string> const& header) {
    for (std::string const& name : header) {
        if (parseName(name).stem.find("time") != std::string::npos) {
            return fmt::format(
                "; if {} has them, name it \"Timestamp[nanosec]\" (or microsec, "
                "millisec, sec)",
                base::quoteContent(name));
        }
    }
    size_t const separator = header[0].find_first_of("|: ");
    if (header.size() == 1 && separator != std::string::npos) {
        return fmt::format(
            "; the separator looks like \"{}\" and must be a comma, a semicolon or "
            "a tab",
            header[0][separator]);
    }
    return {};
}

/// Fills a layout from a header line, documented names first.
class HeaderReader {
public:
    HeaderReader(std::vector<std::string> const& header, RecordingPlace const& where)
        : mHeader(header), mWhere(where) {
        mLayout.cells = header.size();
    }

    RecordingLayout read(bool isList) && {
        std::vector<bool> isKnown(mHeader.size());
        for (size_t i = 0; i < mHeader.size(); ++i) {
            if (auto const column = documentedColumn(mHeader[i])) {
                put(*column, i, 0);
                isKnown[i] = true;
            }
        }
        auto const documented = mLayout.places;
        for (size_t i = 0; i < mHeader.size(); ++i) {
            ColumnName const name = parseName(mHeader[i]);
            auto const column = isKnown[i] ? std::nullopt : meantColumn(name);
            // Beside the documented name another one means something else.
            if (column && !documented[static_cast<size_t>(*column)]) {
                putVariant(*column, i, name.unit);
            } else if (!isKnown[i]) {
                mLayout.others.push_back(i);
            }
        }
        if (isList && !mLayout.place(Column::Timestamp) && mLayout.others.size() == 1) {
            mLayout.others.clear();
            putVariant(Column::Timestamp, 0, parseName(mHeader[0]).unit);
        }
        requireTimestamps();
        if (!mVariants.empty()) {
            mLayout.notes.push_back(
                fmt::format("other names of columns: {}", fmt::join(mVariants, ", ")));
        }
        return std::move(mLayout);
    }

private:
    void put(Column column, size_t cell, int exponent) {
        auto& place = mLayout.places[static_cast<size_t>(column)];
        if (place) {
            // Which of the two is meant cannot be told.
            throw RecordingError(
                {mWhere.path, mWhere.line, mHeader[cell]}, "one such column",
                fmt::format("two, as columns {} and {}", place->cell + 1, cell + 1));
        }
        place = {cell, mHeader[cell], exponent};
    }

    void putVariant(Column column, size_t cell, TimeUnit const* unit) {
        put(column, cell, unit != nullptr ? unit->exponent : 0);
        mLayout.knowsUnit = mLayout.knowsUnit && (column != Column::Timestamp || unit != nullptr);
        mVariants.push_back(fmt::format("{} for {}{}", base::quoteContent(mHeader[cell]),
                                        base::quoteContent(traitsOf(column).header),
                                        unit != nullptr && unit->exponent > 0
                                            ? fmt::format(" in {}", unit->plural)
                                            : std::string()));
    }

    void requireTimestamps() const {
        if (!mLayout.place(Column::Timestamp)) {
            throw RecordingError(mWhere,
                                 fmt::format("a column \"{}\" or \"{}\"",
                                             traitsOf(Column::Timestamp).header, kFrameTimestamp),
                                 fmt::format("neither in a line that begins with {}{}",
                                             base::quoteContent(mHeader[0]), likelyCause(mHeader)));
        }
    }

    std::vector<std::string> const& mHeader;
    RecordingPlace const& mWhere;
    RecordingLayout mLayout;
    std::vector<std::string> mVariants;
};

std::optional<double> numberIn(std::string const& cell) {
    double value = 0;
    auto const [rest, error] = std::from_chars(cell.data(), cell.data() + cell.size(), value);
    bool const isNumber = rest == cell.data() + cell.size() && error == std::errc();
    return isNumber && std::isfinite(value) ? std::optional(value) : std::nullopt;
}

/// The units in which an interval of that length would be a sensor's.
std::vector<TimeUnit const*> fittingUnits(double interval) {
    std::vector<TimeUnit const*> units;
    for (TimeUnit const& unit : kUnits) {
        if (isInterval(interval * std::pow(10.0, unit.exponent))) {
            units.push_back(&unit);
        }
    }
    return units;
}

}  // namespace

std::string_view unitName(int exponent) {
    return std::ranges::find(kUnits, exponent, &TimeUnit::exponent)->plural;
}

bool isData(std::vector<std::string> const& cells) {
    return std::ranges::any_of(
               cells, [](std::string const& cell) { return numberIn(cell).has_value(); }) &&
           !namesTimestamps(cells);
}

bool namesTimestamps(std::vector<std::string> const& header) {
    return std::ranges::any_of(header, [](std::string const& name) {
        return documentedColumn(name) == Column::Timestamp ||
               meantColumn(parseName(name)) == Column::Timestamp;
    });
}

RecordingLayout layoutOf(std::vector<std::string> const& header,
                         std::vector<std::string> const* firstRow, RecordingPlace const& where) {
    bool const isList =
        header.size() == 1 && firstRow != nullptr && firstRow->size() == 1 && isData(*firstRow);
    return HeaderReader(header, where).read(isList);
}

RecordingLayout layoutWithoutHeader(std::vector<std::string> const& row,
                                    RecordingPlace const& where) {
    if (row.size() > 1) {
        throw RecordingError(
            where, "a header line",
            fmt::format("a line of numbers; put the columns' names before it, as in "
                        "\"{},{}\"",
                        traitsOf(Column::Timestamp).header, traitsOf(Column::FrameNo).header));
    }
    RecordingLayout layout;
    layout.cells = 1;
    layout.places[static_cast<size_t>(Column::Timestamp)] = {
        0, std::string(traitsOf(Column::Timestamp).header), 0};
    layout.notes.emplace_back("no header: every line is read as a timestamp");
    layout.knowsUnit = false;
    return layout;
}

void settleUnit(RecordingLayout& layout, std::string const& first, std::string const& second,
                RecordingPlace const& where) {
    ColumnPlace& place = *layout.places[static_cast<size_t>(Column::Timestamp)];
    auto const from = numberIn(first);
    auto const to = numberIn(second);
    if (!from || !to || *to <= *from) {
        return;  // whoever reads them says what is wrong
    }
    auto const units = fittingUnits(*to - *from);
    if (units.size() != 1) {
        throw RecordingError({where.path, where.line, place.name},
                             "a unit in the column's name, as in \"Timestamp[nanosec]\" (or "
                             "microsec, millisec, sec)",
                             fmt::format("an interval of {} that {}", *to - *from,
                                         units.empty() ? "fits none" : "fits several"));
    }
    place.exponent = units.front()->exponent;
    layout.notes.push_back(fmt::format("timestamps are read as {}, which their interval fits alone",
                                       units.front()->plural));
}

void requireSensorRate(Recording const& recording, RecordingLayout const& layout) {
    auto const intervalNs = static_cast<double>(recording.medianIntervalNs);
    if (isInterval(intervalNs)) {
        return;
    }
    int const exponent = layout.place(Column::Timestamp)->exponent;
    auto const units = fittingUnits(intervalNs / std::pow(10.0, exponent));
    std::string const hint =
        units.size() == 1
            ? fmt::format("the timestamps look like {}: name the column \"Timestamp[{}]\", or",
                          units.front()->plural, units.front()->names[0])
            : "if that is right,";
    throw RecordingError(
        {recording.path, 0, {}}, "1 to 2000 frames/s",
        fmt::format("{:.6g}; {} give --any-rate", 1e9 / std::max(intervalNs, 1.0), hint));
}

}  // namespace zebcam::tool::recording
