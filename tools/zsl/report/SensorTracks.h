#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "recording/Recording.h"
#include "report/TraceEvents.h"
#include "run/ReplayResult.h"

namespace zebcam::tool::report {

/// A sensor frame as it is drawn.
struct FrameSlice {
    size_t row = 0;
    int64_t arrivalNs = 0;
    int64_t endNs = 0;    ///< the arrival, or earlier in the row for what is too much
    bool isLost = false;  ///< it never arrived; `arrivalNs` is when it should have
};

/// The frames by the order of the recording. As many rows as frames overlap, at most
/// MAX_FRAME_ROWS; what finds none free goes to one more, in which a slice ends where the next
/// frame begins.
constexpr size_t MAX_FRAME_ROWS = 64;
std::vector<FrameSlice> frameSlices(recording::Recording const& recording,
                                    run::ReplayResult const& result);

/// Writes the frames, with their metadata.
void writeFrames(TraceEvents& events, int process, recording::Recording const& recording,
                 std::vector<FrameSlice> const& slices, TraceFlows const& flows);

}  // namespace zebcam::tool::report
