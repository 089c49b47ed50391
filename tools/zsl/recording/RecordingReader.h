#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "recording/Recording.h"
#include "recording/RecordingColumns.h"
#include "recording/RecordingError.h"

namespace zebcam::tool::recording {

/// Which columns a recording has and where.
class RecordingHeader {
public:
    /// `cells` is the header line at `place`. Throws RecordingError for a column that comes twice
    /// and unless there is just one column of timestamps.
    RecordingHeader(std::vector<std::string> const& cells, RecordingPlace const& place);

    size_t columnCount() const { return mColumnCount; }
    bool has(Column column) const { return index(column).has_value(); }
    /// Position in a line, empty when the recording lacks the column.
    std::optional<size_t> index(Column column) const { return mIndex[static_cast<size_t>(column)]; }

    /// Names for the user, in quotes: of columns that nobody reads, and of those that have defaults
    /// because the recording lacks them.
    std::vector<std::string> const& unknown() const { return mUnknown; }
    std::vector<std::string> const& missing() const { return mMissing; }

private:
    void add(std::string const& name, size_t index, RecordingPlace place);
    void checkTimestamps(std::vector<std::string> const& cells, RecordingPlace const& place) const;

    size_t mColumnCount;
    std::array<std::optional<size_t>, kColumnCount> mIndex;
    std::vector<std::string> mUnknown;
    std::vector<std::string> mMissing;
};

/// Stands in a frame's duration and readout until the whole recording is known.
constexpr int64_t kUnknownTime = -1;

/// One line of a recording below the header.
class RecordingRow {
public:
    /// Borrows `header` and `cells`. Throws RecordingError when the number of cells differs.
    RecordingRow(RecordingHeader const& header, std::vector<std::string> const& cells,
                 RecordingPlace place);

    /// The frame, judged against the one before (null for the first row). Throws RecordingError.
    SensorFrame frame(SensorFrame const* previous) const;

private:
    void readIntegers(SensorFrame& frame) const;
    void readFocusDistance(SensorFrame& frame) const;
    void checkOrder(SensorFrame const& frame, SensorFrame const& previous) const;
    [[noreturn]] void fail(Column column, std::string_view expected, std::string_view found) const;

    RecordingHeader const& mHeader;
    std::vector<std::string> const& mCells;
    RecordingPlace mPlace;
};

/// Reads a recording, a CSV file with a header line and a line for each sensor frame
/// (docs/recordings.md describes the columns and their defaults). The path `-` is standard input.
/// Throws RecordingError for whatever cannot be read in full: nothing is half-read.
Recording readRecording(std::string const& path);

/// The same from a stream; `name` stands for the path in errors and in the result.
Recording readRecording(std::istream& in, std::string const& name);

}  // namespace zebcam::tool::recording
