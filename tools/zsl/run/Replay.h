#pragma once

#include <host/LogCapture.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "pipeline/ReplayOptions.h"
#include "pipeline/SimulatedPipeline.h"
#include "recording/Recording.h"
#include "run/CapturePictures.h"
#include "run/ReplayResult.h"

namespace zebcam::tool::run {

/// How many frames were where from an instant on.
struct OccupancySample {
    int64_t bootTimeNs = 0;
    pipeline::Occupancy occupancy;
};

/// What may be heard while a replay runs. Any may be empty.
struct ReplayListener {
    std::function<void(size_t frames, size_t total)> progress;  ///< frames that have arrived
    /// A line of the log up to the level asked for; `timeNs` counts from the first frame.
    std::function<void(int64_t timeNs, host::LogLine const& line)> log;
    /// Whether the log told nothing new of the newest try of a capture, which found what the one
    /// before did, or whatever it told; the two are then kept as one. Empty: nobody looks at the
    /// log.
    std::function<bool(uint32_t requestNo, bool evenIfUnlike)> isRepeat;
    /// The try that begins is kept as one with the one before, and the log leaves it out. Empty:
    /// the log is wanted whole.
    std::function<void(uint32_t requestNo, int64_t ageMs)> skipRepeat;
    std::vector<OccupancySample>* occupancy = nullptr;  ///< gets one for each instant, as it ends
    PictureWishes pictures{};

    /// To be told after each event, if there is somebody to hear it.
    void addOccupancy(int64_t bootTimeNs, pipeline::Occupancy const& now) const;
};

/**
 * Replays `recording` through the processor, in virtual time.
 *
 * Events at one instant happen in this order: frames leave for the history, frames arrive (by
 * number), results come back, presses, dumps, flushes. The last arrival ends the recording: the
 * pipeline is flushed and the results that are due come in. Faults that were asked for are part of
 * the replay and no failures of it.
 *
 * Throws InputError when the options do not fit the recording or cannot be carried out. At most one
 * at a time.
 */
ReplayResult replay(recording::Recording const& recording, pipeline::ReplayOptions const& options,
                    ReplayListener const& listener = {});

/**
 * Where another policy than the default one left a frame without one that was chosen: makes the
 * same replay once more with the default policy, and keeps in `result` what the captures got then.
 * Not with faults, of which some strike by what a policy does. Throws as replay().
 */
void addDefaultOutcomes(recording::Recording const& recording, ReplayResult& result);

}  // namespace zebcam::tool::run
