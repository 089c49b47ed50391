#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "log/Explanation.h"
#include "pipeline/CaptureRecord.h"

/// The captures that a log tells of, in the terms of a replay, so that both are drawn and told
/// alike.
namespace zebcam::tool::report {

/// The instant that the capture stands for, boot time; none: no try tells it. How long before the
/// press it lies a log does not always tell.
std::optional<int64_t> wantedInstantNs(log::CaptureExplanation const& capture);

/// The capture as if it had been pressed at its wanted instant, or at 0 where that is unknown. Each
/// try is as long after that as the capture was old; `historyFrames` are those that were looked at.
pipeline::CaptureRecord recordOf(log::CaptureExplanation const& capture);

/// Why the capture got its frames, and why then: a few sentences, on a line for each part of it
/// that came back on its own.
std::string answerOf(log::CaptureExplanation const& capture);

}  // namespace zebcam::tool::report
