#include "recording/Recording.h"

#include <fmt/format.h>
#include <metadata/MetadataTags.h>

#include <algorithm>
#include <cstdlib>

#include "base/Distribution.h"
#include "base/InputError.h"
#include "base/Text.h"

namespace zebcam::tool::recording {

namespace {

std::string describe(RecordingPlace const& place, std::string_view expected,
                     std::string_view found) {
    std::string text = place.path + ":";
    // What concerns the whole file has no line, and mostly no column.
    if (place.line > 0) {
        text += fmt::format("{}:", place.line);
    }
    if (!place.column.empty()) {
        text += fmt::format(" column \"{}\":", place.column);
    }
    return text + fmt::format(" expected {}, found {}", expected, found);
}

std::vector<int64_t> intervalsOf(std::vector<SensorFrame> const& frames) {
    std::vector<int64_t> intervals;
    for (size_t i = 1; i < frames.size(); ++i) {
        intervals.push_back(frames[i].timestampNs - frames[i - 1].timestampNs);
    }
    return intervals;
}

void addIntervals(RecordingFacts& facts, std::vector<int64_t> intervals) {
    base::Spread const all = base::spreadOf(intervals);
    facts.minIntervalNs = all.min;
    facts.maxIntervalNs = all.max;
    facts.medianIntervalNs = all.median;
    // Half of the intervals are no longer than the median, so some always remain.
    auto const isGap = [median = all.median](int64_t interval) {
        return interval - median > median / 2;
    };
    facts.gaps = std::erase_if(intervals, isGap);
    facts.largestGapNs = facts.gaps > 0 ? facts.maxIntervalNs : 0;
    // A gap is a frame that was not taken, and says nothing of how steady the others are.
    for (int64_t& interval : intervals) {
        interval = std::abs(interval - all.median);
    }
    facts.jitterNs = base::spreadOf(std::move(intervals)).p95;
}

void countMissing(RecordingFacts& facts, Recording const& recording) {
    auto const count = [&recording](Column column, auto SensorFrame::*state) -> size_t {
        // What a phone never tells is said once, not of every frame.
        auto const isMissing = [state](SensorFrame const& frame) { return !(frame.*state); };
        return recording.lacks(column) ? 0 : std::ranges::count_if(recording.frames, isMissing);
    };
    facts.missing = {.afMode = count(Column::AfMode, &SensorFrame::afMode),
                     .afState = count(Column::AfState, &SensorFrame::afState),
                     .lensState = count(Column::LensState, &SensorFrame::lensState),
                     .aeStable = count(Column::AeStable, &SensorFrame::aeStable),
                     .frameSync = count(Column::FrameSync, &SensorFrame::frameSync),
                     .sensorId = count(Column::SensorId, &SensorFrame::sensorId),
                     .sensorMode = count(Column::SensorMode, &SensorFrame::sensorMode)};
}

}  // namespace

RecordingError::RecordingError(RecordingPlace const& place, std::string_view expected,
                               std::string_view found)
    : std::runtime_error(describe(place, expected, found)) {
}

bool Recording::lacks(Column column) const {
    return std::find(absent.begin(), absent.end(), column) != absent.end();
}

Recording partOf(Recording recording, InputOptions const& options) {
    if (!options.fromNs && !options.toNs) {
        return recording;
    }
    auto& frames = recording.frames;
    int64_t const startNs = frames.front().timestampNs;
    int64_t const lengthNs = frames.back().timestampNs - startNs;
    for (auto const& [option, time] :
         {std::pair{"--from", options.fromNs}, {"--to", options.toNs}}) {
        if (time.value_or(0) < 0 || time.value_or(0) > lengthNs) {
            throw base::InputError(
                fmt::format("{} {}: outside of the recording (expected 0s to {})", option,
                            base::formatDuration(*time), base::formatDuration(lengthNs)));
        }
    }
    int64_t const fromNs = options.fromNs.value_or(0);
    int64_t const toNs = options.toNs.value_or(lengthNs);
    size_t const all = frames.size();
    std::erase_if(frames, [=](SensorFrame const& frame) {
        int64_t const timeNs = frame.timestampNs - startNs;
        return timeNs < fromNs || timeNs > toNs;
    });
    std::string const part =
        fmt::format("from {} to {}", base::formatDuration(fromNs), base::formatDuration(toNs));
    if (frames.size() < 2) {
        throw base::InputError(fmt::format("{}: expected at least two frames {}, found {}",
                                           recording.path, part, frames.size()));
    }
    recording.medianIntervalNs = medianIntervalNs(frames);
    recording.notes.push_back(fmt::format("{} of {} frames, {}; times count from the first of them",
                                          frames.size(), all, part));
    return recording;
}

RecordingFacts computeFacts(Recording const& recording) {
    RecordingFacts facts;
    facts.absent = recording.absent;
    facts.dataColumns = recording.dataColumns;
    facts.video = recording.video;
    auto const& frames = recording.frames;
    facts.frames = frames.size();
    countMissing(facts, recording);
    for (SensorFrame const& frame : frames) {
        facts.framesWithError += frame.hasError;
        if (facts.video) {
            facts.video->framesWithout += frame.videoFrame ? 0 : 1;
        }
        facts.focusMoves += frame.lensState == NSCam::LENS_STATE_MOVING;
    }
    if (frames.size() >= 2) {
        addIntervals(facts, intervalsOf(frames));
        facts.lengthNs = frames.back().timestampNs - frames.front().timestampNs;
        facts.meanRateFps =
            static_cast<double>(frames.size() - 1) * 1e9 / static_cast<double>(facts.lengthNs);
    }
    return facts;
}

int64_t medianIntervalNs(std::vector<SensorFrame> const& frames) {
    return base::spreadOf(intervalsOf(frames)).median;
}

}  // namespace zebcam::tool::recording
