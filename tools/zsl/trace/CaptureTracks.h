#pragma once

#include <vector>

#include "explain/Explanation.h"
#include "sim/CaptureRecord.h"
#include "trace/CaptureShape.h"
#include "trace/TraceEvents.h"
#include "trace/TraceFlows.h"

namespace zebcam::tool {

/// Writes the captures, one row of slices and one of instants for as many as overlap. `shapes` are
/// theirs; a null explanation leaves the refusals out.
void writeCaptures(TraceEvents& events, int process, std::vector<CaptureRecord> const& captures,
                   std::vector<CaptureShape> const& shapes, Explanation const* explanation,
                   TraceFlows const& flows);

/// Writes what became of the frames that came back: the reprocessing and the results.
void writeAnswers(TraceEvents& events, int process, std::vector<CaptureRecord> const& captures,
                  std::vector<CaptureShape> const& shapes, TraceFlows const& flows);

}  // namespace zebcam::tool
