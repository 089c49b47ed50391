#include <fmt/format.h>
#include <metadata/MetadataTags.h>
#include <policy/zsl/PictureMeasures.h>
#include <policy/zsl/RecordedColumns.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <initializer_list>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "base/Table.h"
#include "base/Text.h"
#include "commands/Commands.h"
#include "compare/ComparisonFields.h"
#include "log/Explanation.h"
#include "pipeline/ProcessorProperties.h"
#include "pipeline/ReplayOptions.h"

namespace zebcam::tool::commands {

namespace {

using base::Table;
using enum base::Table::Kind;

struct FrameTag {
    char const* name;
    uint32_t tag;
    char const* type;
    char const* meaning;
};
constexpr uint32_t kFirstHalTag = 0xc0000000;

Table policies() {
    Table table(
        {{.title = "policy", .kind = Text, .isKey = true}, {.title = "it takes", .kind = Prose}});
    table.addRow({"default",
                  "for each frame the oldest of the history from the wanted instant on "
                  "that passes every criterion"});
    table.addRow({"cshot",
                  "for continuous shooting: the oldest that has the streams and sensor "
                  "modes, whatever its age and state"});
    table.addRow({"multiframe",
                  "for frames that are blended: an unbroken run that passes every "
                  "criterion and ends at the wanted instant if it can, or nothing"});
    table.addRow({"best-shot",
                  "the sharpest, unless one that is nearer to the wanted instant is nearly as "
                  "sharp; of several frames the best run or spread; --policy-option sets what "
                  "counts, docs/policies.md tells all"});
    table.addRow({"PATH.so",
                  "what the policy in this library says; the path has a slash or ends "
                  "with .so"});
    table.addRow(
        {"PATH.py",
         "what the function choose() of this file says, in Python; docs/policies.md begins "
         "with one"});
    return table;
}

Table properties() {
    Table table({{.title = "property", .kind = Text, .isKey = true},
                 {.title = "value", .kind = Text},
                 {.title = "usual"},
                 {.title = "meaning", .kind = Prose}});
    for (pipeline::ProcessorProperty const& property : pipeline::PROCESSOR_PROPERTIES) {
        table.addRow({std::string(property.name), std::string(property.unit),
                      std::string(property.usual), std::string(property.meaning)});
    }
    return table;
}

std::string strikes(pipeline::FaultScope scope) {
    switch (scope) {
        case pipeline::FaultScope::Frame:
            return "frames";
        case pipeline::FaultScope::Try:
            return "tries";
        case pipeline::FaultScope::Capture:
            return "captures";
        case pipeline::FaultScope::State:
            break;
    }
    return "from then on";
}

Table faults() {
    Table table({{.title = "fault", .kind = Text, .isKey = true},
                 {.title = "strikes", .kind = Text},
                 {.title = "usual rate"},
                 {.title = "what goes wrong", .kind = Prose}});
    for (pipeline::FaultTraits const& traits : pipeline::FAULT_KINDS) {
        bool const hasRate = traits.scope != pipeline::FaultScope::State;
        table.addRow({std::string(traits.name), strikes(traits.scope),
                      hasRate ? fmt::to_string(traits.defaultRate) : "-",
                      std::string(traits.meaning)});
    }
    return table;
}

/// What of a frame's result differs from frame to frame. The rest is the same in all, and as much
/// as a phone's.
Table tagsOfFrames() {
    using namespace NSCam;
    Table table({{.title = "tag", .kind = Text, .isKey = true},
                 {.title = "number", .kind = Text},
                 {.title = "in", .kind = Text},
                 {.title = "type", .kind = Text},
                 {.title = "what it tells", .kind = Prose}});
    for (auto const& [name, tag, type, meaning] : std::initializer_list<FrameTag>{
             {"ZEB_SENSOR_TIMESTAMP", ZEB_SENSOR_TIMESTAMP, "int64", "start of exposure, ns"},
             {"ANDROID_SENSOR_EXPOSURE_TIME", ANDROID_SENSOR_EXPOSURE_TIME, "int64", "ns"},
             {"ANDROID_SENSOR_FRAME_DURATION", ANDROID_SENSOR_FRAME_DURATION, "int64", "ns"},
             {"ANDROID_SENSOR_ROLLING_SHUTTER_SKEW", ANDROID_SENSOR_ROLLING_SHUTTER_SKEW, "int64",
              "readout, ns"},
             {"ANDROID_SENSOR_SENSITIVITY", ANDROID_SENSOR_SENSITIVITY, "int32", "ISO"},
             {"ANDROID_LENS_FOCUS_DISTANCE", ANDROID_LENS_FOCUS_DISTANCE, "float", "1/m"},
             {"ANDROID_CONTROL_AF_MODE", ANDROID_CONTROL_AF_MODE, "byte", "see AfMode"},
             {"ANDROID_CONTROL_AF_STATE", ANDROID_CONTROL_AF_STATE, "byte", "see AfState"},
             {"ANDROID_LENS_STATE", ANDROID_LENS_STATE, "byte", "1: the lens moves"},
             {"ANDROID_REQUEST_FRAME_COUNT", ANDROID_REQUEST_FRAME_COUNT, "int32", "frame number"},
             {"ZEB_HAL_REQUEST_SENSOR_ID", ZEB_HAL_REQUEST_SENSOR_ID, "int32", "sensor"},
             {"ZEB_P1NODE_SENSOR_MODE", ZEB_P1NODE_SENSOR_MODE, "int32", "its mode"},
             {"ZEB_3A_AE_SOFT_STABLE", ZEB_3A_AE_SOFT_STABLE, "int32", "1: exposure is settled"},
             {"ZEB_FRAME_SYNC_RESULT", ZEB_FRAME_SYNC_RESULT, "int64",
              "0: sensors are synchronised"},
             {"PICTURE_SHARPNESS", ZslPolicy::PICTURE_SHARPNESS, "float",
              "with a video: detail, in percent squared of the mean luma"},
             {"PICTURE_MOTION", ZslPolicy::PICTURE_MOTION, "float",
              "with a video: what moved since the picture before, luma of 0 to 255"},
             {"PICTURE_BRIGHTNESS", ZslPolicy::PICTURE_BRIGHTNESS, "float",
              "with a video: mean luma, 0 to 255"},
             {"PICTURE_CLIPPED", ZslPolicy::PICTURE_CLIPPED, "float",
              "with a video: share of black and white, 0 to 1"},
             {"of your own", NSCam::ZslPolicy::RECORDED_COLUMN_FIRST, "number",
              "and up: int64 or double, a column of the recording; recordedColumnTag(\"NAME\")"},
         }) {
        table.addRow({name, fmt::format("{:#010x}", tag), tag >= kFirstHalTag ? "HAL" : "app", type,
                      meaning});
    }
    return table;
}

Table fields() {
    Table table(
        {{.title = "field", .kind = Text, .isKey = true}, {.title = "meaning", .kind = Prose}});
    for (compare::ComparisonField const& field : compare::comparisonFields()) {
        table.addRow({field.name, field.help});
    }
    return table;
}

Table criteria() {
    Table table({{.title = "criterion", .kind = Text, .isKey = true},
                 {.title = "a frame is refused because", .kind = Prose}});
    for (size_t i = static_cast<size_t>(log::Criterion::None) + 1; i < log::CRITERIA; ++i) {
        log::CriterionInfo const criterion = log::infoOf(static_cast<log::Criterion>(i));
        table.addRow({criterion.name, criterion.meaning});
    }
    return table;
}

struct Topic {
    char const* name;
    char const* heading;
    Table (*make)();
};

constexpr std::array<Topic, 6> kTopics = {{
    {"policies", "Policies, for --policy", policies},
    {"properties", "System properties that the processor reads, for --property", properties},
    {"tags", "Metadata tags of a replayed frame that a policy can read", tagsOfFrames},
    {"faults", "What can go wrong, for --fault", faults},
    {"fields", "Fields of a comparison, for --fail-if, and columns of --csv", fields},
    {"criteria", "Criteria by which a policy refuses history frames", criteria},
}};

void list(std::optional<std::string> const& wanted, CliStreams const& streams) {
    bool isFirst = true;
    for (Topic const& topic : kTopics) {
        if (!wanted || *wanted == topic.name) {
            streams.out << (isFirst ? "" : "\n")
                        << streams.outStyle.paint(topic.heading, base::Tone::Heading) << "\n\n"
                        << topic.make().text(streams.outStyle);
            isFirst = false;
        }
    }
    if (isFirst) {
        std::vector<std::string> const names = topicNames();
        throw CLI::ValidationError(
            "TOPIC", fmt::format("expected {}, found {}{}", base::anyOf(names),
                                 base::quoteContent(*wanted), base::didYouMean(*wanted, names)));
    }
}

}  // namespace

std::vector<std::string> topicNames() {
    std::vector<std::string> names;
    names.reserve(std::size(kTopics));
    for (Topic const& topic : kTopics) {
        names.emplace_back(topic.name);
    }
    return names;
}

void addListCommand(CLI::App& app, CliStreams const& streams, int& /*exitStatus*/) {
    auto const topic = std::make_shared<std::optional<std::string>>();
    CLI::App* const command =
        app.add_subcommand("list", "List the names that options know, and what each means");
    command
        ->add_option("TOPIC", *topic,
                     "policies, properties, tags, faults, fields or criteria; all without one")
        ->type_name("TOPIC");
    command->callback([topic, &streams] { list(*topic, streams); });
}

}  // namespace zebcam::tool::commands
