#include "report/Reports.h"

#include <fmt/format.h>

#include <algorithm>
#include <ostream>
#include <string_view>

#include "Version.h"
#include "report/JsonParts.h"
#include "report/Page.h"

namespace zebcam::tool::report {

namespace {

void writePart(ReportPage::Part part, std::ostream& out) {
    for (std::string_view const piece : part) {
        out << piece;
    }
}

// A path may hold any byte.
std::string escaped(std::string_view text) {
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
    out << escaped(title);
    writePart(page.beforeSummary, out);
    out << escaped(summary);
    writePart(page.beforeData, out);
    writeData(data, out);
    writePart(page.afterData, out);
}

/// `value(frame)` of every frame; of a constant column the value once, because most are.
template <typename Value>
Json columnOf(std::vector<recording::SensorFrame> const& frames, Value const& value) {
    Json values = Json::array();
    bool isConstant = true;
    for (recording::SensorFrame const& frame : frames) {
        values.push_back(value(frame));
        isConstant = isConstant && values.back() == values.front();
    }
    return isConstant && !values.empty() ? Json(values.front()) : values;
}

Json sensorJson(recording::Recording const& recording) {
    using F = recording::SensorFrame;
    auto const column = [&](auto const& value) { return columnOf(recording.frames, value); };
    int64_t const originNs = recording.frames.empty() ? 0 : recording.frames.front().timestampNs;
    return {{"count", recording.frames.size()},
            {"frameNo", column([](F const& f) { return f.frameNo; })},
            {"timeNs", column([=](F const& f) { return f.timestampNs - originNs; })},
            {"exposureNs", column([](F const& f) { return f.exposureNs; })},
            {"durationNs", column([](F const& f) { return f.durationNs; })},
            {"readoutNs", column([](F const& f) { return f.readoutNs; })},
            {"iso", column([](F const& f) { return orNull(f.iso); })},
            {"focusDistance", column([](F const& f) { return orNull(f.focusDistance); })},
            {"afMode", column([](F const& f) { return orNull(f.afMode); })},
            {"afState", column([](F const& f) { return orNull(f.afState); })},
            {"lensState", column([](F const& f) { return orNull(f.lensState); })},
            {"aeStable", column([](F const& f) { return orNull(f.aeStable); })},
            {"frameSync", column([](F const& f) { return orNull(f.frameSync); })},
            {"sensorId", column([](F const& f) { return orNull(f.sensorId); })},
            {"sensorMode", column([](F const& f) { return orNull(f.sensorMode); })},
            {"hasError", column([](F const& f) { return f.hasError; })}};
}

}  // namespace

void writeHtmlReport(recording::Recording const& recording, run::ReplayResult const& result,
                     log::Explanation const* explanation, base::Provenance const& provenance,
                     std::ostream& out) {
    writePage(result.path + " - replay", textReport(recording, result),
              {{"version", VERSION},
               {"sensor", sensorJson(recording)},
               {"replay", toJson(recording, result, explanation, provenance)}},
              out);
}

void writeHtmlReport(compare::ComparisonPlan const& plan,
                     std::vector<compare::ComparisonRow> const& rows,
                     base::Provenance const& provenance, std::ostream& out) {
    writePage("Comparison of policies", comparisonTable(rows) + comparisonComplaints(rows),
              {{"version", VERSION}, {"comparison", toJson(plan, rows, provenance)}}, out);
}

}  // namespace zebcam::tool::report
