#include "recording/RecordingHeader.h"

#include <fmt/format.h>

#include <algorithm>

namespace zebcam::tool {

RecordingHeader::RecordingHeader(std::vector<std::string> const& cells, RecordingPlace const& place)
    : mColumnCount(cells.size()) {
    for (size_t i = 0; i < cells.size(); ++i) {
        add(cells[i], i, place);
    }
    checkTimestamps(cells, place);
    for (size_t i = 0; i < kWrittenColumnCount; ++i) {
        auto const column = static_cast<Column>(i);
        if (!mIndex[i] && column != Column::Timestamp) {
            mMissing.push_back(quoteContent(columnName(column)));
        }
    }
}

void RecordingHeader::add(std::string const& name, size_t index, RecordingPlace place) {
    auto const known = std::find(kColumnNames.begin(), kColumnNames.end(), name);
    if (known == kColumnNames.end()) {
        mUnknown.push_back(quoteContent(name));
        return;
    }
    auto& slot = mIndex[static_cast<size_t>(known - kColumnNames.begin())];
    if (slot) {
        place.column = name;
        throw RecordingError(place, "one column of that name",
                             fmt::format("two, as columns {} and {}", *slot + 1, index + 1));
    }
    slot = index;
}

void RecordingHeader::checkTimestamps(std::vector<std::string> const& cells,
                                      RecordingPlace const& place) const {
    bool const first = has(Column::Timestamp);
    bool const second = has(Column::FrameTimestamp);
    if (first == second) {
        std::string const expected =
            fmt::format("a column \"{}\" or \"{}\"", columnName(Column::Timestamp),
                        columnName(Column::FrameTimestamp));
        std::string const found =
            first ? "both" : "neither in a line that begins with " + quoteContent(cells.front());
        throw RecordingError(place, expected, found);
    }
}

}  // namespace zebcam::tool
