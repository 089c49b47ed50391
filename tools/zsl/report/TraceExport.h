#pragma once

#include <ostream>
#include <vector>

#include "log/Explanation.h"
#include "recording/Recording.h"
#include "run/ProcessorSections.h"
#include "run/Replay.h"

namespace zebcam::tool::report {

/// What a trace shows. Everything is on loan.
struct TraceInput {
    recording::Recording const& recording;
    run::ReplayResult const& result;
    log::Explanation const* explanation;  ///< of the replay's log; null: refusals are not shown
    std::vector<run::OccupancySample> const& occupancy;
    std::vector<run::ProcessorSection> const& sections;
};

/// Writes a replay as a trace for ui.perfetto.dev, in the Trace Event Format. docs/trace.md says
/// what the tracks show. Errors are left in the state of `out`.
void writeTrace(TraceInput const& input, std::ostream& out);

}  // namespace zebcam::tool::report
