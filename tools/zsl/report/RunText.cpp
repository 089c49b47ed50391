#include "report/RunText.h"

#include <fmt/format.h>

#include <utility>

#include "base/Text.h"

namespace zebcam::tool::report {

using base::counted;
using base::TextStyle;
using base::Tone;

namespace {

/// How many frames it happened to, in its colour if it did at all.
std::string tally(TextStyle const& style, size_t count, std::string_view what, Tone tone) {
    return style.paint(fmt::format("{} {}", count, what), count > 0 ? tone : Tone::Plain);
}

/// In capitals where somebody must look, and in colour where there is some.
std::string shownLevel(TextStyle const& style, run::Level level) {
    switch (level) {
        case run::Level::Good:
            return style.paint("good", Tone::Good);
        case run::Level::Doubtful:
            return style.paint("doubtful", Tone::Doubtful);
        case run::Level::Bad:
            break;
    }
    return style.paint("BAD", Tone::Bad);
}

}  // namespace

std::string labelled(TextStyle const& style, std::string_view label, std::string_view text,
                     Tone tone) {
    return base::wrap(style.paint(label, tone), text,
                      {.indent = kLabelWidth, .columns = style.columns});
}

std::string verdictLines(TextStyle const& style, run::Verdict const& verdict, size_t labelWidth) {
    // What a failure or a log says can be of any length.
    auto const line = [&](std::string head, std::string const& text) {
        return base::wrap(std::move(head), text,
                          {.indent = labelWidth, .columns = style.columns, .cutsWords = true});
    };
    std::string text;
    for (run::VerdictReason const& reason : verdict.reasons) {
        text += line(text.empty() ? style.paint("Verdict", Tone::Heading) : "",
                     fmt::format("{}: {}", shownLevel(style, reason.level), reason.text));
        if (!reason.details.empty()) {
            bool const isAll = reason.details.size() == 1;
            text += line("", (isAll ? "" : "first: ") + reason.details.front());
        }
    }
    return text;
}

std::string videoText(recording::VideoFacts const& video) {
    char const* match = "by the column \"Video frame\"";
    switch (video.match) {
        case recording::PictureMatch::Column:
            break;
        case recording::PictureMatch::Count:
            match = "one for each frame";
            break;
        case recording::PictureMatch::Time:
            match = "by time";
            break;
        case recording::PictureMatch::Start:
            match = "by time from the first frame and the first picture on";
            break;
        case recording::PictureMatch::Itself:
            match = "the recording itself";
            break;
    }
    return fmt::format(
        "{} of {} x {}{}, {}; {}", counted(video.pictures, "picture", "pictures"), video.width,
        video.height, video.rotation != 0 ? fmt::format(", turned by {}", video.rotation) : "",
        match,
        video.framesWithout == 0 ? "every frame has one"
                                 : fmt::format("{} frames have none", video.framesWithout));
}

std::string policyText(pipeline::ReplayOptions const& options) {
    pipeline::PolicyOption const& policy = options.policy;
    std::string text =
        policy.ownName.empty() || policy.pluginPath.empty()
            ? policy.name()
            : fmt::format("{} ({})", base::printable(policy.ownName), policy.pluginPath);
    for (auto const& [name, value] : options.policyParameters) {
        text += fmt::format(" {}={}", name, base::printable(value));
    }
    return text;
}

std::string servedText(TextStyle const& style, run::ReplaySummary const& summary) {
    // In capitals, for it must not happen; what is usual is told also when it is 0.
    std::string const unanswered =
        summary.unanswered > 0 ? ", " + tally(style, summary.unanswered, "UNANSWERED", Tone::Bad)
                               : "";
    std::string const ordinary =
        summary.withoutHistory > 0
            ? fmt::format("; {} without a history frame", summary.withoutHistory)
            : "";
    return labelled(style, "Served",
                    fmt::format("{}, {}, {}, {}{}, of {}{}",
                                tally(style, summary.atOnce, "at once", Tone::Good),
                                tally(style, summary.waited, "waited", Tone::Plain),
                                tally(style, summary.timedOut, "timed out", Tone::Doubtful),
                                tally(style, summary.flushed, "flushed", Tone::Doubtful),
                                unanswered, counted(summary.frames, "frame", "frames"), ordinary));
}

std::string lagText(TextStyle const& style, base::Spread const& lag) {
    return labelled(style, "Lag",
                    lag.count == 0
                        ? "no frame came from the history"
                        : fmt::format("minimum {}, median {}, 95th percentile {}, maximum "
                                      "{} ms after the press",
                                      base::formatMs(lag.min), base::formatMs(lag.median),
                                      base::formatMs(lag.p95), base::formatMs(lag.max)));
}

std::string picturesText(TextStyle const& style, run::PictureSummary const& pictures) {
    if (pictures.count == 0) {
        return "";
    }
    std::string const blurred =
        fmt::format("{} of {} below half", pictures.belowHalf, pictures.count);
    return labelled(
        style, "Sharpness",
        fmt::format("median {:.2f}; by the sharpest in the history median {:.2f}, 5th percentile "
                    "{:.2f}, {}",
                    pictures.medianSharpness, pictures.medianShare, pictures.p5Share,
                    style.paint(blurred, pictures.belowHalf > 0 ? Tone::Doubtful : Tone::Good)));
}

std::string ledgerText(TextStyle const& style, host::BufferLedger::Totals const& totals,
                       std::vector<host::LedgerLine> const& unsettled, int64_t startNs) {
    std::string text =
        labelled(style, "Ledger",
                 fmt::format("{} handed out, {} returned, {} consumed, {} released; "
                             "{} still out, {} lost",
                             totals.handedOut, totals.returned, totals.consumed, totals.released,
                             totals.withProcessor + totals.withFrameBuilder, totals.lost));
    for (host::LedgerLine const& line : unsettled) {
        text +=
            labelled(style, "",
                     fmt::format("frame {}, handed out for capture {} at {} s: {}", line.frameNo,
                                 line.forRequestNo, base::formatSeconds(line.sinceNs - startNs),
                                 host::toString(line.holder)));
    }
    return text;
}

std::string troublesText(TextStyle const& style, uint64_t errorLines,
                         std::vector<std::string> const& failures) {
    std::string text;
    // They need not be anybody's fault, so that they change no status.
    if (errorLines > 0) {
        text += labelled(
            style, "Log",
            counted(errorLines, "error line", "error lines") + " (--log error shows them)");
    }
    for (std::string const& failure : failures) {
        text += labelled(style, "Failure", failure, Tone::Bad);
    }
    return text;
}

std::string resultText(TextStyle const& style, run::Level level, run::ReplaySummary const& summary,
                       host::BufferLedger::Totals const& ledger) {
    bool const areAnswered = summary.answeredCaptures == summary.captures;
    std::string const answers = fmt::format("{} of {} answered", summary.answeredCaptures,
                                            counted(summary.captures, "capture", "captures"));
    return labelled(style, "Result",
                    fmt::format("{}: {}, the ledger {}", shownLevel(style, level),
                                style.paint(answers, areAnswered ? Tone::Good : Tone::Bad),
                                ledger.balances() ? style.paint("balances", Tone::Good)
                                                  : style.paint("DOES NOT BALANCE", Tone::Bad)));
}

}  // namespace zebcam::tool::report
