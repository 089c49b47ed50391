#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <deque>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "base/Decimal.h"
#include "base/Text.h"
#include "recording/CsvLines.h"
#include "recording/Recording.h"
#include "recording/RecordingColumns.h"
#include "recording/RecordingLayout.h"

namespace zebcam::tool::recording {

namespace {

/// Stands in a frame's duration and readout until the whole recording is known.
constexpr int64_t kUnknownTime = -1;

constexpr uint8_t kLensStationary = 0;
constexpr uint8_t kLensMoving = 1;

std::string describeCell(std::string const& cell) {
    return cell.empty() ? "an empty cell" : base::quoteContent(cell);
}

/// The float that a cell holds. What is too small for one is 0, as it is on a phone.
std::optional<float> parseFloat(std::string const& cell) {
    double value = 0;
    auto const [rest, error] = std::from_chars(cell.data(), cell.data() + cell.size(), value);
    if (rest != cell.data() + cell.size() || error != std::errc() ||
        !std::isfinite(static_cast<float>(value))) {
        return std::nullopt;
    }
    return static_cast<float>(value);
}

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

/// The cells of a line that is not blank.
struct Row {
    size_t line = 0;
    std::vector<std::string> cells;
};

/// Reads one recording, line by line.
class Reader {
public:
    Reader(std::istream& in, std::string const& name) : mLines(in, name) { mRecording.path = name; }

    Recording read(bool atAnyRate) && {
        readLayout();
        std::vector<SensorFrame>& frames = mRecording.frames;
        while (next()) {
            SensorFrame const frame = readFrame();
            if (!frames.empty()) {
                checkOrder(frame, frames.back());
            }
            if (frames.size() == MAX_FRAMES) {
                throw RecordingError({mRecording.path, mRow.line, {}},
                                     fmt::format("at most {} frames", MAX_FRAMES), "one more");
            }
            frames.push_back(frame);
        }
        if (frames.size() < 2) {
            // There is no interval to tell the rate from.
            throw RecordingError({mRecording.path, 0, {}}, "at least two frames",
                                 frames.empty() ? "a header only" : "one");
        }
        mRecording.medianIntervalNs = medianIntervalNs(frames);
        if (!atAnyRate) {
            requireSensorRate(mRecording, mLayout);
        }
        fillInTimes(frames, mRecording.medianIntervalNs);
        if (!has(Column::LensState) && has(Column::FocusDistance)) {
            deriveLensStates(frames);
        }
        return std::move(mRecording);
    }

private:
    bool has(Column column) const { return mLayout.place(column).has_value(); }

    /// The row after `skipped` others from here; null when there is none.
    Row const* ahead(size_t skipped = 0) {
        Row row;
        while (mAhead.size() <= skipped && mLines.next(row.cells)) {
            row.line = mLines.line();
            mAhead.push_back(std::move(row));
        }
        return mAhead.size() > skipped ? &mAhead[skipped] : nullptr;
    }

    bool next() {
        if (ahead() == nullptr) {
            return false;
        }
        mRow = std::move(mAhead.front());
        mAhead.pop_front();
        return true;
    }

    [[noreturn]] void fail(std::string_view column, std::string_view expected,
                           std::string_view found) const {
        throw RecordingError({mRecording.path, mRow.line, std::string(column)}, expected, found);
    }

    void readLayout() {
        if (ahead() == nullptr) {
            throw RecordingError({mRecording.path, 0, {}}, "a header line", "an empty file");
        }
        std::vector<std::string> const comment = mLines.comment();
        if (!isData(ahead()->cells)) {
            next();
            Row const* const first = ahead();
            mLayout = layoutOf(mRow.cells, first != nullptr ? &first->cells : nullptr,
                               {mRecording.path, mRow.line, {}});
        } else if (namesTimestamps(comment)) {
            // Some loggers mark their header as a comment.
            mLayout = layoutOf(comment, nullptr, {mRecording.path, mLines.commentLine(), {}});
        } else {
            mLayout = layoutWithoutHeader(ahead()->cells, {mRecording.path, ahead()->line, {}});
        }
        settleUnitOfTimestamps();
        mRecording.notes = mLayout.notes;
        if (mLines.separator() != ',') {
            mRecording.notes.push_back(fmt::format(
                "cells are separated by {}", mLines.separator() == '\t' ? "tabs" : "semicolons"));
        }
        noteOthers(mLayout.cells == mRow.cells.size() ? mRow.cells : comment);
        noteAbsent();
    }

