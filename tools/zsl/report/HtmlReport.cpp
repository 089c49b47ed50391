#include "report/Reports.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <ostream>
#include <string_view>
#include <utility>
#include <vector>

#include "Version.h"
#include "pipeline/Schedule.h"
#include "report/ComparisonNames.h"
#include "report/JsonParts.h"
#include "report/LogCaptures.h"
#include "report/Page.h"
#include "report/TraceTracks.h"

namespace zebcam::tool::report {

namespace {

void writePart(ReportPage::Part part, std::ostream& out) {
    for (std::string_view const piece : part) {
        out << piece;
    }
}

// A path may hold any byte.
std::string escapedForHtml(std::string_view text) {
    std::string html;
    for (char const c : text) {
        switch (c) {
            case '&':
                html += "&amp;";
                break;
            case '<':
                html += "&lt;";
                break;
            case '>':
                html += "&gt;";
                break;
            default:
                html += c;
        }
    }
    return html;
}

/// JSON for a script element: ASCII, and without what could end or nest one.
void writeData(Json const& data, std::ostream& out) {
    std::string const text = data.dump(-1, ' ', true, Json::error_handler_t::replace);
    for (size_t begin = 0; begin < text.size();) {
        // Piece by piece: the data of a long recording has megabytes.
        size_t const end = std::min(text.find('<', begin), text.size());
        out.write(text.data() + begin, static_cast<std::streamsize>(end - begin));
        if (end < text.size()) {
            out << "\\u003c";
        }
        begin = end + 1;
    }
}

void writePage(std::string_view title, std::string_view summary, Json const& data,
               std::ostream& out) {
    ReportPage const& page = *reportPage();  // --report is refused without one
    writePart(page.beforeTitle, out);
    out << escapedForHtml(title);
    writePart(page.beforeSummary, out);
    out << escapedForHtml(summary);
    writePart(page.beforeData, out);
    writeData(data, out);
    writePart(page.afterData, out);
}

/// More frames than this are thinned out: no screen shows them, and a page of a million would have
/// 50 MB.
constexpr size_t kMostFrames = 20'000;

/// How much the time line would lose without a frame.
int weightOf(recording::Recording const& recording, run::ReplayResult const& result, size_t i) {
    recording::SensorFrame const& frame = recording.frames[i];
    bool const isStruck = !result.reported.empty() && result.reported[i].faults.kinds.any();
    bool const isGap = i > 0 && 2 * (frame.timestampNs - recording.frames[i - 1].timestampNs) >
                                    3 * recording.medianIntervalNs;
    bool const isMoving = frame.lensState.value_or(0) != 0 || frame.aeStable.value_or(1) != 1;
    return (frame.hasError || isStruck ? 4 : 0) + (isGap ? 2 : 0) + (isMoving ? 1 : 0);
}

/// Positions of the frames that the tries of a capture were about, from the first to the last.
std::pair<size_t, size_t> framesAround(recording::Recording const& recording,
                                       pipeline::CaptureRecord const& capture) {
    auto const positionOf = [&](int64_t timeNs) {
        auto const found = std::lower_bound(
            recording.frames.begin(), recording.frames.end(), timeNs,
            [](recording::SensorFrame const& frame, int64_t ns) { return frame.timestampNs < ns; });
        return static_cast<size_t>(found - recording.frames.begin());
    };
    size_t deepest = 0;
    int64_t endNs = capture.pressNs;
    for (pipeline::TryRecord const& attempt : capture.tries) {
        deepest = std::max(deepest, attempt.historyFrames.size());
        endNs = std::max(endNs, attempt.timeNs);
    }
    // More on both sides, for what was in flight and for the look of it.
    constexpr size_t kMargin = 8;
    size_t const first = positionOf(capture.pressNs);
    size_t const before = 2 * deepest + kMargin;
    return {first > before ? first - before : 0,
            std::min(positionOf(endNs) + kMargin, recording.frames.size())};
}

/// Positions of the frames that the page draws: all, or those around the captures and of the rest
/// the most telling one of each so many.
std::vector<size_t> drawnFrames(recording::Recording const& recording,
                                run::ReplayResult const& result) {
    size_t const count = recording.frames.size();
    size_t const step = (count + kMostFrames - 1) / kMostFrames;
    std::vector<bool> isDrawn(count, step <= 1);
    for (pipeline::CaptureRecord const& capture : result.captures) {
        auto const [begin, end] = framesAround(recording, capture);
        for (size_t i = begin; i < end; ++i) {
            isDrawn[i] = true;
        }
    }
    for (size_t begin = 0; step > 1 && begin < count; begin += step) {
        size_t best = begin;
        for (size_t i = begin; i < std::min(begin + step, count); ++i) {
            best = weightOf(recording, result, i) > weightOf(recording, result, best) ? i : best;
        }
        isDrawn[best] = true;
    }
    std::vector<size_t> drawn;
    for (size_t i = 0; i < count; ++i) {
        if (isDrawn[i]) {
            drawn.push_back(i);
        }
    }
    return drawn;
}

/// `value(position)` of every frame that is drawn; of a constant column the value once, because
/// most are.
template <typename Value>
Json columnOf(std::vector<size_t> const& drawn, Value const& value) {
    Json values = Json::array();
    bool isConstant = true;
    for (size_t const i : drawn) {
        values.push_back(value(i));
        isConstant = isConstant && values.back() == values.front();
    }
    return isConstant && !values.empty() ? Json(values.front()) : values;
}

/// When frames arrived, from the first frame; null: never, or nobody knows. What a device's
/// recording tells is only when a frame was offered.
Json arrivalsJson(recording::Recording const& recording, run::ReplayResult const& result,
                  std::vector<size_t> const& drawn, int64_t originNs) {
    if (result.device) {
        return nullptr;
    }
    std::vector<pipeline::FrameTimes> const times = pipeline::frameTimes(recording, result.options);
    return columnOf(drawn, [&](size_t i) {
        std::optional<int64_t> arrivalNs = times[i].arrivalNs;
        if (!result.arrivalsNs.empty()) {
            arrivalNs = result.arrivalsNs[i];
        }
        return arrivalNs ? Json(*arrivalNs - originNs) : Json(nullptr);
    });
}

/// Joined, for a list would be taken for a column.
Json faultNames(run::ReplayResult const& result, size_t i) {
    return result.reported.empty() || result.reported[i].faults.kinds.none()
               ? Json(nullptr)
               : Json(fmt::format(
                     "{}", fmt::join(pipeline::namesOf(result.reported[i].faults.kinds), ", ")));
}

/// The columns as the pipeline told them, but for the times: a fault may have put those on another
/// clock.
Json sensorJson(recording::Recording const& recording, run::ReplayResult const& result) {
    using F = recording::SensorFrame;
    std::vector<F> const& frames = recording.frames;
    std::vector<size_t> const drawn = drawnFrames(recording, result);
    auto const told = [&](size_t i) -> F const& {
        return result.reported.empty() ? frames[i] : result.reported[i].frame;
    };
    auto const number = [&](auto member) {
        return columnOf(drawn, [&](size_t i) { return told(i).*member; });
    };
    auto const state = [&](auto member) {
        return columnOf(drawn, [&](size_t i) { return orNull(told(i).*member); });
    };
    auto const picture = [&](auto const& valueOf) {
        return columnOf(drawn, [&](size_t i) {
            return frames[i].picture ? valueOf(*frames[i].picture) : Json(nullptr);
        });
    };
    auto const intervalOf = [&](size_t i) {
        return i > 0 ? Json(frames[i].timestampNs - frames[i - 1].timestampNs) : Json(nullptr);
    };
    int64_t const originNs = frames.empty() ? 0 : frames.front().timestampNs;
    bool const isThinned = drawn.size() < frames.size();
    Json json = {
        {"count", drawn.size()},
        {"total", frames.size()},
        {"frameNo", columnOf(drawn, [&](size_t i) { return frames[i].frameNo; })},
        {"timeNs", columnOf(drawn, [&](size_t i) { return frames[i].timestampNs - originNs; })},
        {"intervalNs", isThinned ? columnOf(drawn, intervalOf) : Json(nullptr)},
        {"arrivalNs", arrivalsJson(recording, result, drawn, originNs)},
        {"exposureNs", number(&F::exposureNs)},
        {"durationNs", number(&F::durationNs)},
        {"readoutNs", number(&F::readoutNs)},
        {"iso", state(&F::iso)},
        {"focusDistance", state(&F::focusDistance)},
        {"afMode", state(&F::afMode)},
        {"afState", state(&F::afState)},
        {"lensState", state(&F::lensState)},
        {"aeStable", state(&F::aeStable)},
        {"frameSync", state(&F::frameSync)},
        {"sensorId", state(&F::sensorId)},
        {"sensorMode", state(&F::sensorMode)},
        {"hasError", columnOf(drawn, [&](size_t i) { return told(i).hasError; })},
        {"faults", columnOf(drawn, [&](size_t i) { return faultNames(result, i); })},
        {"videoFrame", state(&F::videoFrame)},
        {"sharpness", picture([](auto const& measures) { return Json(measures.sharpness); })},
        {"motion", picture([](auto const& measures) { return orNull(measures.motion); })},
        {"brightness", picture([](auto const& measures) { return Json(measures.brightness); })},
        {"clipped", picture([](auto const& measures) { return Json(measures.clipped); })}};
    for (recording::Column const column : untoldColumns(recording)) {
        json[std::string(wordOf(column))] = nullptr;
    }
    return json;
}

std::string base64(std::string_view bytes) {
    constexpr std::string_view kDigits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (size_t i = 0; i < bytes.size(); i += 3) {
        std::string_view const group = bytes.substr(i, 3);
        uint32_t bits = 0;
        for (size_t k = 0; k < 3; ++k) {
            bits = bits << 8 | (k < group.size() ? static_cast<unsigned char>(group[k]) : 0U);
        }
        for (size_t k = 0; k < 4; ++k) {
            text += k <= group.size() ? kDigits[bits >> (18 - 6 * k) & 63] : '=';
        }
    }
    return text;
}

Json picturesJson(run::ReplayResult const& result) {
    return listOf(result.pictures, [](auto const& entry) {
        auto const& [frameNo, copy] = entry;
        return Json{{"frameNo", frameNo},
                    {"width", copy.width},
                    {"height", copy.height},
                    {"jpeg", base64(copy.jpeg)}};
    });
}

}  // namespace

void writeHtmlReport(recording::Recording const& recording, run::ReplayResult const& result,
                     log::Explanation const* explanation, base::Provenance const& provenance,
                     std::ostream& out) {
    Json data = {{"version", VERSION},
                 {"sensor", sensorJson(recording, result)},
                 {"replay", toJson(recording, result, explanation, provenance)}};
    if (!result.pictures.empty()) {
        data["pictures"] = picturesJson(result);
    }
    writePage(result.path + " - replay", textReport(recording, result), data, out);
}

void writeHtmlReport(log::Explanation const& explanation, std::string const& path,
                     base::Provenance const& provenance, std::ostream& out) {
    // The tries are told once, by what the log tells of them.
    Json const captures = listOf(explanation.captures, [](log::CaptureExplanation const& told) {
        Json json = captureJson(recordOf(told), nullptr, "");
        if (!wantedInstantNs(told)) {
            json["pressNs"] = nullptr;
        }
        return json;
    });
    writePage((path.empty() ? "standard input" : path) + " - log", explanationText(explanation),
              {{"version", VERSION},
               {"explain", toJson(explanation, path, provenance)},
               {"captures", captures}},
              out);
}

namespace {

/// The way from one file to another, as a browser goes it; null where there is none.
Json linkTo(std::string const& target, std::string const& from) {
    std::filesystem::path const folder = std::filesystem::absolute(from).parent_path();
    return target.empty() ? Json(nullptr)
                          : Json(std::filesystem::absolute(target)
                                     .lexically_normal()
                                     .lexically_relative(folder.lexically_normal())
                                     .generic_string());
}

}  // namespace

void writeHtmlReport(compare::Comparison const& comparison, base::Provenance const& provenance,
                     std::string const& path, std::ostream& out) {
    ComparisonNames const names(comparison.rows);
    writePage(
        "Comparison of policies", comparisonTable(comparison) + comparisonComplaints(comparison),
        {{"version", VERSION},
         {"settings",
          listOf(comparison.totals.rows,
                 [&](compare::ComparisonRow const& row) {
                     return Json{{"policy", names.policyOf(row)}, {"name", names.nameOf(row)}};
                 })},
         {"links",
          listOf(comparison.rows,
                 [&](compare::ComparisonRow const& row) { return linkTo(row.report, path); })},
         {"since", comparison.since ? Json(sinceSummary(*comparison.since)) : Json(nullptr)},
         {"comparison", toJson(comparison, provenance)}},
        out);
}

}  // namespace zebcam::tool::report
