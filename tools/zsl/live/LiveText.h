#pragma once

#include <string>

#include "live/LiveResult.h"

namespace zebcam::tool {

/// One line on how a run stands.
std::string statusLine(LiveStatus const& status);

/// What is told once a run is over.
std::string liveReport(LiveResult const& result);

/// Why a recording ended; empty while it has not.
std::string toString(NSCam::v3::pipeline::model::ZslRecordingEnd end);

}  // namespace zebcam::tool
