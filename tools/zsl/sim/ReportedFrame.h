#pragma once

#include "faults/FaultInjector.h"
#include "recording/Recording.h"

namespace zebcam::tool {

/// A sensor frame as the pipeline gets to know it.
struct ReportedFrame {
    SensorFrame frame;   ///< with the faults in it
    FrameFaults faults;  ///< what has struck it
};

}  // namespace zebcam::tool
