#include "recording/Recording.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <limits>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "base/AtomicFile.h"
#include "base/Text.h"
#include "recording/CsvLines.h"

namespace zebcam::tool::recording {

namespace {

/// Another name of the timestamps, which is read but not written.
constexpr std::string_view kFrameTimestamp = "Frame timestamp[nanosec]";

/// What is known of a column of whole numbers. The focus distance is none: it has a name only.
struct ColumnTraits {
    Column column;
    std::string_view name;  ///< of common Android capture loggers, where they have it
    std::string_view word;  ///< for programs
    int64_t min = 0;
    int64_t max = 0;
    /// An empty cell says that the frame's result had no such value, or, of a time, that it is to
    /// be worked out.
    bool mayBeEmpty = true;
    void (*store)(SensorFrame& frame, int64_t value) = nullptr;
    std::optional<int64_t> (*load)(SensorFrame const& frame) = nullptr;
};

template <typename T>
constexpr int64_t kMin = std::numeric_limits<T>::min();
template <typename T>
constexpr int64_t kMax = std::numeric_limits<T>::max();

// Sums of a time and a few durations must not overflow.
constexpr int64_t kMaxTimestampNs = kMax<int64_t> / 2;
constexpr int64_t kHourNs = 3'600'000'000'000;

/// Stands in a frame's duration and readout until the whole recording is known.
constexpr int64_t kUnknownTime = -1;

template <typename T>
T valueOf(std::optional<T> const& member);
template <typename T>
T valueOf(T const& member);

template <auto Member>
void store(SensorFrame& frame, int64_t value) {
    frame.*Member = static_cast<decltype(valueOf(frame.*Member))>(value);
}

template <auto Member>
std::optional<int64_t> load(SensorFrame const& frame) {
    return frame.*Member;
}

/// Of a column whose cells must be full.
template <auto Member>
constexpr ColumnTraits fact(Column column, std::string_view name, std::string_view word,
                            int64_t min, int64_t max) {
    return {column, name, word, min, max, false, store<Member>, load<Member>};
}

template <auto Member>
constexpr ColumnTraits duration(Column column, std::string_view name, std::string_view word) {
    return {column, name, word, 0, kHourNs, true, store<Member>, load<Member>};
}

template <auto Member>
constexpr ColumnTraits state(Column column, std::string_view name, std::string_view word,
                             int64_t min, int64_t max) {
    return {column, name, word, min, max, true, store<Member>, load<Member>};
}

using F = SensorFrame;
using C = Column;
constexpr std::array<ColumnTraits, COLUMN_COUNT> kTraits = {{
    fact<&F::frameNo>(C::FrameNo, "Frame No.", "frameNo", 0, kMax<uint32_t>),
    fact<&F::timestampNs>(C::Timestamp, "Timestamp[nanosec]", "timestampNs", 1, kMaxTimestampNs),
    duration<&F::exposureNs>(C::Exposure, "Exposure time[nanosec]", "exposureNs"),
    duration<&F::durationNs>(C::Duration, "Sensor frame duration[nanosec]", "durationNs"),
    duration<&F::readoutNs>(C::Readout, "Frame readout time[nanosec]", "readoutNs"),
    state<&F::iso>(C::Iso, "ISO", "iso", 0, kMax<int32_t>),
    {.column = C::FocusDistance, .name = "Focus distance", .word = "focusDistance"},
    state<&F::afMode>(C::AfMode, "AF mode", "afMode", 0, kMax<uint8_t>),
    state<&F::afState>(C::AfState, "AF state", "afState", 0, kMax<uint8_t>),
    state<&F::lensState>(C::LensState, "Lens state", "lensState", 0, kMax<uint8_t>),
    state<&F::aeStable>(C::AeStable, "AE stable", "aeStable", kMin<int32_t>, kMax<int32_t>),
    state<&F::frameSync>(C::FrameSync, "Frame sync", "frameSync", kMin<int64_t>, kMax<int64_t>),
    state<&F::sensorId>(C::SensorId, "Sensor id", "sensorId", 0, kMax<int32_t>),
    state<&F::sensorMode>(C::SensorMode, "Sensor mode", "sensorMode", 0, kMax<int32_t>),
    fact<&F::hasError>(C::Error, "Error", "hasError", 0, 1),
}};

static_assert(std::ranges::adjacent_find(kTraits, std::ranges::greater_equal{},
                                         &ColumnTraits::column) == kTraits.end() &&
                  kTraits.back().column == Column::Error,
              "traits are found by the position of their column");

constexpr ColumnTraits const& traitsOf(Column column) {
    return kTraits[static_cast<size_t>(column)];
}

/// The number that is all of `cell`, empty when it is none or out of T's range.
template <typename T>
std::optional<T> parse(std::string const& cell) {
    T value{};
    char const* const end = cell.data() + cell.size();
    auto const [rest, error] = std::from_chars(cell.data(), end, value);
    if (rest != end || error != std::errc()) {
        return std::nullopt;
    }
    return value;
}

std::string describeCell(std::string const& cell) {
    return cell.empty() ? "an empty cell" : base::quoteContent(cell);
}

constexpr uint8_t kLensStationary = 0;
constexpr uint8_t kLensMoving = 1;

// One lens position is as good as another where either is unknown.
void deriveLensStates(std::vector<SensorFrame>& frames) {
    for (size_t i = 0; i < frames.size(); ++i) {
        bool const known =
            i > 0 && frames[i].focusDistance.has_value() && frames[i - 1].focusDistance.has_value();
        bool const moved = known && *frames[i].focusDistance != *frames[i - 1].focusDistance;
        frames[i].lensState = moved ? kLensMoving : kLensStationary;
    }
}

// A sensor reads a frame out while it exposes the next, all within the frame duration.
void fillInTimes(std::vector<SensorFrame>& frames, int64_t medianInterval) {
    for (SensorFrame& frame : frames) {
        if (frame.durationNs == kUnknownTime) {
            frame.durationNs = medianInterval;
        }
        if (frame.readoutNs == kUnknownTime) {
            frame.readoutNs = std::max<int64_t>(frame.durationNs - frame.exposureNs, 0);
        }
    }
}

/// Reads one recording, line by line.
class Reader {
public:
    Reader(std::istream& in, std::string const& name) : mLines(in, name) { mRecording.path = name; }

