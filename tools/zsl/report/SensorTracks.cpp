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
    std::vector<FrameSlice> slices;
    slices.reserve(times.size());
    Lanes lanes(MAX_FRAME_ROWS);
    for (size_t i = 0; i < times.size(); ++i) {
        bool const isLost = isFaulty && !result.arrivalsNs[i];
        // A fault may have let it arrive at another time than the schedule has.
        int64_t const arrivalNs =
            isFaulty ? result.arrivalsNs[i].value_or(times[i].arrivalNs) : times[i].arrivalNs;
        // A lost frame takes the row that it would have had: a gap there would look like the
        // sensor's.
        auto const lane = lanes.take(recording.frames[i].timestampNs, arrivalNs);
        // The row for what is too much holds one frame at a time.
        bool const isCut = !lane && i + 1 < times.size();
        int64_t const endNs =
            isCut ? std::min(arrivalNs, recording.frames[i + 1].timestampNs) : arrivalNs;
        pipeline::ReportedFrame const* const reported = isFaulty ? &result.reported[i] : nullptr;
        slices.push_back({lane.value_or(MAX_FRAME_ROWS), arrivalNs, endNs, isLost,
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
