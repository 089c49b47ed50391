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

/// The columns of a recording, in the order in which they are written.
enum class Column : size_t {
    FrameNo,
    Timestamp,
    Exposure,
    Duration,
    Readout,
    Iso,
    FocusDistance,
    AfMode,
    AfState,
    LensState,
    AeStable,
    FrameSync,
    SensorId,
    SensorMode,
    Error,
    FrameTimestamp,  ///< another name of Timestamp, read but not written
};
constexpr size_t kColumns = static_cast<size_t>(Column::FrameTimestamp) + 1;
constexpr size_t kWrittenColumns = kColumns - 1;

/// What is known of a column of whole numbers. The focus distance is none: it has a name only.
struct ColumnTraits {
    Column column;
    std::string_view name;  ///< of common Android capture loggers, where they have it
    int64_t min = 0;
    int64_t max = 0;
    /// An empty cell says that the frame's result had no such value, or, of a time, that it is to
    /// be worked out.
    bool mayBeEmpty = true;
    std::optional<int64_t> withoutColumn = {};  ///< value where the recording lacks the column
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
constexpr ColumnTraits fact(Column column, std::string_view name, int64_t min, int64_t max) {
    return {column, name, min, max, false, {}, store<Member>, load<Member>};
}

template <auto Member>
constexpr ColumnTraits duration(Column column, std::string_view name) {
    return {column, name, 0, kHourNs, true, {}, store<Member>, load<Member>};
}

template <auto Member>
constexpr ColumnTraits state(Column column, std::string_view name, int64_t min, int64_t max,
                             std::optional<int64_t> withoutColumn = {}) {
    return {column, name, min, max, true, withoutColumn, store<Member>, load<Member>};
}

using F = SensorFrame;
constexpr std::array<ColumnTraits, kColumns> kTraits = {{
    fact<&F::frameNo>(Column::FrameNo, "Frame No.", 0, kMax<uint32_t>),
    fact<&F::timestampNs>(Column::Timestamp, "Timestamp[nanosec]", 1, kMaxTimestampNs),
    duration<&F::exposureNs>(Column::Exposure, "Exposure time[nanosec]"),
    duration<&F::durationNs>(Column::Duration, "Sensor frame duration[nanosec]"),
    duration<&F::readoutNs>(Column::Readout, "Frame readout time[nanosec]"),
    state<&F::iso>(Column::Iso, "ISO", 0, kMax<int32_t>),
    {.column = Column::FocusDistance, .name = "Focus distance"},
    state<&F::afMode>(Column::AfMode, "AF mode", 0, kMax<uint8_t>, 0),
    state<&F::afState>(Column::AfState, "AF state", 0, kMax<uint8_t>, 0),
    state<&F::lensState>(Column::LensState, "Lens state", 0, kMax<uint8_t>),
    state<&F::aeStable>(Column::AeStable, "AE stable", kMin<int32_t>, kMax<int32_t>, 1),
    state<&F::frameSync>(Column::FrameSync, "Frame sync", kMin<int64_t>, kMax<int64_t>, 0),
    state<&F::sensorId>(Column::SensorId, "Sensor id", 0, kMax<int32_t>, 0),
    state<&F::sensorMode>(Column::SensorMode, "Sensor mode", 0, kMax<int32_t>, 0),
    fact<&F::hasError>(Column::Error, "Error", 0, 1),
    fact<&F::timestampNs>(Column::FrameTimestamp, "Frame timestamp[nanosec]", 1, kMaxTimestampNs),
}};

static_assert(std::ranges::adjacent_find(kTraits, std::ranges::greater_equal{},
                                         &ColumnTraits::column) == kTraits.end() &&
                  kTraits.back().column == Column::FrameTimestamp,
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
        if (!has(Column::LensState)) {
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
        checkTimestamps();
        if (!unknown.empty()) {
            mRecording.notes.push_back(
                fmt::format("unknown columns are ignored: {}", fmt::join(unknown, ", ")));
        }
        std::vector<std::string> missing;
        for (size_t i = 0; i < kWrittenColumns; ++i) {
            if (!mIndex[i] && kTraits[i].column != Column::Timestamp) {
                missing.push_back(base::quoteContent(kTraits[i].name));
            }
        }
        if (!missing.empty()) {
            mRecording.notes.push_back(
                fmt::format("missing columns get their defaults: {}", fmt::join(missing, ", ")));
        }
    }

    /// False for a column that nobody knows.
    bool place(std::string const& name, size_t at) {
        auto const known =
            std::find_if(kTraits.begin(), kTraits.end(),
                         [&name](ColumnTraits const& traits) { return traits.name == name; });
        if (known == kTraits.end()) {
            return false;
        }
        auto& slot = mIndex[static_cast<size_t>(known->column)];
        if (slot) {
            // Which of the two is meant cannot be told.
            fail(name, "one column of that name",
                 fmt::format("two, as columns {} and {}", *slot + 1, at + 1));
        }
        slot = at;
        return true;
    }

    void checkTimestamps() const {
        bool const isTwice = has(Column::Timestamp);
        if (isTwice == has(Column::FrameTimestamp)) {
            throw RecordingError(
                here(),
                fmt::format("a column \"{}\" or \"{}\"", traitsOf(Column::Timestamp).name,
                            traitsOf(Column::FrameTimestamp).name),
                isTwice ? "both"
                        : "neither in a line that begins with " + base::quoteContent(mCells[0]));
        }
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
            if (traits.withoutColumn) {
                traits.store(frame, *traits.withoutColumn);
            }
            return;
        }
        std::string const& cell = mCells[*at];
        if (cell.empty() && traits.mayBeEmpty) {
            return;
        }
        auto const value = parse<int64_t>(cell);
        if (!value || *value < traits.min || *value > traits.max) {
            fail(traits.name, fmt::format("a whole number from {} to {}", traits.min, traits.max),
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
            Column const column =
                has(Column::Timestamp) ? Column::Timestamp : Column::FrameTimestamp;
            fail(traitsOf(column).name,
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
    std::array<std::optional<size_t>, kColumns> mIndex;  ///< position in a line, by column
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
    for (size_t i = 0; i < kWrittenColumns; ++i) {
        out << kTraits[i].name << (i + 1 < kWrittenColumns ? ',' : '\n');
    }
    std::string line;
    for (SensorFrame const& frame : recording.frames) {
        line.clear();
        for (size_t i = 0; i < kWrittenColumns; ++i) {
            if (kTraits[i].load != nullptr) {
                append(line, kTraits[i].load(frame));
            } else {
                // The only column that is no whole number.
                append(line, frame.focusDistance);
            }
            line.append(1, i + 1 < kWrittenColumns ? ',' : '\n');
        }
        out << line;
    }
}

void writeRecording(Recording const& recording, std::string const& path) {
    base::AtomicFile file(path);
    writeRecording(recording, file.stream());
    file.commit();
}

}  // namespace zebcam::tool::recording
