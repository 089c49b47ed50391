#pragma once

#include <host/BufferLedger.h>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "base/Distribution.h"
#include "pipeline/CaptureRecord.h"
#include "pipeline/ReplayOptions.h"
#include "pipeline/Schedule.h"
#include "recording/Recording.h"

namespace zebcam::tool::run {

/// What is measured of one frame of a capture; none where it does not apply or nothing tells it.
/// Plain data, so that it can go from process to process.
struct FrameNumbers {
    pipeline::Served served = pipeline::Served::Unanswered;
    bool hasHistory = false;
    std::optional<int64_t> lagNs;
    std::optional<int64_t> waitNs;
    std::optional<int64_t> distanceNs;  ///< from the wanted instant to the exposure, either way
    std::optional<int64_t> exposureNs;
    std::optional<int64_t> iso;
    std::optional<bool> isFocusSettled;
    std::optional<bool> isExposureSettled;
    std::optional<double> sharpness;       ///< of the picture
    std::optional<double> sharpnessShare;  ///< see FrameOutcome
};

/// Of how many frames something was told, and in how many of those it was so.
struct Share {
    size_t count = 0;
    size_t told = 0;
};

/// How sharp the pictures of the chosen frames are, of those whose pictures are known.
struct PictureSummary {
    size_t count = 0;
    double medianSharpness = 0;
    // By the sharpest in the history when they were chosen:
    double medianShare = 0;
    double p5Share = 0;    ///< which 95 % of them do not fall below (nearest rank)
    size_t belowHalf = 0;  ///< less than half as sharp
};

/// Numbers over all frames of all captures.
struct ReplaySummary {
    size_t captures = 0;
    size_t answeredCaptures = 0;  ///< every frame came back
    size_t frames = 0;
    size_t atOnce = 0;
    size_t waited = 0;
    size_t timedOut = 0;
    size_t flushed = 0;
    size_t unanswered = 0;
    size_t withoutHistory = 0;  ///< answered as ordinary captures
    base::Spread lag;           ///< of the frames that have a history frame
    base::Spread wait;          ///< from the press to the answer, of the answered frames
    base::Spread distance{};  ///< from the wanted instant, of the frames that have a history frame
    // Of the history frames that tell it:
    Share focusSettled{};
    Share exposureSettled{};
    base::Spread exposure{};
    base::Spread iso{};  ///< in its own unit
    PictureSummary pictures{};
};

/// Of every frame of every capture. `offsetMs` is the ZSL offset in force.
std::vector<FrameNumbers> measure(std::vector<pipeline::CaptureRecord> const& captures,
                                  int64_t offsetMs);

/// The numbers of frames; how many captures they belong to is left out.
ReplaySummary summarize(std::vector<FrameNumbers> const& frames);
ReplaySummary summarize(std::vector<pipeline::CaptureRecord> const& captures, int64_t offsetMs);

/// Adds to each frame of a capture what `find` has of its history frame, by frame number, and how
/// sharp its picture was among those of the history; null: it has nothing.
void addChosenFrames(std::vector<pipeline::CaptureRecord>& captures,
                     std::function<recording::SensorFrame const*(uint32_t frameNo)> const& find);

/// A dump of every debuggee.
struct DebugDump {
    int64_t timeNs = 0;  ///< from the first frame
    std::vector<std::string> lines;
};

/// A condition that a run was not to meet, and what it was held against.
struct LimitCheck {
    std::string limit;  ///< as it was given, `p95_lag_ms>50`
    std::string field;
    std::optional<double> found;  ///< none: the field has no value, which breaks every limit
    bool isBroken = false;

    /// `p95_lag_ms is 66.7 (--fail-if p95_lag_ms>50)`.
    std::string text() const;
};

/// What came of holding a replay against the device whose recording it replays.
struct DeviceVerdict {
    size_t operations = 0;   ///< that were replayed
    size_t builtFrames = 0;  ///< by the device
    size_t sameFrames = 0;   ///< built just so by the replay
    size_t operationsThatDiffer = 0;
    std::vector<std::string> differences;  ///< the first ones

    bool isSame() const { return operationsThatDiffer == 0; }
};

/// A frame's picture in small.
struct PictureCopy {
    std::string jpeg;
    uint32_t width = 0;
    uint32_t height = 0;
};

/// Everything that is told of a replay.
struct ReplayResult {
    std::string path;
    std::vector<std::string> notes;
    recording::RecordingFacts facts;
    int64_t firstTimestampNs = 0;  ///< boot time of the first frame
    pipeline::ReplayOptions options;
    int64_t offsetMs = 0;  ///< ZSL offset in force, over all its properties

    std::vector<pipeline::CaptureRecord> captures;
    ReplaySummary summary;
    /// What became of each capture's frames when all had the default policy instead; see
    /// addDefaultOutcomes(). Empty: nobody looked.
    std::vector<std::vector<pipeline::FrameOutcome>> byDefault;
    /// By frame number, of those that the captures could have had when they were served, or that
    /// policies kept, and of their press frames. Empty unless somebody wants to look at them.
    std::map<uint32_t, PictureCopy> pictures;
    std::string pictureFolder;              ///< of the captures' files; empty: nobody wanted them
    std::vector<std::string> pictureFiles;  ///< their names in it
    host::BufferLedger::Totals ledger;
    std::vector<host::LedgerLine> unsettled;  ///< buffer sets that were not given back
    int64_t longestHeldNs = 0;
    uint64_t droppedFrames = 0;  ///< left the history because newer ones came
    uint64_t errorLines = 0;     ///< error lines of the processor's log
    std::vector<DebugDump> dumps;
    std::optional<pipeline::FaultTally> faults;  ///< none when none were asked for
    /// When each frame of the recording first arrived, boot time; none: it was lost. Empty without
    /// faults, where the schedule tells.
    std::vector<std::optional<int64_t>> arrivalsNs;
    /// Each frame of the recording as the pipeline told it, with what struck it. Empty without
    /// faults, where the recording tells.
    std::vector<pipeline::ReportedFrame> reported;
    std::optional<DeviceVerdict> device;  ///< only of a device's recording
    std::vector<LimitCheck> limits;       ///< that somebody has set
    std::vector<std::string> failures;    ///< exceptions, answers that nobody asked for, held locks

    /// Another policy than the default one left a frame without one that was chosen.
    bool mayDefaultDoBetter() const;

    /// What struck a frame of the recording.
    pipeline::FaultSet faultsOf(uint32_t frameNo) const;

    /// Every limit is kept, every capture was answered, the ledger balances and nothing failed; of
    /// a device's recording, which may end anywhere: every limit is kept, every decision is the
    /// device's and nothing failed.
    bool isClean() const;
};

}  // namespace zebcam::tool::run
