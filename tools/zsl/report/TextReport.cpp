#include "report/Reports.h"

#include <fmt/format.h>
#include <metadata/MetadataTags.h>

#include <algorithm>
#include <array>
#include <initializer_list>
#include <utility>
#include <vector>

#include "base/Table.h"
#include "base/Text.h"
#include "pipeline/FrameFactory.h"
#include "recording/FrameStates.h"
#include "report/Answers.h"
#include "report/RunText.h"
#include "run/Verdict.h"

namespace zebcam::tool::report {

using base::counted;
using base::TextStyle;
using base::Tone;

namespace {

std::string limitsText(TextStyle const& style, std::vector<run::LimitCheck> const& limits) {
    std::string text;
    for (run::LimitCheck const& limit : limits) {
        text += labelled(style, text.empty() ? "Limits" : "",
                         fmt::format("{}: {}", limit.text(),
                                     limit.isBroken ? style.paint("BROKEN", Tone::Bad)
                                                    : style.paint("kept", Tone::Good)));
    }
    return text;
}

std::string gapsOf(recording::RecordingFacts const& facts) {
    if (facts.gaps == 0) {
        return "no gaps";
    }
    return fmt::format("{} up to {} ms", counted(facts.gaps, "gap", "gaps"),
                       base::formatMs(facts.largestGapNs));
}

// Most recordings lack none, or one that its phone never tells.
std::string missingOf(recording::RecordingFacts const& facts) {
    std::string text;
    recording::MissingStates const& missing = facts.missing;
    for (auto const& [name, count] : {std::pair{"AF mode", missing.afMode},
                                      {"AF state", missing.afState},
                                      {"lens state", missing.lensState},
                                      {"AE stable", missing.aeStable},
                                      {"frame sync", missing.frameSync},
                                      {"sensor id", missing.sensorId},
                                      {"sensor mode", missing.sensorMode}}) {
        if (count > 0) {
            text += fmt::format("{}{} of {}", text.empty() ? "" : ", ", name,
                                counted(count, "frame", "frames"));
        }
    }
    return text;
}

std::string optionalMs(std::optional<int64_t> ns) {
    return ns ? base::formatMs(*ns) : "-";
}

std::string factsText(TextStyle const& style, run::ReplayResult const& result) {
    recording::RecordingFacts const& facts = result.facts;
    std::string text = labelled(style, "Recording", result.path);
    text +=
        labelled(style, "",
                 fmt::format("{} frames in {} s, {:.2f} frames/s, median interval {} ms, {}",
                             facts.frames, base::formatSeconds(facts.lengthNs), facts.meanRateFps,
                             base::formatMs(facts.medianIntervalNs), gapsOf(facts)));
    if (std::string const missing = missingOf(facts); !missing.empty()) {
        text += labelled(style, "", "missing: " + missing);
    }
    if (facts.framesWithError > 0) {
        text +=
            labelled(style, "",
                     counted(facts.framesWithError, "frame", "frames") + " with an unusable image");
    }
    for (std::string const& note : result.notes) {
        text += labelled(style, "", "note: " + note);
    }
    if (facts.video) {
        text += labelled(style, "Video", facts.video->path) +
                labelled(style, "", videoText(*facts.video));
    }
    pipeline::ReplayOptions const& options = result.options;
    text += labelled(
        style, "Replay",
        fmt::format("policy {}, {} of {}, history of {}, "
                    "ZSL offset {} ms{}",
                    policyText(options), counted(result.summary.captures, "capture", "captures"),
                    counted(options.framesPerCapture, "frame", "frames"),
                    counted(options.history, "frame", "frames"), result.offsetMs,
                    options.frameSync ? ", frame sync" : ""));
    return text + (result.faults ? labelled(style, "Faults", result.faults->text()) : "");
}

Tone toneOf(pipeline::Served served) {
    switch (served) {
        case pipeline::Served::AtOnce:
            return Tone::Good;
        case pipeline::Served::Waited:
            return Tone::Plain;
        case pipeline::Served::TimedOut:
        case pipeline::Served::Flushed:
            return Tone::Doubtful;
        case pipeline::Served::Unanswered:
            return Tone::Bad;
    }
    return Tone::Plain;
}

/// What struck a capture, told with its first frame, and the history frame that it got.
std::string faultsText(run::ReplayResult const& result, pipeline::CaptureRecord const& capture,
                       size_t index) {
    auto const& chosen = capture.frames[index].historyFrame;
    std::string text =
        index == 0 ? fmt::format("{}", fmt::join(pipeline::namesOf(capture.faults), ", ")) : "";
    pipeline::FaultSet const struck = chosen ? result.faultsOf(*chosen) : pipeline::FaultSet{};
    if (struck.any()) {
        text += fmt::format("{}frame {}: {}", text.empty() ? "" : "; ", *chosen,
                            fmt::join(pipeline::namesOf(struck), ", "));
    }
    return text;
}

std::string tableText(TextStyle const& style, run::ReplayResult const& result) {
    using enum base::Table::Kind;
    base::Table table({{.title = "capture", .isKey = true},
                       {.title = "pressed (s)"},
                       {.title = "frame"},
                       {.title = "history frame"},
                       {.title = "lag (ms)", .width = 10},
                       {.title = "served", .kind = Text, .width = 10},
                       {.title = "waited (ms)"},
                       {.title = "early shutter (ms)"}});
    for (pipeline::CaptureRecord const& capture : result.captures) {
        // Relative to the press, like the lag that it foretells.
        std::optional<int64_t> shutter = capture.earlyShutterNs;
        if (shutter) {
            *shutter -= capture.pressNs;
        }
        for (size_t index = 0; index < capture.frames.size(); ++index) {
            pipeline::FrameOutcome const& frame = capture.frames[index];
            table.addRow({std::to_string(capture.requestNo),
                          base::formatSeconds(capture.pressNs - result.firstTimestampNs),
                          std::to_string(index),
                          frame.historyFrame ? std::to_string(*frame.historyFrame) : "-",
                          optionalMs(capture.lagNs(frame)),
                          style.paint(toString(frame.served), toneOf(frame.served)),
                          optionalMs(capture.waitNs(frame)), optionalMs(shutter)});
            if (std::string const faults = faultsText(result, capture, index); !faults.empty()) {
                table.addBelow(base::wrap("         injected:", faults,
                                          {.indent = 19, .columns = style.columns}));
            }
        }
    }
    return table.text(style);
}

/// Painted where it may spoil the picture; empty: not told.
std::string settlingText(TextStyle const& style, std::string const& word,
                         std::optional<bool> isSettled) {
    return style.paint(word, isSettled.value_or(true) ? Tone::Plain : Tone::Doubtful);
}

/// A number in that form; empty: not told.
template <typename Number>
std::string numberText(char const* form, std::optional<Number> const& value) {
    return value ? fmt::format(fmt::runtime(form), *value) : std::string();
}

/// Of the picture, if there is one.
std::string measureText(char const* form, recording::SensorFrame const& frame,
                        float recording::PictureMeasures::*measure) {
    return frame.picture ? numberText(form, std::optional((*frame.picture).*measure))
                         : std::string();
}

/// A column of what is known of the chosen frames.
struct ChosenColumn {
    char const* title;
    base::Table::Kind kind;
    /// Of a frame for which one was chosen; empty: not told.
    std::string (*value)(TextStyle const& style, pipeline::FrameOutcome const& frame);
};

using Outcome = pipeline::FrameOutcome;
using Measures = recording::PictureMeasures;
constexpr double kHalf = 0.5;

constexpr ChosenColumn kChosenColumns[] = {
    {"exposure (ms)", base::Table::Kind::Number,
     [](TextStyle const&, Outcome const& frame) {
         auto const ns = recording::exposureNs(*frame.chosen);
         return ns ? base::formatMs(*ns) : std::string();
     }},
    {"ISO", base::Table::Kind::Number,
     [](TextStyle const&, Outcome const& frame) { return numberText("{}", frame.chosen->iso); }},
    {"focus (1/m)", base::Table::Kind::Number,
     [](TextStyle const&, Outcome const& frame) {
         return numberText("{:.2f}", frame.chosen->focusDistance);
     }},
    {"AF state", base::Table::Kind::Text,
     [](TextStyle const& style, Outcome const& frame) {
         auto const& state = frame.chosen->afState;
         return settlingText(style, state ? recording::afStateName(*state) : "",
                             recording::isFocusSettled(*frame.chosen));
     }},
    {"lens", base::Table::Kind::Text,
     [](TextStyle const& style, Outcome const& frame) {
         // Shorter than Android's word, so that the table fits a page.
         auto const& state = frame.chosen->lensState;
         std::string const word = !state ? ""
                                  : *state == NSCam::LENS_STATE_STATIONARY
                                      ? "at rest"
                                      : recording::lensStateName(*state);
         return settlingText(style, word, recording::isFocusSettled(*frame.chosen));
     }},
    {"AE", base::Table::Kind::Text,
     [](TextStyle const& style, Outcome const& frame) {
         auto const isSettled = recording::isExposureSettled(*frame.chosen);
         return settlingText(style, isSettled ? *isSettled ? "settled" : "changing" : "",
                             isSettled);
     }},
    {"sharpness", base::Table::Kind::Number,
     [](TextStyle const&, Outcome const& frame) {
         return measureText("{:.2f}", *frame.chosen, &Measures::sharpness);
     }},
    {"of best", base::Table::Kind::Number,
     [](TextStyle const& style, Outcome const& frame) {
         bool const isBlurred = frame.sharpnessShare.value_or(1) < kHalf;
         return style.paint(numberText("{:.2f}", frame.sharpnessShare),
                            isBlurred ? Tone::Doubtful : Tone::Plain);
     }},
    {"motion", base::Table::Kind::Number,
     [](TextStyle const&, Outcome const& frame) {
         auto const& picture = frame.chosen->picture;
         return picture ? numberText("{:.1f}", picture->motion) : std::string();
     }},
    {"brightness", base::Table::Kind::Number,
     [](TextStyle const&, Outcome const& frame) {
         return measureText("{:.0f}", *frame.chosen, &Measures::brightness);
     }},
    {"clipped", base::Table::Kind::Number,
     [](TextStyle const&, Outcome const& frame) {
         return measureText("{:.4f}", *frame.chosen, &Measures::clipped);
     }},
};

/// What is known of the frames that were chosen; what is known of none is left out.
std::string chosenText(TextStyle const& style, run::ReplayResult const& result) {
    std::vector<std::vector<std::string>> rows;
    std::array<bool, std::size(kChosenColumns)> isTold{};
    for (pipeline::CaptureRecord const& capture : result.captures) {
        for (size_t index = 0; index < capture.frames.size(); ++index) {
            pipeline::FrameOutcome const& frame = capture.frames[index];
            if (!frame.chosen) {
                continue;
            }
            auto& row = rows.emplace_back(std::vector{std::to_string(capture.requestNo),
                                                      std::to_string(index),
                                                      std::to_string(frame.chosen->frameNo)});
            for (size_t i = 0; i < isTold.size(); ++i) {
                row.push_back(kChosenColumns[i].value(style, frame));
                isTold[i] = isTold[i] || !row.back().empty();
            }
        }
    }
    constexpr size_t kKeys = 3;
    std::vector<base::Table::Column> columns = {{.title = "capture", .isKey = true},
                                                {.title = "frame", .isKey = true},
                                                {.title = "history frame", .isKey = true}};
    for (size_t i = 0; i < isTold.size(); ++i) {
        if (isTold[i]) {
            columns.push_back({.title = kChosenColumns[i].title, .kind = kChosenColumns[i].kind});
        }
    }
    if (columns.size() == kKeys) {
        return "";
    }
    base::Table table(std::move(columns));
    for (std::vector<std::string> const& row : rows) {
        std::vector<std::string> cells(row.begin(), row.begin() + kKeys);
        for (size_t i = 0; i < isTold.size(); ++i) {
            if (isTold[i]) {
                cells.push_back(row[kKeys + i].empty() ? "-" : row[kKeys + i]);
            }
        }
        table.addRow(std::move(cells));
    }
    return table.text(style) + "\n";
}

std::string dumpsText(run::ReplayResult const& result) {
    std::string text;
    for (run::DebugDump const& dump : result.dumps) {
        text += fmt::format("Dump at {} s\n", base::formatSeconds(dump.timeNs));
        for (std::string const& line : dump.lines) {
            text += fmt::format("  {}\n", line);
        }
    }
    return text;
}

}  // namespace

std::string verdictText(run::DeviceVerdict const& verdict, TextStyle const& style) {
    if (verdict.isSame()) {
        return labelled(style, "Device",
                        fmt::format("{} in {} operations: {} of {} frames",
                                    style.paint("same decisions", Tone::Good), verdict.operations,
                                    verdict.sameFrames, verdict.builtFrames));
    }
    // In capitals: to be the same is what the recording is replayed for.
    std::string text = labelled(
        style, "Device",
        fmt::format("{} in {} of {} operations: {} of {} frames are the same",
                    style.paint("OTHER DECISIONS", Tone::Bad), verdict.operationsThatDiffer,
                    verdict.operations, verdict.sameFrames, verdict.builtFrames));
    for (std::string const& difference : verdict.differences) {
        text += labelled(style, "", difference);
    }
    return text;
}

namespace {

/// How many pictures were written, and of which frames there was none to be written.
std::string pictureFilesText(TextStyle const& style, run::ReplayResult const& result) {
    if (result.pictureFolder.empty()) {
        return "";
    }
    std::vector<std::string> missing;
    for (pipeline::CaptureRecord const& capture : result.captures) {
        for (size_t i = 0; i < capture.frames.size(); ++i) {
            if (!capture.frames[i].pictureFile) {
                missing.push_back(fmt::format("capture {} frame {}", capture.requestNo, i));
            }
        }
        if (!capture.pressPictureFile) {
            missing.push_back(fmt::format("the press of capture {}", capture.requestNo));
        }
    }
    constexpr size_t kMostNamed = 8;
    std::string text = fmt::format("{} in {}", counted(result.pictureFiles.size(), "file", "files"),
                                   base::printable(result.pictureFolder));
    if (!missing.empty()) {
        size_t const named = std::min(missing.size(), kMostNamed);
        text += fmt::format(
            "; without a picture: {}",
            fmt::join(missing.begin(), missing.begin() + static_cast<std::ptrdiff_t>(named), ", "));
        text += missing.size() > named ? fmt::format(" and {} more", missing.size() - named) : "";
    }
    return labelled(style, "Pictures", text, missing.empty() ? Tone::Heading : Tone::Doubtful);
}

std::string reasonsText(recording::Recording const& recording, run::ReplayResult const& result,
                        log::Explanation const& explanation, ReasonsStyle how) {
    how.names = explanation.streamNames;
    // Lines name streams only where frames are built.
    if (!result.device) {
        pipeline::SensorStreams const streams;
        for (NSCam::v3::IStreamInfo const* const info :
             std::initializer_list<NSCam::v3::IStreamInfo const*>{
                 streams.pFullRaw.get(), streams.pHalResult.get(), streams.pAppResult.get()}) {
            how.names.emplace(fmt::format("{:x}", info->getStreamId()), info->getStreamName());
        }
    }
    ReplayFrames const frames(recording, result);
    auto const reasons = explanationsOf(result.captures, &explanation);
    auto const answers = answersOf(frames, result, explanation);
    std::string text;
    for (size_t i = 0; i < reasons.size(); ++i) {
        pipeline::CaptureRecord const& capture = result.captures[i];
        bool const isWanted =
            how.requests.empty() || std::find(how.requests.begin(), how.requests.end(),
                                              capture.requestNo) != how.requests.end();
        if (isWanted && reasons[i] != nullptr) {
            ReplayedCapture const replayed{answers[i], capture, frames};
            text += captureText(*reasons[i], how, &replayed) + "\n";
        }
    }
    return text;
}

}  // namespace

std::string textReport(recording::Recording const& recording, run::ReplayResult const& result,
                       log::Explanation const* explanation, ReasonsStyle const& how) {
    TextStyle const& style = how.style;
    run::Verdict const verdict = verdictOf(result);
    std::string text = verdictLines(style, verdict) + factsText(style, result) + "\n" +
                       tableText(style, result) + "\n" + chosenText(style, result);
    if (explanation != nullptr) {
        text += reasonsText(recording, result, *explanation, how);
    }
    if (!result.dumps.empty()) {
        text += dumpsText(result) + "\n";
    }
    // At the end, where a terminal shows it: what most people run a replay for.
    text += servedText(style, result.summary) + lagText(style, result.summary.lag) +
            picturesText(style, result.summary.pictures) + pictureFilesText(style, result) +
            ledgerText(style, result.ledger, result.unsettled, result.firstTimestampNs) +
            troublesText(style, result.errorLines, result.failures) +
            limitsText(style, result.limits) +
            resultText(style, verdict.level(), result.summary, result.ledger);
    return result.device ? text + verdictText(*result.device, style) : text;
}

}  // namespace zebcam::tool::report
