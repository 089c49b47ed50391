#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "log/Explanation.h"
#include "pipeline/CaptureRecord.h"
#include "report/TraceEvents.h"

namespace zebcam::tool::report {

/// Frames of a capture that came back together. Times are boot times.
struct Answer {
    size_t capture = 0;  ///< position among the captures
    int64_t timeNs = 0;
    std::optional<int64_t> resultNs;
    int64_t endNs = 0;  ///< of the mark of the result
    bool isFlush = false;
    bool isFromHistory = false;  ///< at least one of the frames
    std::vector<size_t> frames;  ///< indices within the capture
};

/// A time in which the processor owed frames.
struct Wait {
    int64_t beginNs = 0;
    int64_t endNs = 0;
    size_t frames = 0;
};

/// A capture as it is drawn: a slice from the press to its last result. The waits follow each other
/// in it, and the press, an instant, gets some length that fits in the first of them.
struct CaptureShape {
    int64_t endNs = 0;
    int64_t pressEndNs = 0;
    std::vector<Wait> waits;
    std::vector<Answer> answers;  ///< ascending in time
};

/// `markNs`: length of a drawn instant, more than 0; `replayEndNs`: until when an unanswered frame
/// waits.
CaptureShape shapeOf(pipeline::CaptureRecord const& record, size_t capture, int64_t markNs,
                     int64_t replayEndNs);

/// Writes the captures, one row of slices and one of instants for as many as overlap. `shapes` are
/// theirs; a null explanation leaves the refusals out.
void writeCaptures(TraceEvents& events, int process,
                   std::vector<pipeline::CaptureRecord> const& captures,
                   std::vector<CaptureShape> const& shapes, log::Explanation const* explanation,
                   TraceFlows const& flows);

/// Writes what became of the frames that came back: the reprocessing and the results.
void writeAnswers(TraceEvents& events, int process,
                  std::vector<pipeline::CaptureRecord> const& captures,
                  std::vector<CaptureShape> const& shapes, TraceFlows const& flows);

}  // namespace zebcam::tool::report
