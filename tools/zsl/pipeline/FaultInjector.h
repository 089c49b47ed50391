#pragma once

#include <policy/zsl/ISelector.h>
#include <zebcam/ThreadSafety.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "pipeline/ReplayOptions.h"

namespace zebcam::tool::pipeline {

/// What a result tells that nobody documented.
enum class Absurdity : uint8_t { FocusStates, ExposureStability, FrameSync, SensorMode };

/// What strikes one sensor frame.
struct FrameFaults {
    FaultSet kinds;
    std::optional<Absurdity> absurdity;
    int64_t lateNs = 0;         ///< by how much it arrives late
    int64_t clockBehindNs = 0;  ///< by how much its timestamp is behind boot time

    bool has(FaultKind kind) const { return kinds[static_cast<size_t>(kind)]; }
};

/// What strikes one try.
struct TryFaults {
    bool noHistory = false;
    int64_t policyPauseNs = 0;  ///< how long the policy takes
};

/**
 * Decides what goes wrong in a run, and counts it.
 *
 * Whether an opportunity is struck depends on the random seed, the kind and the number of the
 * opportunity only, not on the order of the calls, so that runs with threads repeat and one kind's
 * faults stay where they are when another is added. What is asked for at a time strikes at the
 * first call whose time is that or later.
 *
 * Times are boot times, ns. Thread-safe; its lock is a leaf.
 */
class FaultInjector {
public:
    /// `startNs`: of the first frame. `intervalNs`: between frames, the median; from it come the
    /// lengths of delays.
    FaultInjector(FaultOptions options, int64_t startNs, int64_t intervalNs);

    /// To be asked once for each frame. `frame` counts on through repetitions of a recording,
    /// `timestampNs` is its true one. Counted is what strikes it only by count().
    FrameFaults ofFrame(uint64_t frame, int64_t timestampNs);
    /// To be asked once for each try. Captures and their tries are counted from 0.
    TryFaults ofTry(size_t capture, size_t attempt, int64_t nowNs);
    /// To be asked once for each capture, at its press: PolicyThrows or PolicyNonsense, if its
    /// policy is struck.
    std::optional<FaultKind> ofPolicy(size_t capture, int64_t pressNs);
    /// When the pipeline is to be flushed because of this press, if it is.
    std::optional<int64_t> flushAfter(size_t capture, int64_t pressNs) const;
    /// When it is to be flushed whatever is pressed, in any order.
    std::vector<int64_t> flushTimes() const;
    bool isCallbackGone(int64_t nowNs) const;

    /// A fault that whoever asked has brought about: Flush, CallbackGone.
    void count(FaultKind kind);
    /// What strikes a frame that the sensor has started on.
    void count(FrameFaults const& faults);

    /// A number from 0 to `limit` - 1 for details of a fault, as repeatable as the fault itself.
    uint64_t pick(FaultKind kind, uint64_t limit, uint64_t opportunity, uint64_t part = 0) const;

    FaultTally tally() const;

private:
    bool has(FaultKind kind) const;
    bool strikes(FaultKind kind, uint64_t opportunity, uint64_t part, int64_t timeNs);
    bool strikesCounted(FaultKind kind, uint64_t opportunity, uint64_t part, int64_t timeNs);
    bool isDrawn(FaultKind kind, uint64_t opportunity, uint64_t part) const;
    bool isTimeReached(FaultKind kind, int64_t timeNs);
    bool hasBegun(FaultKind kind, int64_t timeNs) const;
    uint64_t draw(FaultKind kind, uint64_t opportunity, uint64_t part) const;

    FaultOptions const mOptions;
    int64_t const mStartNs;
    int64_t const mIntervalNs;
    mutable Mutex mLock;
    std::vector<bool> mDone GUARDED_BY(mLock);  ///< rules with a time that have struck
    std::array<uint64_t, FAULT_KINDS.size()> mStrikes GUARDED_BY(mLock){};
};

/// Null when the options ask for no faults.
std::shared_ptr<FaultInjector> makeFaultInjector(FaultOptions const& options, int64_t startNs,
                                                 int64_t intervalNs);

/// The policy that a capture gets instead of its own, for PolicyThrows or PolicyNonsense.
///
/// The one throws whenever it is asked. The other answers nonsense, each time
/// another: frames that do not exist, one frame for several indices, a frame that it also lets go,
/// orders on frames that it does not have, a frame that is in flight and may never come, or it
/// keeps every frame that it sees. It names only indices that it was asked for, because any other
/// ends the process.
std::shared_ptr<NSCam::ZslPolicy::ISelector> makeFaultySelector(
    FaultKind fault, size_t capture, std::shared_ptr<FaultInjector const> injector);

}  // namespace zebcam::tool::pipeline
