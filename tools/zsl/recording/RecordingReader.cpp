#include <fmt/format.h>
#include <fmt/ranges.h>
#include <metadata/MetadataTags.h>
#include <policy/zsl/RecordedColumns.h>

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

std::optional<double> parseReal(std::string const& cell) {
    double value = 0;
    auto const [rest, error] = std::from_chars(cell.data(), cell.data() + cell.size(), value);
    bool const isAll = rest == cell.data() + cell.size() && error == std::errc();
    return isAll ? std::optional(value) : std::nullopt;
}

std::string describeCell(std::string const& cell) {
    return cell.empty() ? "an empty cell" : base::quoteContent(cell);
}

/// The float that a cell holds. What is too small for one is 0, as it is on a phone.
std::optional<float> parseFloat(std::string const& cell) {
    auto const value = parseReal(cell);
    if (!value || !std::isfinite(static_cast<float>(*value))) {
        return std::nullopt;
    }
    return static_cast<float>(*value);
}

// One lens position is as good as another where either is unknown.
void deriveLensStates(std::vector<SensorFrame>& frames) {
    for (size_t i = 0; i < frames.size(); ++i) {
        bool const known =
            i > 0 && frames[i].focusDistance.has_value() && frames[i - 1].focusDistance.has_value();
        bool const moved = known && *frames[i].focusDistance != *frames[i - 1].focusDistance;
        frames[i].lensState = moved ? NSCam::LENS_STATE_MOVING : NSCam::LENS_STATE_STATIONARY;
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

/// A column that nobody knows, while it is read.
struct OtherColumn {
    size_t cell = 0;
    DataColumn column;
    bool isText = false;  ///< a cell is no number
    bool isWhole = true;
    bool isEmpty = true;
};

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
            SensorFrame frame = readFrame();
            if (!frames.empty()) {
                checkOrder(frame, frames.back());
            }
            if (frames.size() == MAX_FRAMES) {
                throw RecordingError({mRecording.path, mRow.line, {}},
                                     fmt::format("at most {} frames", MAX_FRAMES), "one more");
            }
            frames.push_back(std::move(frame));
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
        settleData();
        if (!has(Column::LensState) && has(Column::FocusDistance)) {
            deriveLensStates(frames);
        }
        return std::move(mRecording);
    }

private:
    bool has(Column column) const { return mLayout.place(column).has_value(); }

    /// The row after `skipped` others from here; null when there is none.
    Row const* ahead(size_t skipped = 0) {
        for (Row row; mAhead.size() <= skipped && mLines.next(row.cells); row = {}) {
            row.line = mLines.line();
            mAhead.push_back(std::move(row));
        }
        return mAhead.size() > skipped ? &mAhead[skipped] : nullptr;
    }

    bool next() {
        if (mAhead.empty()) {
            bool const isThere = mLines.next(mRow.cells);  // whose memory is used again
            mRow.line = mLines.line();
            return isThere;
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
        findOthers(mRow.cells.empty() ? comment : mRow.cells);
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

    void findOthers(std::vector<std::string> const& header) {
        for (size_t const cell : mLayout.others) {
            OtherColumn other;
            other.cell = cell;
            other.column = {header[cell], NSCam::ZslPolicy::recordedColumnTag(header[cell])};
            // Of two that one look-up would find, the first is found.
            other.isText = header[cell].empty() ||
                           std::ranges::any_of(mOthers, [&other](OtherColumn const& earlier) {
                               return earlier.column.tag == other.column.tag;
                           });
            mOthers.push_back(std::move(other));
        }
    }

    void readData(SensorFrame& frame) {
        for (OtherColumn& other : mOthers) {
            std::string const& cell = mRow.cells[other.cell];
            if (other.isText || cell.empty()) {
                continue;
            }
            if (auto const whole = base::scaledDecimal(cell)) {
                frame.data.push_back({other.column.tag, *whole});
                other.isEmpty = false;
            } else if (auto const real = parseReal(cell); !real) {
                other.isText = true;
            } else if (std::isfinite(*real)) {  // loggers write nan where they know nothing
                frame.data.push_back({other.column.tag, *real});
                other.isEmpty = other.isWhole = false;
            }
        }
    }

    /// Drops columns of texts, and makes the numbers of each other one type.
    void settleData() {
        std::vector<std::string> taken;
        std::vector<std::string> ignored;
        for (OtherColumn& other : mOthers) {
            uint32_t const tag = other.column.tag;
            std::string const name = base::quoteContent(other.column.name);
            if (other.isText || other.isEmpty) {
                ignored.push_back(name);
            } else {
                taken.push_back(fmt::format("{} (tag {:#x})", name, tag));
                mRecording.dataColumns.push_back(other.column);
            }
        }
        for (SensorFrame& frame : mRecording.frames) {
            std::erase_if(frame.data, [this](DataValue& data) { return !settle(data); });
        }
        note("columns of your own, which policies may read: {}", taken);
        note("columns that are unknown and hold no numbers are ignored: {}", ignored);
    }

    /// False for a value of a column that is not taken.
    bool settle(DataValue& data) const {
        auto const other = std::ranges::find_if(mOthers, [&data](OtherColumn const& candidate) {
            return candidate.column.tag == data.tag;
        });
        int64_t const* const whole = std::get_if<int64_t>(&data.value);
        if (!other->isWhole && whole != nullptr) {
            data.value = static_cast<double>(*whole);
        }
        return !other->isText;
    }

    void note(char const* text, std::vector<std::string> const& names) {
        if (!names.empty()) {
            mRecording.notes.push_back(fmt::format(fmt::runtime(text), fmt::join(names, ", ")));
        }
    }

    void noteAbsent() {
        std::vector<std::string> names;
        for (ColumnTraits const& traits : columns::TRAITS) {
            // Whether the lens moves is seen in its distance.
            bool const isDerived = traits.column == Column::LensState && has(Column::FocusDistance);
            bool const isAssumed = traits.column != Column::VideoFrame;
            if (!has(traits.column) && isAssumed && !isDerived) {
                mRecording.absent.push_back(traits.column);
                names.push_back(base::quoteContent(traits.header));
            }
        }
        note("missing columns get their defaults: {}", names);
    }

    SensorFrame readFrame() {
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
        readData(frame);
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
            std::string const what =
                place->exponent > 0 ? fmt::format("a time in {} that is", unitName(place->exponent))
                                    : "a whole number";
            fail(place->name,
                 fmt::format("{} from {} to {}{}", what, traits.min, traits.max,
                             place->exponent > 0 ? " ns" : ""),
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
    std::vector<OtherColumn> mOthers;
    Recording mRecording;
};

}  // namespace

Recording readRecording(std::istream& in, std::string const& name, InputOptions const& options) {
    return partOf(Reader(in, name).read(options.anyRate), options);
}

}  // namespace zebcam::tool::recording
