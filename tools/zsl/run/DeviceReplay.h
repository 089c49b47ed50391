#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <utility>

#include "device/DeviceRecording.h"
#include "recording/Recording.h"
#include "run/Replay.h"
#include "run/ReplayResult.h"

namespace zebcam::tool::run {

/// What came of a replay of a device's recording.
struct DeviceReplayResult {
    ReplayResult replay;          ///< has a verdict
    recording::Recording frames;  ///< those that the device's history offered
};

/**
 * Carries a recording's operations out again, with the real processor and the recorded
 * surroundings, at the recorded times, and compares what it does with what it did on the device.
 *
 * Throws InputError when a recorded property cannot be set or the replay cannot be recorded. At
 * most one at a time.
 */
DeviceReplayResult replayDevice(device::DeviceRecording const& recording, uint32_t logLevel = 0,
                                ReplayListener const& listener = {});

/// What the clocks showed when the processor took a capture, by position among the submissions,
/// where it is not to be what the recording says at first glance.
using AssumedInstants = std::map<size_t, record::ClockReading>;

/// What one run through a recording did.
struct DeviceRunResult {
    /// As a recorder around the processor saw it. Which history frames were built is the ledger's
    /// word where the frames have images.
    device::DeviceRecording replayed;
    /// Captures, ledger, error lines and failures; the rest is whoever makes the replay's.
    ReplayResult replay;
};

/// Carries the first `operations` operations out once, with the real processor under a recorder of
/// its own. The recorded properties must be set. The listener's log tells boot times.
DeviceRunResult runDevice(device::DeviceRecording const& recording, AssumedInstants const& instants,
                          size_t operations, uint32_t logLevel, ReplayListener const& listener);

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
