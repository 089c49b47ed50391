#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "recording/Recording.h"

namespace zebcam::tool::recording {

/// Where a column stands in a line, and how its cells are to be read.
struct ColumnPlace {
    size_t cell = 0;
    std::string name;  ///< as the recording has it
    /// A time is in units of 10^exponent ns.
    int exponent = 0;
};

/// What a line of a recording holds.
struct RecordingLayout {
    size_t cells = 0;
    std::array<std::optional<ColumnPlace>, COLUMN_COUNT> places;
    std::vector<size_t> others;  ///< cells of columns that nobody knows
    std::vector<std::string> notes;
    bool knowsUnit = true;  ///< of the timestamps

    std::optional<ColumnPlace> const& place(Column column) const {
        return places[static_cast<size_t>(column)];
    }
};

/// `seconds` for units of 10^9 ns; an exponent that a layout has.
std::string_view unitName(int exponent);

/// Whether a line holds a number and no name of the timestamps, and so is no header.
bool isData(std::vector<std::string> const& cells);

/// Whether a header line that reads so would name the timestamps.
bool namesTimestamps(std::vector<std::string> const& header);

/**
 * The layout that the line `header` at `where` tells. Besides the documented names others that can
 * mean nothing else are taken; a single column can only be the timestamps, if `firstRow` (null:
 * there is none) holds a number. Throws RecordingError, with the likely cause, where no column has
 * the timestamps or several claim the same.
 */
RecordingLayout layoutOf(std::vector<std::string> const& header,
                         std::vector<std::string> const* firstRow, RecordingPlace const& where);

/// The layout of lines without a header, the first of which is `row`. Throws RecordingError where
/// it has more than one cell.
RecordingLayout layoutWithoutHeader(std::vector<std::string> const& row,
                                    RecordingPlace const& where);

/// Finds out the unit of timestamps that have none in their name from the first two of them. Throws
/// RecordingError where the interval between them does not tell it.
void settleUnit(RecordingLayout& layout, std::string const& first, std::string const& second,
                RecordingPlace const& where);

/// Throws RecordingError when `recording`, as read in that layout, has a rate that no sensor has:
/// mostly its timestamps are in another unit.
void requireSensorRate(Recording const& recording, RecordingLayout const& layout);

}  // namespace zebcam::tool::recording