    Recording read() && {
        if (!mLines.next(mCells)) {
            throw RecordingError({mRecording.path, 0, {}}, "a header line", "an empty file");
        }
        readHeader();
        std::vector<SensorFrame>& frames = mRecording.frames;
        while (mLines.next(mCells)) {
            SensorFrame const frame = readFrame();
            if (!frames.empty()) {
                checkOrder(frame, frames.back());
            }
            frames.push_back(frame);
        }
        if (frames.size() < 2) {
            // There is no interval to tell the rate from.
            throw RecordingError({mRecording.path, 0, {}}, "at least two frames",
                                 frames.empty() ? "a header only" : "one");
        }
        mRecording.medianIntervalNs = medianIntervalNs(frames);
        fillInTimes(frames, mRecording.medianIntervalNs);
        if (!has(Column::LensState) && has(Column::FocusDistance)) {
            deriveLensStates(frames);
        }
        return std::move(mRecording);
    }

private:
    std::optional<size_t> index(Column column) const { return mIndex[static_cast<size_t>(column)]; }
    bool has(Column column) const { return index(column).has_value(); }
    RecordingPlace here() const { return {mRecording.path, mLines.line(), {}}; }

    [[noreturn]] void fail(std::string_view column, std::string_view expected,
                           std::string_view found) const {
        throw RecordingError({mRecording.path, mLines.line(), std::string(column)}, expected,
                             found);
    }

    void readHeader() {
        mHeaderCells = mCells.size();
        std::vector<std::string> unknown;
        for (size_t i = 0; i < mCells.size(); ++i) {
            if (!place(mCells[i], i)) {
                unknown.push_back(base::quoteContent(mCells[i]));
            }
        }
        requireTimestamps();
        if (!unknown.empty()) {
            mRecording.notes.push_back(
                fmt::format("unknown columns are ignored: {}", fmt::join(unknown, ", ")));
        }
        noteAbsent();
    }

    void noteAbsent() {
        std::vector<std::string> names;
        for (ColumnTraits const& traits : kTraits) {
            // Whether the lens moves is seen in its distance.
            bool const isDerived = traits.column == Column::LensState && has(Column::FocusDistance);
            if (!has(traits.column) && !isDerived) {
                mRecording.absent.push_back(traits.column);
                names.push_back(base::quoteContent(traits.name));
            }
        }
        if (!names.empty()) {
            mRecording.notes.push_back(
                fmt::format("missing columns get their defaults: {}", fmt::join(names, ", ")));
        }
    }

    /// False for a column that nobody knows.
    bool place(std::string const& name, size_t at) {
        auto const known =
            std::find_if(kTraits.begin(), kTraits.end(), [&name](ColumnTraits const& traits) {
                return traits.name == name ||
                       (traits.column == Column::Timestamp && name == kFrameTimestamp);
            });
        if (known == kTraits.end()) {
            return false;
        }
        auto& slot = mIndex[static_cast<size_t>(known->column)];
        if (slot) {
            // Which of the two is meant cannot be told.
            fail(name, "one such column",
                 fmt::format("two, as columns {} and {}", *slot + 1, at + 1));
        }
        slot = at;
        if (known->column == Column::Timestamp) {
            mTimestampName = name;
        }
        return true;
    }

    void requireTimestamps() const {
        if (!has(Column::Timestamp)) {
            throw RecordingError(
                here(),
                fmt::format("a column \"{}\" or \"{}\"", traitsOf(Column::Timestamp).name,
                            kFrameTimestamp),
                "neither in a line that begins with " + base::quoteContent(mCells[0]));
        }
    }

