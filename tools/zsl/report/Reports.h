#pragma once

#include <nlohmann/json.hpp>

#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "base/Provenance.h"
#include "base/TextStyle.h"
#include "compare/Comparison.h"
#include "log/Explanation.h"
#include "pipeline/CaptureRecord.h"
#include "recording/Recording.h"
#include "recording/RecordingGenerator.h"
#include "run/LiveRun.h"
#include "run/ProcessorSections.h"
#include "run/Replay.h"

namespace zebcam::tool::run {
struct CameraShot;
}

/// What the commands tell, in each form that they tell it in. Where an explanation may be null it
/// is of the replay's log, and without it nothing says why frames were refused. What is written to
/// a stream leaves its errors in the stream's state.
namespace zebcam::tool::report {

class ReplayFrames;

// For people: text as wide as the style has it, but for names that are longer themselves.

/// How reasons are told.
struct ReasonsStyle {
    base::TextStyle style;
    bool isVerbose = false;  ///< every try and frame on its own, times in ns, numbers of streams
    log::StreamNames names = {};
    std::vector<uint32_t> requests = {};  ///< of these captures only; empty: of all
};

/// What a replay knows of a capture beyond its log; on loan.
struct ReplayedCapture {
    std::string_view answer;
    pipeline::CaptureRecord const& record;
    ReplayFrames const& frames;
};

/// A replay: facts, table, reasons if there are any, dumps, summary.
std::string textReport(recording::Recording const& recording, run::ReplayResult const& result,
                       log::Explanation const* explanation = nullptr, ReasonsStyle const& how = {});

/// Whether a device decided as its replay does; the last part of the above.
std::string verdictText(run::DeviceVerdict const& verdict, base::TextStyle const& style = {});

/// One line on how a live run stands.
std::string statusLine(run::LiveStatus const& status, base::TextStyle const& style = {});

/// The head of a camera's run.
std::string cameraText(picture::CameraFacts const& camera, base::TextStyle const& style = {});

/// What went wrong with a camera so far; empty: nothing.
std::string cameraTroubles(picture::CameraFacts const& camera);

/// One line on a frame of a capture that came back. Its time counts from boot time `startNs` on.
std::string shotLine(run::CameraShot const& shot, int64_t startNs);

/// What is told once a live run is over.
std::string liveReport(run::LiveResult const& result, base::TextStyle const& style = {});

/// An explained log: a block for each capture with a table for each try, then what is left pending,
/// given back and wrong, the counts and the verdict. Its words are cut where they fill a line.
/// Tries that waited alike are told once, and times are told by their distance, unless it is to be
/// verbose. Captures that are over are left out where they were told when they were.
std::string explanationText(log::Explanation const& explanation, base::TextStyle const& style = {},
                            bool isVerbose = false, bool leavesOutOver = false);

/// One capture; a part of the above. `replayed` is null of a log that no replay wrote.
std::string captureText(log::CaptureExplanation const& capture, ReasonsStyle const& how,
                        ReplayedCapture const* replayed = nullptr);

/// A comparison: a table for each recording with the settings that differ, one for all recordings,
/// who is best in which field, and what changed since the baseline.
std::string comparisonTable(compare::Comparison const& comparison,
                            base::TextStyle const& style = {});

/// What went wrong: a line for each problem, each broken limit and each run that is worse than the
/// baseline's, which names recording and settings. What fails alike under every setting of a
/// recording is told once.
std::string comparisonComplaints(compare::Comparison const& comparison);

// For programs. docs/json.md lists every field; a field is always there, and null where it does not
// apply.

nlohmann::ordered_json toJson(recording::Recording const& recording,
                              run::ReplayResult const& result, log::Explanation const* explanation,
                              base::Provenance const& provenance = {});

/// `recording` is what the run played, without a path if it was generated; null of a camera.
nlohmann::ordered_json toJson(run::LiveResult const& result, recording::Recording const* recording,
                              base::Provenance const& provenance = {});

nlohmann::ordered_json toJson(compare::Comparison const& comparison,
                              base::Provenance const& provenance = {});

/// `path` is that of the log, empty for standard input.
nlohmann::ordered_json toJson(log::Explanation const& explanation, std::string const& path = "",
                              base::Provenance const& provenance = {});

nlohmann::ordered_json toJson(recording::GeneratorOptions const& options,
                              recording::Recording const& made,
                              base::Provenance const& provenance = {});

/// Writes a document for people to read as well.
void writeJson(nlohmann::ordered_json const& document, std::ostream& out);

/// The same of a replay's document, without having all of it in memory.
void writeJson(recording::Recording const& recording, run::ReplayResult const& result,
               log::Explanation const* explanation, base::Provenance const& provenance,
               std::ostream& out);

/// A header and a line for each row, with LF line ends; docs/compare.md describes the columns.
void writeCsv(compare::Comparison const& comparison, std::ostream& out);

/// A comparison for a pull request: totals, ranking and what changed first, then each recording.
void writeMarkdown(compare::Comparison const& comparison, std::ostream& out);

// To be looked at.

/// Writes a replay as one HTML page that needs nothing else to open. docs/report.md says what it
/// shows.
void writeHtmlReport(recording::Recording const& recording, run::ReplayResult const& result,
                     log::Explanation const* explanation, base::Provenance const& provenance,
                     std::ostream& out);

/// The same of what a log shows: captures with their tries, verdicts and answers. `path` is that of
/// the log, empty for standard input.
void writeHtmlReport(log::Explanation const& explanation, std::string const& path,
                     base::Provenance const& provenance, std::ostream& out);

/// The same of a comparison. `path` is the page's own, from which it links to those of its runs.
void writeHtmlReport(compare::Comparison const& comparison, base::Provenance const& provenance,
                     std::string const& path, std::ostream& out);

/// What a trace shows. Everything is on loan.
struct TraceInput {
    recording::Recording const& recording;
    run::ReplayResult const& result;
    log::Explanation const* explanation;
    std::vector<run::OccupancySample> const& occupancy;
    std::vector<run::ProcessorSection> const& sections;
    base::Provenance provenance = {};
};

/// Writes a replay as a trace for ui.perfetto.dev, in the Trace Event Format. docs/trace.md says
/// what the tracks show.
void writeTrace(TraceInput const& input, std::ostream& out);

/// The same of what a log shows: captures with their tries, verdicts and answers. `path` is that of
/// the log, empty for standard input.
void writeTrace(log::Explanation const& explanation, std::string const& path, std::ostream& out);

}  // namespace zebcam::tool::report
