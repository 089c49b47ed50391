#include <fmt/format.h>

#include <algorithm>
#include <string>
#include <utility>

#include "pipeline/Schedule.h"
#include "report/JsonParts.h"
#include "report/TraceTracks.h"

namespace zebcam::tool::report {

namespace {

Json argsOf(FrameSlice const& slice) {
    recording::SensorFrame const& frame = *slice.told;
    Json args = {{"frameNo", frame.frameNo},
                 {"timestampNs", frame.timestampNs},
                 {"arrivalNs", slice.arrivalNs},
                 {"exposureNs", frame.exposureNs},
                 {"readoutNs", frame.readoutNs},
                 {"durationNs", frame.durationNs},
                 {"iso", orNull(frame.iso)},
                 {"focusDistance", orNull(frame.focusDistance)},
                 {"afMode", orNull(frame.afMode)},
                 {"afState", orNull(frame.afState)},
                 {"lensState", orNull(frame.lensState)},
                 {"aeStable", orNull(frame.aeStable)},
                 {"frameSync", orNull(frame.frameSync)},
                 {"sensorId", orNull(frame.sensorId)},
                 {"sensorMode", orNull(frame.sensorMode)},
                 {"hasError", frame.hasError}};
    // Rare enough to be told only where they hold.
    if (slice.endNs != slice.arrivalNs) {
        args["isCutShort"] = true;
    }
    if (slice.isLost) {
        args["isLost"] = true;
    }
    if (slice.faults.any()) {
        args["faults"] = pipeline::namesOf(slice.faults);
    }
    return withoutNulls(args);
}

/// Whether each frame is to be seen by itself: in a short recording, near a capture, or because
/// something is wrong with it.
std::vector<bool> framesApart(recording::Recording const& recording,
                              run::ReplayResult const& result) {
    constexpr int64_t kMarginFrames = 8;
    auto const& frames = recording.frames;
    std::vector<bool> isApart(frames.size(), frames.size() <= MAX_WHOLE_FRAMES);
    auto const from = [&](int64_t timeNs) {
        auto const found = std::lower_bound(
            frames.begin(), frames.end(), timeNs,
            [](recording::SensorFrame const& f, int64_t ns) { return f.timestampNs < ns; });
        return static_cast<size_t>(found - frames.begin());
    };
    auto const mark = [&](int64_t beginNs, int64_t endNs) {
        int64_t const marginNs = kMarginFrames * recording.medianIntervalNs;
        std::fill(isApart.begin() + static_cast<ptrdiff_t>(from(beginNs - marginNs)),
                  isApart.begin() + static_cast<ptrdiff_t>(from(endNs + marginNs)), true);
    };
    for (pipeline::CaptureRecord const& capture : result.captures) {
        int64_t endNs = capture.pressNs;
        for (pipeline::FrameOutcome const& frame : capture.frames) {
            // What was never answered waits to the end.
            endNs = std::max(endNs, frame.answeredNs.value_or(frames.back().timestampNs));
            endNs = std::max(endNs, frame.resultNs.value_or(endNs));
        }
        mark(capture.pressNs, endNs);
        for (pipeline::TryRecord const& attempt : capture.tries) {
            for (uint32_t const frameNo : attempt.historyFrames) {
                auto const found = std::lower_bound(
                    frames.begin(), frames.end(), frameNo,
                    [](recording::SensorFrame const& f, uint32_t no) { return f.frameNo < no; });
                if (found != frames.end() && found->frameNo == frameNo) {
                    isApart[static_cast<size_t>(found - frames.begin())] = true;
                }
            }
        }
    }
    for (size_t i = 0; i < frames.size(); ++i) {
        bool const isLost = !result.arrivalsNs.empty() && !result.arrivalsNs[i];
        bool const isStruck = !result.reported.empty() && result.reported[i].faults.kinds.any();
        isApart[i] = isApart[i] || frames[i].hasError || isLost || isStruck;
    }
    return isApart;
}

}  // namespace

std::vector<recording::Column> untoldColumns(recording::Recording const& recording) {
    std::vector<recording::Column> untold = recording.absent;
    std::erase_if(untold, [](recording::Column column) {
        return column == recording::Column::FrameNo || column == recording::Column::Error;
    });
    return untold;
}

std::vector<FrameSlice> frameSlices(recording::Recording const& recording,
                                    run::ReplayResult const& result) {
    // A log has none.
    if (recording.frames.empty()) {
        return {};
    }
    std::vector<pipeline::FrameTimes> const times = pipeline::frameTimes(recording, result.options);
    bool const isFaulty = !result.arrivalsNs.empty();
    std::vector<bool> const isApart = framesApart(recording, result);
    std::vector<FrameSlice> slices;
    slices.reserve(times.size());
    Lanes lanes(MAX_FRAME_ROWS);
    for (size_t i = 0; i < times.size(); ++i) {
        bool const isLost = isFaulty && !result.arrivalsNs[i];
        // A fault may have let it arrive at another time than the schedule has.
        int64_t const arrivalNs =
            isFaulty ? result.arrivalsNs[i].value_or(times[i].arrivalNs) : times[i].arrivalNs;
        if (i > 0 && !isApart[i] && !isApart[i - 1]) {
            slices.push_back({slices.back().row, arrivalNs, arrivalNs, isLost, 0, nullptr, {}});
            continue;
        }
        auto const next =
            std::find(isApart.begin() + static_cast<ptrdiff_t>(i) + 1, isApart.end(), true);
        size_t const after = isApart[i] ? i + 1 : static_cast<size_t>(next - isApart.begin());
        // A range ends where the next frame begins.
        int64_t endNs = after > i + 1 && after < times.size()
                            ? recording.frames[after].timestampNs
                            : std::max(arrivalNs, times[after - 1].arrivalNs);
        // A lost frame takes the row that it would have had: a gap there would look like the
        // sensor's.
        auto const lane = lanes.take(recording.frames[i].timestampNs, endNs);
        // The row for what is too much holds one frame at a time.
        if (!lane && after < times.size()) {
            endNs = std::min(endNs, recording.frames[after].timestampNs);
        }
        pipeline::ReportedFrame const* const reported = isFaulty ? &result.reported[i] : nullptr;
        slices.push_back({lane.value_or(MAX_FRAME_ROWS), arrivalNs, endNs, isLost, after - i,
                          reported != nullptr ? &reported->frame : &recording.frames[i],
                          reported != nullptr ? reported->faults.kinds : pipeline::FaultSet{}});
    }
    return slices;
}

void writeFrames(TraceEvents& events, int process, recording::Recording const& recording,
                 std::vector<FrameSlice> const& slices, TraceFlows const& flows) {
    std::vector<bool> isNamed(MAX_FRAME_ROWS + 1);
    std::vector<recording::Column> const untold = untoldColumns(recording);
    for (size_t i = 0; i < slices.size(); ++i) {
        if (slices[i].frames == 0) {
            continue;
        }
        recording::SensorFrame const& frame = recording.frames[i];
        auto const row = static_cast<int64_t>(slices[i].row);
        Track const track = rowOf(process, row);
        if (!isNamed[slices[i].row]) {
            isNamed[slices[i].row] = true;
            events.nameThread(track,
                              slices[i].row < MAX_FRAME_ROWS ? fmt::format("frames {}", row + 1)
                                                             : "more frames, cut short",
                              row);
        }
        if (slices[i].frames > 1) {
            uint32_t const last = recording.frames[i + slices[i].frames - 1].frameNo;
            events.begin(track, frame.timestampNs, "sensor",
                         fmt::format("frames {} to {}", frame.frameNo, last),
                         {{"firstFrameNo", frame.frameNo},
                          {"lastFrameNo", last},
                          {"frames", slices[i].frames}});
            events.end(track, slices[i].endNs);
            continue;
        }
        Json args = argsOf(slices[i]);
        for (recording::Column const column : untold) {
            args.erase(std::string(wordOf(column)));
        }
        events.begin(track, frame.timestampNs, "sensor", fmt::format("frame {}", frame.frameNo),
                     std::move(args));
        for (FlowMark const& mark : flows.atFrame(frame.frameNo)) {
            events.flow(track, mark);
        }
        events.end(track, slices[i].endNs);
    }
}

}  // namespace zebcam::tool::report
