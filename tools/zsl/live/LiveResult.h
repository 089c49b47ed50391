#pragma once

#include <ZslRecorder.h>
#include <host/BufferLedger.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "faults/FaultTally.h"
#include "live/Distribution.h"
#include "live/LiveOptions.h"
#include "live/TimingProbe.h"
#include "sim/CaptureBook.h"
#include "sim/SimulatedPipeline.h"

namespace zebcam::tool {

/// How a live run stands.
struct LiveStatus {
    int64_t elapsedNs = 0;
    uint64_t arrivedFrames = 0;
    uint64_t dumps = 0;
    CaptureTotals captures;
    Occupancy occupancy;
    host::BufferLedger::Totals ledger;
};

/// What is told of a live run once it is over.
struct LiveResult {
    std::string source;  ///< path of the recording, or what was generated
    double fps = 0;      ///< of the source, by its median interval
    LiveOptions options;
    int64_t startNs = 0;        ///< boot time at which the first frame was exposed
    int64_t offsetMs = 0;       ///< ZSL offset in force
    std::optional<int> signal;  ///< what ended it early

    LiveStatus status;
    Distribution lateness;  ///< by how much arrivals came after their time
    OperationTimes times;
    std::vector<host::LedgerLine> unsettled;
    int64_t longestHeldNs = 0;
    uint64_t droppedFrames = 0;
    uint64_t errorLines = 0;
    std::optional<FaultTally> faults;  ///< none were asked for
    std::vector<std::string> failures;
    std::optional<NSCam::v3::pipeline::model::ZslRecorderStatus> recorder;

    /// Every capture was answered, the ledger balances, nothing failed and the recording, if any,
    /// is whole.
    bool isClean() const;
};

}  // namespace zebcam::tool
