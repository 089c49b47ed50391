#pragma once

#include <ostream>
#include <vector>

#include "explain/Explanation.h"
#include "recording/Recording.h"
#include "replay/ReplayResult.h"
#include "trace/OccupancyRecorder.h"
#include "trace/SectionRecorder.h"

namespace zebcam::tool {

/// What a trace shows. Everything is on loan.
struct TraceInput {
    Recording const& recording;
    ReplayResult const& result;
    Explanation const* explanation;  ///< of the replay's log; null: refusals are not shown
    std::vector<OccupancySample> const& occupancy;
    std::vector<ProcessorSection> const& sections;
};

/// Writes a replay as a trace for ui.perfetto.dev, in the Trace Event Format. docs/trace.md says
/// what the tracks show. Errors are left in the state of `out`.
void writeTrace(TraceInput const& input, std::ostream& out);

}  // namespace zebcam::tool