    void settleUnitOfTimestamps() {
        size_t const cell = mLayout.place(Column::Timestamp)->cell;
        Row const* const second = ahead(1);
        if (!mLayout.knowsUnit && second != nullptr &&
            std::min(ahead()->cells.size(), second->cells.size()) > cell) {
            settleUnit(mLayout, ahead()->cells[cell], second->cells[cell],
                       {mRecording.path, second->line, {}});
        }
    }

    void noteOthers(std::vector<std::string> const& header) {
        std::vector<std::string> names;
        for (size_t const cell : mLayout.others) {
            names.push_back(base::quoteContent(header[cell]));
        }
        if (!names.empty()) {
            mRecording.notes.push_back(
                fmt::format("unknown columns are ignored: {}", fmt::join(names, ", ")));
        }
    }

    void noteAbsent() {
        std::vector<std::string> names;
        for (ColumnTraits const& traits : columns::TRAITS) {
            // Whether the lens moves is seen in its distance.
            bool const isDerived = traits.column == Column::LensState && has(Column::FocusDistance);
            if (!has(traits.column) && !isDerived) {
                mRecording.absent.push_back(traits.column);
                names.push_back(base::quoteContent(traits.header));
            }
        }
        if (!names.empty()) {
            mRecording.notes.push_back(
                fmt::format("missing columns get their defaults: {}", fmt::join(names, ", ")));
        }
    }

    SensorFrame readFrame() const {
        if (mRow.cells.size() != mLayout.cells) {
            throw RecordingError({mRecording.path, mRow.line, {}},
                                 fmt::format("{} cells as in the header", mLayout.cells),
                                 fmt::format("{}", mRow.cells.size()));
        }
        SensorFrame frame;
        frame.durationNs = kUnknownTime;
        frame.readoutNs = kUnknownTime;
        // Counted where no column has the number.
        frame.frameNo = mRecording.frames.empty() ? 1 : mRecording.frames.back().frameNo + 1;
        for (ColumnTraits const& traits : columns::TRAITS) {
            if (traits.store != nullptr) {
                readNumber(traits, frame);
            }
        }
        readFocusDistance(frame);
        return frame;
    }

    void readNumber(ColumnTraits const& traits, SensorFrame& frame) const {
        auto const& place = mLayout.place(traits.column);
        if (!place || (mRow.cells[place->cell].empty() && traits.mayBeEmpty)) {
            return;
        }
        std::string const& cell = mRow.cells[place->cell];
        auto const value = base::scaledDecimal(cell, place->exponent);
        if (!value || *value < traits.min || *value > traits.max) {
            fail(place->name,
                 fmt::format("a {} from {} to {}{}", place->exponent > 0 ? "time" : "whole number",
                             traits.min, traits.max, place->exponent > 0 ? " ns" : ""),
                 describeCell(cell));
        }
        traits.store(frame, *value);
    }

    void readFocusDistance(SensorFrame& frame) const {
        auto const& place = mLayout.place(Column::FocusDistance);
        if (!place || mRow.cells[place->cell].empty()) {
            return;
        }
        std::string const& cell = mRow.cells[place->cell];
        auto const value = parseFloat(cell);
        if (!value || *value < 0) {
            fail(place->name, "a number of diopters, 0 or more", describeCell(cell));
        }
        frame.focusDistance = value;
    }

    void checkOrder(SensorFrame const& frame, SensorFrame const& previous) const {
        // More than an hour from frame to frame is another clock, not a slow sensor.
        int64_t const first = previous.timestampNs + 1;
        int64_t const last = previous.timestampNs + columns::HOUR_NS;
        if (frame.timestampNs < first || frame.timestampNs > last) {
            fail(mLayout.place(Column::Timestamp)->name,
                 fmt::format("a time after {} of the row before, by an hour at most",
                             previous.timestampNs),
                 fmt::format("{}", frame.timestampNs));
        }
        // Also where the numbers are counted here: they end with 32 bits.
        if (frame.frameNo <= previous.frameNo) {
            fail(traitsOf(Column::FrameNo).header,
                 fmt::format("a number greater than {} of the row before", previous.frameNo),
                 fmt::format("{}", frame.frameNo));
        }
    }

    CsvLines mLines;
    std::deque<Row> mAhead;  ///< read, but not taken yet
    Row mRow;
    RecordingLayout mLayout;
    Recording mRecording;
};

}  // namespace

Recording readRecording(std::istream& in, std::string const& name, InputOptions const& options) {
    return partOf(Reader(in, name).read(options.anyRate), options);
}

}  // namespace zebcam::tool::recording
