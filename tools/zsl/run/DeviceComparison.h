#pragma once

#include <cstddef>
#include <utility>

#include "device/DeviceRecording.h"
#include "run/ReplayResult.h"

namespace zebcam::tool::run {

/// What comes of holding what a replay recorded of itself against the device's recording.
struct DeviceComparison {
    DeviceVerdict verdict;
    /// How long the two agree: operations up to the first that is not the same, and its steps.
    std::pair<size_t, size_t> agreement;
};

/// Compares the first `operations` operations, which are all that were replayed.
DeviceComparison compareDecisions(device::DeviceRecording const& recorded,
                                  device::DeviceRecording const& replayed, size_t operations);

}  // namespace zebcam::tool::run
