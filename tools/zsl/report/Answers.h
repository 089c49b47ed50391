#pragma once

#include <string>
#include <vector>

#include "log/Explanation.h"
#include "pipeline/CaptureRecord.h"
#include "report/AnswerParts.h"
#include "run/ReplayResult.h"

namespace zebcam::tool::report {

/// What the log tells of each of `captures`, in their order; null: nothing.
std::vector<log::CaptureExplanation const*> explanationsOf(
    std::vector<pipeline::CaptureRecord> const& captures, log::Explanation const* explanation);

/// For each capture of a replay why its frames are those and no others, and what its lag and its
/// wait are made of: a few sentences, on a line for each part of the capture that came back on its
/// own. Computed from what the replay knows; what it does not know is left out or said to be
/// unknown.
std::vector<std::string> answersOf(ReplayFrames const& frames, run::ReplayResult const& result,
                                   log::Explanation const& explanation);

}  // namespace zebcam::tool::report
