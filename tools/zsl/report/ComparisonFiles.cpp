#include "report/ComparisonFiles.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <optional>
#include <ostream>
#include <string>
#include <string_view>

#include "Version.h"

namespace zebcam::tool::report {

using Json = nlohmann::ordered_json;

namespace {

constexpr int kFormatVersion = 1;
constexpr double kNsPerMs = 1e6;

std::string csvField(std::string_view text) {
    if (text.find_first_of(",\"\r\n") == std::string_view::npos) {
        return std::string(text);
    }
    std::string out = "\"";
    for (char const c : text) {
        out += c == '"' ? "\"\"" : std::string(1, c);
    }
    return out + "\"";
}

std::string messageOf(compare::ComparisonRow const& row) {
    std::string text;
    for (auto const* const texts : {&row.problems, &row.broken}) {
        for (std::string const& complaint : *texts) {
            text += text.empty() ? "" : "; ";
            text += complaint;
        }
    }
    return text;
}

template <typename T>
Json orNull(std::optional<T> const& value) {
    return value ? Json(*value) : Json(nullptr);
}

Json msOrNull(std::optional<int64_t> ns) {
    return ns ? Json(static_cast<double>(*ns) / kNsPerMs) : Json(nullptr);
}

Json valueJson(compare::FieldValue const& value) {
    if (auto const* whole = std::get_if<uint64_t>(&value)) {
        return *whole;
    }
    return orNull(compare::asNumber(value));
}

Json rowJson(compare::ComparisonRow const& row) {
    Json json = {{"recording", row.recording},
                 {"policy", row.options.policy.name()},
                 {"offset_ms", orNull(row.offsetMs())},
                 {"frames_per_capture", row.options.framesPerCapture},
                 {"history_frames", row.options.history},
                 {"status", row.status()},
                 {"problems", row.problems},
                 {"broken_limits", row.broken}};
    for (compare::ComparisonField const& field : compare::comparisonFields()) {
        json[field.name] = row.numbers ? valueJson(field.value(*row.numbers)) : Json(nullptr);
    }
    return json;
}

Json settingsJson(compare::ComparisonPlan const& plan) {
    pipeline::ReplayOptions const& common = plan.common;
    Json properties = Json::object();
    for (auto const& [key, value] : common.properties) {
        properties[key] = value;
    }
    Json presses = Json::array();
    for (int64_t const pressNs : common.pressesNs) {
        presses.push_back(msOrNull(pressNs));
    }
    Json limits = Json::array();
    for (compare::Limit const& limit : plan.limits) {
        limits.push_back(limit.text());
    }
    return {{"captures", common.pressesNs.empty() ? common.captures : common.pressesNs.size()},
            {"presses_ms", std::move(presses)},
            {"delivery_delay_ms", msOrNull(common.deliveryDelayNs)},
            {"reprocess_delay_ms", msOrNull(common.reprocessDelayNs)},
            {"multiframe_timeout_ms", common.timeoutMs},
            {"frame_sync", common.frameSync},
            {"properties", std::move(properties)},
            {"limits", std::move(limits)}};
}

}  // namespace

void writeCsv(std::vector<compare::ComparisonRow> const& rows, std::ostream& out) {
    out << "recording,policy,offset_ms,frames_per_capture,history_frames,status,message";
    for (compare::ComparisonField const& field : compare::comparisonFields()) {
        out << ',' << field.name;
    }
    out << '\n';
    for (compare::ComparisonRow const& row : rows) {
        std::optional<int64_t> const offsetMs = row.offsetMs();
        out << fmt::format("{},{},{},{},{},{},{}", csvField(row.recording),
                           csvField(row.options.policy.name()),
                           offsetMs ? fmt::to_string(*offsetMs) : "", row.options.framesPerCapture,
                           row.options.history, row.status(), csvField(messageOf(row)));
        for (compare::ComparisonField const& field : compare::comparisonFields()) {
            out << ',' << (row.numbers ? compare::asText(field.value(*row.numbers)) : "");
        }
        out << '\n';
    }
}

void writeJson(compare::ComparisonPlan const& plan, std::vector<compare::ComparisonRow> const& rows,
               std::ostream& out) {
    Json list = Json::array();
    for (compare::ComparisonRow const& row : rows) {
        list.push_back(rowJson(row));
    }
    Json const document = {{"format", kFormatVersion},
                           {"version", VERSION},
                           {"settings", settingsJson(plan)},
                           {"rows", std::move(list)}};
    // A path need not be UTF-8.
    out << document.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
}

}  // namespace zebcam::tool::report
