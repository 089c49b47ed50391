#pragma once

#include <ZslRecorder.h>
#include <host/BufferLedger.h>
#include <host/ImageStreamBuffer.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/Distribution.h"
#include "base/LineWriter.h"
#include "picture/Camera.h"
#include "pipeline/CaptureBook.h"
#include "pipeline/CaptureRecord.h"
#include "pipeline/ReplayOptions.h"
#include "pipeline/SimulatedPipeline.h"
#include "run/FrameSource.h"
#include "run/ProcessorSections.h"
#include "run/ReplayResult.h"

namespace zebcam::tool::run {

/// How a pipeline runs in real time. Of `replay`, what makes a schedule of its own (presses,
/// flushes, dumps) is not used.
struct LiveOptions {
    pipeline::ReplayOptions replay;
    std::optional<int64_t> durationNs;  ///< none: until the source ends
    /// From press to press, the first one such time after the start; none: presses by hand only.
    std::optional<int64_t> pressEveryNs = 500'000'000;
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
    std::string source;  ///< what it calls itself
    double fps = 0;      ///< of the source, by its usual interval
    LiveOptions options;
    int64_t startNs = 0;               ///< boot time from which the run counts
    int64_t offsetMs = 0;              ///< ZSL offset in force
    std::optional<int64_t> plannedNs;  ///< how long it was to run; none: until somebody ends it
    std::optional<int> signal;         ///< what ended it early

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
    std::optional<base::LineWriter::Counts> log;    ///< of the lines that were shown; none were
    std::optional<picture::CameraFacts> camera;     ///< none: of a recording
    std::vector<pipeline::CaptureRecord> captures;  ///< of a camera's run; else nobody keeps them

    /// Every capture was answered, the ledger balances, nothing failed, the recording, if any, is
    /// whole, and the camera, if any, is still there or came to its end.
    bool isClean() const;
    /// The captures as a replay sums them up; where they were not kept spreads are to within a
    /// sixteenth.
    ReplaySummary summary() const;
};

/// A frame of a capture as its result comes.
struct LiveFrame {
    pipeline::CaptureRecord capture;  ///< as CaptureBook::recordOf() had it when it was built
    size_t index = 0;                 ///< within the capture
    std::shared_ptr<host::ImageContent const> content;  ///< of the image that it got; may be null
};

/// What may be heard of a live run, on its threads. Any may be empty.
struct LiveListener {
    /// Gets logcat lines; called with the processor's lock held, one line at a time.
    std::function<void(std::string const& lines)> log;
    std::function<void(uint32_t requestNo, int64_t pressNs)> press;
    std::function<void(LiveFrame const&)> frame;
};

/**
 * A pipeline in real time, with the threads that a pipeline model has: the sensor's frames come
 * from one, captures from a second, results from a third, dumps from a fourth.
 *
 * At most one at a time, beside no replay.
 */
class LiveRun {
public:
    /// Source and options are borrowed for the life of the run. The processor's log is told up to
    /// the level that the options ask for. Throws InputError when the options cannot be carried
    /// out.
    LiveRun(FrameSource& source, LiveOptions const& options, LiveListener listener);
    /// Stops the threads; a run that was not finished is flushed.
    ~LiveRun();
    LiveRun(LiveRun const&) = delete;
    LiveRun& operator=(LiveRun const&) = delete;

    void start();

    /// Presses the button, beside those presses that come by the time. Thread-safe; waits for
    /// nothing.
    void press();

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
