#include "report/HtmlReport.h"

#include <fmt/format.h>

#include <algorithm>
#include <string>
#include <string_view>

#include "Version.h"
#include "compare/ComparisonFields.h"
#include "report/JsonParts.h"
#include "report/JsonReport.h"
#include "report/Page.h"
#include "report/TextReport.h"

namespace zebcam::tool::report {

namespace {

void writePart(ReportPage::Part part, std::ostream& out) {
    for (std::string_view const piece : part) {
        out << piece;
    }
}

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
Json column(std::vector<recording::SensorFrame> const& frames, Value const& value) {
    Json values = Json::array();
    bool isConstant = true;
    for (recording::SensorFrame const& frame : frames) {
        values.push_back(value(frame));
        isConstant = isConstant && values.back() == values.front();
    }
    return isConstant && !values.empty() ? Json(values.front()) : values;
}

template <typename T>
Json column(std::vector<recording::SensorFrame> const& frames, T recording::SensorFrame::*member) {
    return column(frames, [member](recording::SensorFrame const& frame) { return frame.*member; });
}

template <typename T>
Json column(std::vector<recording::SensorFrame> const& frames,
            std::optional<T> recording::SensorFrame::*member) {
    return column(frames, [member](recording::SensorFrame const& frame) {
        return frame.*member ? Json(*(frame.*member)) : Json(nullptr);
    });
}

Json sensorJson(recording::Recording const& recording) {
    using F = recording::SensorFrame;
    std::vector<recording::SensorFrame> const& frames = recording.frames;
    int64_t const originNs = frames.empty() ? 0 : frames.front().timestampNs;
    return {{"count", frames.size()},
            {"frameNo", column(frames, &F::frameNo)},
            {"timeNs", column(frames, [=](F const& f) { return f.timestampNs - originNs; })},
            {"exposureNs", column(frames, &F::exposureNs)},
            {"durationNs", column(frames, &F::durationNs)},
            {"readoutNs", column(frames, &F::readoutNs)},
            {"iso", column(frames, &F::iso)},
            {"focusDistance", column(frames, &F::focusDistance)},
            {"afMode", column(frames, &F::afMode)},
            {"afState", column(frames, &F::afState)},
            {"lensState", column(frames, &F::lensState)},
            {"aeStable", column(frames, &F::aeStable)},
            {"frameSync", column(frames, &F::frameSync)},
            {"sensorId", column(frames, &F::sensorId)},
            {"sensorMode", column(frames, &F::sensorMode)},
            {"hasError", column(frames, &F::hasError)}};
}

std::string comparisonText(std::vector<compare::ComparisonRow> const& rows) {
    std::string text;
    for (compare::ComparisonRow const& row : rows) {
        text += fmt::format("{}, policy {}: {}\n", row.recording, row.options.policy.name(),
                            row.status());
        if (row.numbers) {
            for (compare::ComparisonField const& field : compare::comparisonFields()) {
                text += fmt::format("    {:<20} {}\n", field.name,
                                    compare::asText(field.value(*row.numbers)));
            }
        }
        for (auto const* texts : {&row.problems, &row.broken}) {
            for (std::string const& problem : *texts) {
                text += fmt::format("    {}\n", problem);
            }
        }
    }
    return text;
}

}  // namespace

void writeHtmlReport(recording::Recording const& recording, run::ReplayResult const& result,
                     log::Explanation const* explanation, std::ostream& out) {
    writePage(result.path + " - replay", textReport(result),
              {{"version", VERSION},
               {"sensor", sensorJson(recording)},
               {"replay", toJson(result, explanation)}},
              out);
}

void writeHtmlReport(compare::ComparisonPlan const& plan,
                     std::vector<compare::ComparisonRow> const& rows, std::ostream& out) {
    writePage("Comparison of policies", comparisonText(rows),
              {{"version", VERSION}, {"comparison", toJson(plan, rows)}}, out);
}

}  // namespace zebcam::tool::report
