#pragma once

#include <string>

#include "run/LiveRun.h"

namespace zebcam::tool::report {

/// One line on how a run stands.
std::string statusLine(run::LiveStatus const& status);

/// What is told once a run is over.
std::string liveReport(run::LiveResult const& result);

/// Why a recording ended; empty while it has not.
std::string toString(NSCam::v3::pipeline::model::ZslRecordingEnd end);

}  // namespace zebcam::tool::report
