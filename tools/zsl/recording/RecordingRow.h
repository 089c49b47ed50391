#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "recording/Recording.h"
#include "recording/RecordingError.h"
#include "recording/RecordingHeader.h"

namespace zebcam::tool {

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

}  // namespace zebcam::tool
