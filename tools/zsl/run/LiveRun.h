#pragma once

#include <ZslRecorder.h>
#include <host/BufferLedger.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/Distribution.h"
#include "base/LineWriter.h"
#include "pipeline/CaptureBook.h"
#include "pipeline/ReplayOptions.h"
#include "pipeline/SimulatedPipeline.h"
#include "recording/Recording.h"
#include "run/ProcessorSections.h"
#include "run/ReplayResult.h"

namespace zebcam::tool::run {

/// How a pipeline runs in real time. Of `replay`, what makes a schedule of its own (presses,
/// flushes, dumps) is not used.
struct LiveOptions {
    pipeline::ReplayOptions replay;
    std::optional<int64_t> durationNs;      ///< none: once through the recording
    int64_t pressEveryNs = 500'000'000;     ///< the first press comes one such time after the start
    int64_t dumpEveryNs = 1'000'000'000;    ///< at least 1 ms
    std::optional<std::string> recordPath;  ///< where a recorder writes what the processor sees
};

/// How a live run stands.
struct LiveStatus {
    int64_t elapsedNs = 0;
    uint64_t arrivedFrames = 0;
    uint64_t dumps = 0;
    pipeline::CaptureTotals captures;
    pipeline::Occupancy occupancy;
    host::BufferLedger::Totals ledger;
};

/// What is told of a live run once it is over.
struct LiveResult {
    std::string source;  ///< path of the recording, or what was generated
    double fps = 0;      ///< of the source, by its median interval
    LiveOptions options;
    int64_t startNs = 0;        ///< boot time at which the first frame was exposed
    int64_t offsetMs = 0;       ///< ZSL offset in force
    int64_t plannedNs = 0;      ///< how long it was to run
    std::optional<int> signal;  ///< what ended it early

    LiveStatus status;
    base::Distribution lateness;  ///< by how much arrivals came after their time
    OperationTimes times;
    std::vector<host::LedgerLine> unsettled;
    int64_t longestHeldNs = 0;
    uint64_t droppedFrames = 0;
    uint64_t errorLines = 0;
    std::optional<pipeline::FaultTally> faults;  ///< none were asked for
    std::vector<std::string> failures;
    std::optional<NSCam::v3::pipeline::model::ZslRecorderStatus> recorder;
    std::optional<base::LineWriter::Counts> log;  ///< of the lines that were shown; none were

    /// Every capture was answered, the ledger balances, nothing failed and the recording, if any,
    /// is whole.
    bool isClean() const;
    /// The captures as a replay sums them up; spreads are to within a sixteenth.
    ReplaySummary summary() const;
};

/**
 * A pipeline in real time, with the threads that a pipeline model has: the sensor's frames come
 * from one, captures from a second, results from a third, dumps from a fourth. The recording is
 * repeated as often as the time asks for.
 *
 * At most one at a time, beside no replay.
 */
class LiveRun {
public:
    /// Gets logcat lines; called on any thread with the processor's lock held, one line at a time.
    using LogSink = std::function<void(std::string const& lines)>;

    /// Recording and options are borrowed for the life of the run. `log` gets the processor's log
    /// up to the level that the options ask for. Throws InputError when the options cannot be
    /// carried out.
    LiveRun(recording::Recording const& recording, LiveOptions const& options, LogSink log);
    /// Stops the threads; a run that was not finished is flushed.
    ~LiveRun();
    LiveRun(LiveRun const&) = delete;
    LiveRun& operator=(LiveRun const&) = delete;

    void start();

    /// The sensor has no more frames.
    bool isOver() const;
    LiveStatus status() const;

    /// Stops sensor and captures, flushes, waits for the results and tells everything. Once.
    LiveResult finish();

private:
    class Threads;
    std::unique_ptr<Threads> const mThreads;
};

}  // namespace zebcam::tool::run
