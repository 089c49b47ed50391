#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/Distribution.h"
#include "base/TextStyle.h"
#include "host/BufferLedger.h"
#include "pipeline/ReplayOptions.h"
#include "run/Replay.h"
#include "run/Verdict.h"

/// The lines that tell of a run whether it was replayed or live, each with its label before it.
namespace zebcam::tool::report {

std::string labelled(base::TextStyle const& style, std::string_view label, std::string_view text,
                     base::Tone tone = base::Tone::Heading);

/// How far the texts are from the left edge.
inline constexpr size_t kLabelWidth = 11;

/// How the run is to be taken, and why.
std::string verdictLines(base::TextStyle const& style, run::Verdict const& verdict,
                         size_t labelWidth = kLabelWidth);

/// How large a video is, by what its pictures were found for frames, and for how many there is
/// none. Without a label and the path.
std::string videoText(recording::VideoFacts const& video);

/// The policy by its own name, with its file and what it was given. Without a label.
std::string policyText(pipeline::ReplayOptions const& options);

std::string servedText(base::TextStyle const& style, run::ReplaySummary const& summary);
std::string lagText(base::TextStyle const& style, base::Spread const& lag);
/// Empty without pictures.
std::string picturesText(base::TextStyle const& style, run::PictureSummary const& pictures);

/// Each buffer set that did not come back has its time from boot time `startNs` on.
std::string ledgerText(base::TextStyle const& style, host::BufferLedger::Totals const& totals,
                       std::vector<host::LedgerLine> const& unsettled, int64_t startNs);

std::string troublesText(base::TextStyle const& style, uint64_t errorLines,
                         std::vector<std::string> const& failures);

/// The last line, which repeats the verdict: the head of a long table is out of sight.
std::string resultText(base::TextStyle const& style, run::Level level,
                       run::ReplaySummary const& summary, host::BufferLedger::Totals const& ledger);

}  // namespace zebcam::tool::report