    /// As the recording has it.
    std::string_view nameOf(ColumnTraits const& traits) const {
        return traits.column == Column::Timestamp ? mTimestampName : traits.name;
    }

    SensorFrame readFrame() const {
        if (mCells.size() != mHeaderCells) {
            throw RecordingError(here(), fmt::format("{} cells as in the header", mHeaderCells),
                                 fmt::format("{}", mCells.size()));
        }
        SensorFrame frame;
        frame.durationNs = kUnknownTime;
        frame.readoutNs = kUnknownTime;
        // Counted where no column has the number.
        frame.frameNo = mRecording.frames.empty() ? 1 : mRecording.frames.back().frameNo + 1;
        for (ColumnTraits const& traits : kTraits) {
            if (traits.store != nullptr) {
                readNumber(traits, frame);
            }
        }
        readFocusDistance(frame);
        return frame;
    }

    void readNumber(ColumnTraits const& traits, SensorFrame& frame) const {
        auto const at = index(traits.column);
        if (!at) {
            return;
        }
        std::string const& cell = mCells[*at];
        if (cell.empty() && traits.mayBeEmpty) {
            return;
        }
        auto const value = parse<int64_t>(cell);
        if (!value || *value < traits.min || *value > traits.max) {
            fail(nameOf(traits),
                 fmt::format("a whole number from {} to {}", traits.min, traits.max),
                 describeCell(cell));
        }
        traits.store(frame, *value);
    }

    void readFocusDistance(SensorFrame& frame) const {
        auto const at = index(Column::FocusDistance);
        if (!at || mCells[*at].empty()) {
            return;
        }
        auto const value = parse<float>(mCells[*at]);
        if (!value || !std::isfinite(*value) || *value < 0) {
            fail(traitsOf(Column::FocusDistance).name, "a number of diopters, 0 or more",
                 describeCell(mCells[*at]));
        }
        frame.focusDistance = value;
    }

    void checkOrder(SensorFrame const& frame, SensorFrame const& previous) const {
        // More than an hour from frame to frame is another clock, not a slow sensor.
        int64_t const first = previous.timestampNs + 1;
        int64_t const last = previous.timestampNs + kHourNs;
        if (frame.timestampNs < first || frame.timestampNs > last) {
            fail(mTimestampName,
                 fmt::format("a time after {} of the row before, by an hour at most",
                             previous.timestampNs),
                 fmt::format("{}", frame.timestampNs));
        }
        // Also where the numbers are counted here: they end with 32 bits.
        if (frame.frameNo <= previous.frameNo) {
            fail(traitsOf(Column::FrameNo).name,
                 fmt::format("a number greater than {} of the row before", previous.frameNo),
                 fmt::format("{}", frame.frameNo));
        }
    }

    CsvLines mLines;
    std::vector<std::string> mCells;  ///< of the line that was read last
    size_t mHeaderCells = 0;
    std::array<std::optional<size_t>, COLUMN_COUNT> mIndex;  ///< position in a line, by column
    std::string mTimestampName;                              ///< that column's, in this file
    Recording mRecording;
};

/// Appends the shortest text of `value` that reads back as it is.
template <typename Number>
void append(std::string& line, std::optional<Number> value) {
    if (value) {
        char digits[32];  // enough for any 64-bit integer or float
        auto const [end, error] = std::to_chars(std::begin(digits), std::end(digits), *value);
        line.append(digits, end);
    }
}

}  // namespace

std::string_view headerOf(Column column) {
    return traitsOf(column).name;
}

std::string_view wordOf(Column column) {
    return traitsOf(column).word;
}

Recording readRecording(std::istream& in, std::string const& name) {
    return Reader(in, name).read();
}

Recording readRecording(std::string const& path) {
    if (path == "-") {
        return readRecording(std::cin, "<standard input>");
    }
    std::error_code ignored;
    if (std::filesystem::is_directory(path, ignored)) {
        // A folder can be opened, and then fails with a read error that says nothing.
        throw RecordingError({path, 0, {}}, "a file", "a folder");
    }
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw RecordingError({path, 0, {}}, "a readable file", std::strerror(errno));
    }
    return readRecording(file, path);
}

void writeRecording(Recording const& recording, std::ostream& out) {
    std::vector<ColumnTraits const*> columns;
    std::string line;
    for (ColumnTraits const& traits : kTraits) {
        // The timestamps always are there, so that no line is empty.
        if (!recording.lacks(traits.column)) {
            line.append(columns.empty() ? "" : ",").append(traits.name);
            columns.push_back(&traits);
        }
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
        out << line << '\n';
    }
}

void writeRecording(Recording const& recording, std::string const& path) {
    base::AtomicFile file(path);
    writeRecording(recording, file.stream());
    file.commit();
}

}  // namespace zebcam::tool::recording
