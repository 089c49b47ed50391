#include "recording/RecordingReader.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <limits>
#include <utility>

#include "base/Text.h"
#include "recording/CsvLines.h"
#include "recording/Recording.h"

namespace zebcam::tool::recording {

RecordingHeader::RecordingHeader(std::vector<std::string> const& cells, RecordingPlace const& place)
    : mColumnCount(cells.size()) {
    for (size_t i = 0; i < cells.size(); ++i) {
        add(cells[i], i, place);
    }
    checkTimestamps(cells, place);
    for (size_t i = 0; i < kWrittenColumnCount; ++i) {
        auto const column = static_cast<Column>(i);
        if (!mIndex[i] && column != Column::Timestamp) {
            mMissing.push_back(base::quoteContent(columnName(column)));
        }
    }
}

void RecordingHeader::add(std::string const& name, size_t index, RecordingPlace place) {
    auto const known = std::find(kColumnNames.begin(), kColumnNames.end(), name);
    if (known == kColumnNames.end()) {
        mUnknown.push_back(base::quoteContent(name));
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
            first ? "both"
                  : "neither in a line that begins with " + base::quoteContent(cells.front());
        throw RecordingError(place, expected, found);
    }
}

namespace {

enum class EmptyCell {
    Invalid,  ///< an error
    Lacking,  ///< the frame's result had no such value
    Default,  ///< as if the column were missing
};

struct IntegerColumn {
    Column column;
    int64_t min;
    int64_t max;
    EmptyCell emptyCell;
    void (*store)(SensorFrame& frame, int64_t value);
};

template <typename T>
constexpr int64_t kMin = std::numeric_limits<T>::min();
template <typename T>
constexpr int64_t kMax = std::numeric_limits<T>::max();

// Sums of a time and a few durations must not overflow.
constexpr int64_t kMaxTimestampNs = kMax<int64_t> / 2;
constexpr int64_t kHourNs = 3'600'000'000'000;

template <auto Member, typename Value>
void store(SensorFrame& frame, int64_t value) {
    frame.*Member = static_cast<Value>(value);
}

template <auto Member>
constexpr IntegerColumn byteState(Column column) {
    return {column, 0, kMax<uint8_t>, EmptyCell::Lacking, store<Member, uint8_t>};
}

template <auto Member>
constexpr IntegerColumn duration(Column column) {
    return {column, 0, kHourNs, EmptyCell::Default, store<Member, int64_t>};
}

template <auto Member>
constexpr IntegerColumn timestamp(Column column) {
    return {column, 1, kMaxTimestampNs, EmptyCell::Invalid, store<Member, int64_t>};
}

using F = SensorFrame;
constexpr IntegerColumn kIntegerColumns[] = {
    {Column::FrameNo, 0, kMax<uint32_t>, EmptyCell::Invalid, store<&F::frameNo, uint32_t>},
    timestamp<&F::timestampNs>(Column::Timestamp),
    timestamp<&F::timestampNs>(Column::FrameTimestamp),
    duration<&F::exposureNs>(Column::Exposure),
    duration<&F::durationNs>(Column::Duration),
    duration<&F::readoutNs>(Column::Readout),
    {Column::Iso, 0, kMax<int32_t>, EmptyCell::Lacking, store<&F::iso, int32_t>},
    byteState<&F::afMode>(Column::AfMode),
    byteState<&F::afState>(Column::AfState),
    byteState<&F::lensState>(Column::LensState),
    {Column::AeStable, kMin<int32_t>, kMax<int32_t>, EmptyCell::Lacking,
     store<&F::aeStable, int32_t>},
    {Column::FrameSync, kMin<int64_t>, kMax<int64_t>, EmptyCell::Lacking,
     store<&F::frameSync, int64_t>},
    {Column::SensorId, 0, kMax<int32_t>, EmptyCell::Lacking, store<&F::sensorId, int32_t>},
    {Column::SensorMode, 0, kMax<int32_t>, EmptyCell::Lacking, store<&F::sensorMode, int32_t>},
    {Column::Error, 0, 1, EmptyCell::Invalid, store<&F::hasError, bool>},
};

// What a frame holds before its cells are read: defaults for columns that the recording lacks,
// nothing where a cell may say more.
SensorFrame frameBeforeCells(RecordingHeader const& header, SensorFrame const* previous) {
    SensorFrame frame;
    frame.durationNs = kUnknownTime;
    frame.readoutNs = kUnknownTime;
    frame.frameNo = previous ? previous->frameNo + 1 : 1;
    auto const setDefault = [&header](Column column, auto& state, int value) {
        if (!header.has(column)) {
            state = value;
        }
    };
    setDefault(Column::AfMode, frame.afMode, 0);
    setDefault(Column::AfState, frame.afState, 0);
    setDefault(Column::AeStable, frame.aeStable, 1);
    setDefault(Column::FrameSync, frame.frameSync, 0);
    setDefault(Column::SensorId, frame.sensorId, 0);
    setDefault(Column::SensorMode, frame.sensorMode, 0);
    return frame;
}

// The number that is all of `cell`, empty when it is none or out of T's range.
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

}  // namespace

RecordingRow::RecordingRow(RecordingHeader const& header, std::vector<std::string> const& cells,
                           RecordingPlace place)
    : mHeader(header), mCells(cells), mPlace(std::move(place)) {
    if (cells.size() != header.columnCount()) {
        throw RecordingError(mPlace, fmt::format("{} cells as in the header", header.columnCount()),
                             fmt::format("{}", cells.size()));
    }
}

SensorFrame RecordingRow::frame(SensorFrame const* previous) const {
    SensorFrame frame = frameBeforeCells(mHeader, previous);
    readIntegers(frame);
    readFocusDistance(frame);
    if (previous) {
        checkOrder(frame, *previous);
    }
    return frame;
}

void RecordingRow::readIntegers(SensorFrame& frame) const {
    for (IntegerColumn const& column : kIntegerColumns) {
        auto const index = mHeader.index(column.column);
        if (!index || (mCells[*index].empty() && column.emptyCell != EmptyCell::Invalid)) {
            continue;
        }
        auto const value = parse<int64_t>(mCells[*index]);
        if (!value || *value < column.min || *value > column.max) {
            fail(column.column, fmt::format("a whole number from {} to {}", column.min, column.max),
                 describeCell(mCells[*index]));
        }
        column.store(frame, *value);
    }
}

void RecordingRow::readFocusDistance(SensorFrame& frame) const {
    auto const index = mHeader.index(Column::FocusDistance);
    if (!index || mCells[*index].empty()) {
        return;
    }
    auto const value = parse<float>(mCells[*index]);
    if (!value || !std::isfinite(*value) || *value < 0) {
        fail(Column::FocusDistance, "a number of diopters, 0 or more",
             describeCell(mCells[*index]));
    }
    frame.focusDistance = value;
}

void RecordingRow::checkOrder(SensorFrame const& frame, SensorFrame const& previous) const {
    int64_t const first = previous.timestampNs + 1;
    int64_t const last = previous.timestampNs + kHourNs;
    if (frame.timestampNs < first || frame.timestampNs > last) {
        fail(mHeader.has(Column::Timestamp) ? Column::Timestamp : Column::FrameTimestamp,
             fmt::format("a time after {} of the row before, by an hour at most",
                         previous.timestampNs),
             fmt::format("{}", frame.timestampNs));
    }
    if (frame.frameNo <= previous.frameNo) {
        fail(Column::FrameNo,
             fmt::format("a number greater than {} of the row before", previous.frameNo),
             fmt::format("{}", frame.frameNo));
    }
}

void RecordingRow::fail(Column column, std::string_view expected, std::string_view found) const {
    RecordingPlace place = mPlace;
    place.column = columnName(column);
    throw RecordingError(place, expected, found);
}

namespace {

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

std::vector<std::string> notesOf(RecordingHeader const& header) {
    std::vector<std::string> notes;
    if (!header.unknown().empty()) {
        notes.push_back(
            fmt::format("unknown columns are ignored: {}", fmt::join(header.unknown(), ", ")));
    }
    if (!header.missing().empty()) {
        notes.push_back(fmt::format("missing columns get their defaults: {}",
                                    fmt::join(header.missing(), ", ")));
    }
    return notes;
}

std::string systemReason() {
    return std::strerror(errno);
}

}  // namespace

Recording readRecording(std::istream& in, std::string const& name) {
    CsvLines lines(in, name);
    std::vector<std::string> cells;
    if (!lines.next(cells)) {
        throw RecordingError({name, 0, {}}, "a header line", "an empty file");
    }
    RecordingHeader const header(cells, {name, lines.line(), {}});
    Recording recording{name, {}, notesOf(header), 0};
    while (lines.next(cells)) {
        SensorFrame const* previous = recording.frames.empty() ? nullptr : &recording.frames.back();
        RecordingRow const row(header, cells, {name, lines.line(), {}});
        recording.frames.push_back(row.frame(previous));
    }
    if (recording.frames.size() < 2) {
        throw RecordingError({name, 0, {}}, "at least two frames",
                             recording.frames.empty() ? "a header only" : "one");
    }
    recording.medianIntervalNs = medianIntervalNs(recording.frames);
    fillInTimes(recording.frames, recording.medianIntervalNs);
    if (!header.has(Column::LensState)) {
        deriveLensStates(recording.frames);
    }
    return recording;
}

Recording readRecording(std::string const& path) {
    if (path == "-") {
        return readRecording(std::cin, "<standard input>");
    }
    std::error_code ignored;
    if (std::filesystem::is_directory(path, ignored)) {
        throw RecordingError({path, 0, {}}, "a file", "a folder");
    }
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw RecordingError({path, 0, {}}, "a readable file", systemReason());
    }
    return readRecording(file, path);
}

}  // namespace zebcam::tool::recording
