#pragma once

#include <host/BufferLedger.h>

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Provenance.h"
#include "log/Explanation.h"
#include "pipeline/CaptureRecord.h"
#include "pipeline/ReplayOptions.h"
#include "recording/Recording.h"
#include "run/ReplayResult.h"
#include "run/Verdict.h"

namespace zebcam::tool::report {

/// The parts that documents share, so that one thing has one name in all of them.

using Json = nlohmann::ordered_json;

template <typename T>
Json orNull(std::optional<T> const& value) {
    return value ? Json(*value) : Json(nullptr);
}

inline Json orNull(std::string const& text) {
    return text.empty() ? Json(nullptr) : Json(text);
}

template <typename Items, typename Make>
Json listOf(Items const& items, Make const& make) {
    Json list = Json::array();
    for (auto const& item : items) {
        list.push_back(make(item));
    }
    return list;
}

/// The fields of an object that are not null.
Json withoutNulls(Json const& object);

/// A name for people as a word for programs: `timed out` becomes `timedOut`.
std::string wordOf(std::string_view name);

/// Milliseconds, as options and log lines give them, as the ns that documents hold; what is out of
/// range becomes the largest or smallest number.
int64_t nsOfMs(int64_t ms);

/// The head of a document; `isClean` is whether nothing happened that must not.
Json documentOf(char const* command, bool isClean, base::Provenance const& provenance);

Json verdictJson(run::Verdict const& verdict);

/// Null without a video.
Json videoJson(std::optional<recording::VideoFacts> const& video);

/// An empty path: there is no file.
Json recordingJson(std::string const& path, std::vector<std::string> const& notes,
                   recording::RecordingFacts const& facts, int64_t firstTimestampNs);

/// `offsetMs`: the ZSL offset in force.
Json optionsJson(pipeline::ReplayOptions const& options, std::optional<int64_t> offsetMs);

/// `droppedFrames` left the history for newer ones; `errorLines` are those of the processor's log.
Json summaryJson(run::ReplaySummary const& summary, uint64_t droppedFrames, uint64_t errorLines);

/// A null `unsettled`: nobody kept the lines.
Json ledgerJson(host::BufferLedger::Totals const& totals, int64_t longestHeldNs,
                std::vector<host::LedgerLine> const* unsettled);

/// Null when no faults were asked for.
Json faultsJson(pipeline::FaultOptions const& options,
                std::optional<pipeline::FaultTally> const& tally);

/// A frame of a capture.
Json frameJson(pipeline::CaptureRecord const& capture, size_t index);

/// A capture with its frames and tries, with the explanations of those where it is not null.
Json captureJson(pipeline::CaptureRecord const& capture, log::CaptureExplanation const* explanation,
                 std::string const& answer);

/// What the log tells of one history frame that a try looked at, and of the whole try.
Json candidateJson(log::Candidate const& frame);
Json tryJson(log::TryExplanation const& attempt);

}  // namespace zebcam::tool::report
