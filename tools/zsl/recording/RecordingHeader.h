#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "recording/RecordingColumns.h"
#include "recording/RecordingError.h"

namespace zebcam::tool {

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

}  // namespace zebcam::tool
