#include <recorder/RecordFormat.h>

#include <algorithm>
#include <charconv>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "base/AtomicFile.h"
#include "base/InputFile.h"
#include "recording/Recording.h"
#include "recording/RecordingColumns.h"

namespace zebcam::tool::recording {

namespace record = NSCam::v3::pipeline::model::record;

namespace {

/// Appends the shortest text of `value` that reads back as it is.
template <typename Number>
void append(std::string& line, std::optional<Number> value) {
    if (value) {
        char digits[32];  // enough for any 64-bit integer or float
        auto const [end, error] = std::to_chars(std::begin(digits), std::end(digits), *value);
        line.append(digits, end);
    }
}

/// A name may hold what else would end its cell.
std::string quotedCell(std::string_view name) {
    std::string cell = "\"";
    for (char const c : name) {
        cell.append(c == '"' ? 2 : 1, c);
    }
    return cell + '"';
}

}  // namespace

// Rows are found by their places: one that was forgotten would be that of another column.
static_assert([] {
    for (size_t i = 0; i < COLUMN_COUNT; ++i) {
        if (columns::TRAITS[i].column != static_cast<Column>(i)) {
            return false;
        }
    }
    return true;
}());

std::string_view headerOf(Column column) {
    return traitsOf(column).header;
}

std::string_view wordOf(Column column) {
    return traitsOf(column).word;
}

Recording readRecording(std::string const& path, InputOptions const& options) {
    base::InputFile file(path);
    return readRecording(file, options);
}

Recording readRecording(base::InputFile& file, InputOptions const& options) {
    if (record::hasMagic(file.start())) {
        throw RecordingError({file.name(), 0, {}}, "a CSV file",
                             "a recording of a device, which zsl replay takes");
    }
    return readRecording(file.stream(), file.name(), options);
}

void writeRecording(Recording const& recording, std::ostream& out) {
    std::vector<ColumnTraits const*> columns;
    std::string line;
    for (ColumnTraits const& traits : columns::TRAITS) {
        bool const isThere =
            traits.column != Column::VideoFrame
                ? !recording.lacks(traits.column)
                : std::ranges::any_of(recording.frames, [](SensorFrame const& frame) {
                      return frame.videoFrame.has_value();
                  });
        // The timestamps always are there, so that no line is empty.
        if (isThere) {
            line.append(columns.empty() ? "" : ",").append(traits.header);
            columns.push_back(&traits);
        }
    }
    for (DataColumn const& column : recording.dataColumns) {
        line.append(",").append(quotedCell(column.name));
    }
    out << line << '\n';
    for (SensorFrame const& frame : recording.frames) {
        line.clear();
        for (ColumnTraits const* const traits : columns) {
            line.append(traits == columns.front() ? "" : ",");
            if (traits->load != nullptr) {
                append(line, traits->load(frame));
            } else {
                // The only column that is no whole number.
                append(line, frame.focusDistance);
            }
        }
        for (DataColumn const& column : recording.dataColumns) {
            line.append(",");
            auto const data = std::ranges::find(frame.data, column.tag, &DataValue::tag);
            if (data != frame.data.end()) {
                std::visit([&line](auto value) { append(line, std::optional(value)); },
                           data->value);
            }
        }
        out << line << '\n';
    }
}

void writeRecording(Recording const& recording, std::string const& path) {
    base::AtomicFile file(path);
    writeRecording(recording, file.stream());
    file.commit();
}

}  // namespace zebcam::tool::recording
