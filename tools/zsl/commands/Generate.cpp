#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <type_traits>

#include "base/AtomicFile.h"
#include "base/Text.h"
#include "commands/Commands.h"
#include "commands/OptionValues.h"
#include "picture/Scene.h"
#include "picture/VideoFile.h"
#include "recording/Recording.h"
#include "recording/RecordingGenerator.h"
#include "report/Reports.h"

namespace zebcam::tool::commands {

namespace {

struct GenerateArguments {
    std::string output;
    std::optional<std::string> json;
    std::optional<std::string> video;
    recording::GeneratorOptions options;
    picture::SceneOptions scene;
};

// Whatever the locale is, unlike std::stod.
double parseNumber(std::string const& text) {
    double value = 0;
    auto const [rest, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || rest != text.data() + text.size()) {
        throw std::invalid_argument("expected a number, found " + base::quoteContent(text));
    }
    return value;
}

// 640x360, as players tell it.
void parseSize(std::string const& text, picture::SceneOptions& scene) {
    size_t const cross = text.find('x');
    auto const sideOf = [&](std::string const& side) {
        int64_t const points =
            parseWholeNumber(side, picture::MIN_SCENE_SIDE, picture::MAX_SCENE_SIDE);
        return points % 2 == 0 ? static_cast<uint32_t>(points)
                               : throw std::invalid_argument("expected even sides, found " +
                                                             base::quoteContent(text));
    };
    if (cross == std::string::npos) {
        throw std::invalid_argument("expected WIDTHxHEIGHT, found " + base::quoteContent(text));
    }
    scene.width = sideOf(text.substr(0, cross));
    scene.height = sideOf(text.substr(cross + 1));
}

int parseRotation(std::string const& text) {
    int64_t const degrees = parseWholeNumber(text, 0, 270);
    return degrees % 90 == 0 ? static_cast<int>(degrees)
                             : throw std::invalid_argument("expected 0, 90, 180 or 270, found " +
                                                           base::quoteContent(text));
}

/// Gives each frame its picture.
void addVideo(recording::Recording& recording, GenerateArguments const& arguments,
              base::ResultFile& file, CliStreams const& streams) {
    picture::SceneOptions const& scene = arguments.scene;
    Progress progress(streams.err, streams.showProgress, "pictures");
    file.put([&](std::ostream& out) {
        picture::writeScene(recording, scene, out,
                            [&](size_t pictures) { progress(pictures, recording.frames.size()); });
    });
    for (size_t i = 0; i < recording.frames.size(); ++i) {
        recording.frames[i].videoFrame = static_cast<uint32_t>(i);
    }
    bool const isTurned = scene.rotation % 180 != 0;
    recording.video = {.path = *arguments.video,
                       .width = isTurned ? scene.height : scene.width,
                       .height = isTurned ? scene.width : scene.height,
                       .rotation = scene.rotation,
                       .pictures = recording.frames.size()};
}

int runGenerate(GenerateArguments const& arguments, CliStreams const& streams) {
    requireOwnFiles(
        {{"--output", arguments.output}, {"--json", arguments.json}, {"--video", arguments.video}});
    // All before the work, so that none is left behind when another cannot be written.
    base::ResultFile output(arguments.output, streams.out);
    base::ResultFile json(arguments.json, streams.out);
    base::ResultFile video(arguments.video, streams.out);
    recording::Recording recording = recording::generate(arguments.options);
    recording.path = output.isStandard() ? "" : arguments.output;
    if (arguments.video) {
        addVideo(recording, arguments, video, streams);
    }
    output.put([&](std::ostream& out) { recording::writeRecording(recording, out); });
    json.put([&](std::ostream& out) {
        report::writeJson(report::toJson(arguments.options, recording, streams.provenance), out);
    });
    return 0;
}

/// The generator knows the ranges, which partly depend on each other.
template <typename Value>
void addOption(CLI::App& command, std::string const& name, Value& value, std::string const& help) {
    auto const describe = [&](auto const& usual) {
        return fmt::format("{} [default: {}]", help, usual);
    };
    if constexpr (std::is_same_v<Value, double>) {
        addParsed(command, name, value, parseNumber, describe(value), "X");
    } else if constexpr (std::is_same_v<Value, int64_t>) {
        addParsed(command, name, value, base::parseDuration, describe(base::formatDuration(value)),
                  "T");
    } else {
        // What is too large must not be cut to fit in silence.
        constexpr auto kMax = std::min<uint64_t>(std::numeric_limits<Value>::max(), INT64_MAX);
        auto const parse = [](std::string const& text) {
            return static_cast<Value>(parseWholeNumber(text, 0, kMax));
        };
        addParsed(command, name, value, parse, describe(value), "N");
    }
}

void addOptions(CLI::App& command, recording::GeneratorOptions& options) {
    addOption(command, "--frames", options.frames, "Number of frames, 2 to 1000000");
    addOption(command, "--fps", options.fps, "Rate that the sensor reports, 1 to 960");
    addOption(command, "--seed", options.seedValue, "Another value makes another recording");
    addOption(command, "--start", options.startNs, "Time of the first frame");
    addOption(command, "--first-frame", options.firstFrameNo, "Number of the first frame");
    addOption(command, "--interval-excess-ppm", options.intervalExcessPpm,
              "How much longer the intervals are than reported, up to 100000");
    addOption(command, "--jitter", options.jitterNs,
              "How far an interval strays, at most a tenth of it");
    addOption(command, "--late-rate", options.lateRate,
              "Share of frames that come 1.3 ms late (at most 0.4 of an interval)");
    addOption(command, "--gap-rate", options.gapRate,
              "Share of intervals of twice the length, mostly in the first frames");
    addParsed(command, "--exposure", options.exposureNs, base::parseDuration,
              "Exposure at the start, up to the frame duration [default: 10ms, or a third of a "
              "shorter frame]",
              "T");
    addOption(command, "--exposure-drift-rate", options.exposureDriftRate,
              "Share of frames whose exposure changes by up to 5 %");
    addOption(command, "--exposure-jump-rate", options.exposureJumpRate,
              "Share of frames whose exposure doubles or halves");
    addOption(command, "--scan-rate", options.scanRate,
              "Share of frames that begin a focus scan, of those outside one");
    addOption(command, "--strange-af-state-rate", options.strangeAfStateRate,
              "Share of frames with the undocumented AF state 101");
    addOption(command, "--missing-af-state-rate", options.missingAfStateRate,
              "Share of frames without AF state, evenly spread");
    addOption(command, "--error-rate", options.errorRate, "Share of frames with an unusable image");
    addOption(command, "--unsynced-rate", options.unsyncedRate,
              "Share of frames whose sensors are not synchronised");
}

void addSceneOptions(CLI::App& command, GenerateArguments& arguments) {
    CLI::Option* const video =
        addFile(command, "--video", arguments.video,
                "Write a video, too, of a scene that tells its own time: a picture for each frame");
    video->check([](std::string const&) {
        return picture::canReadVideos() ? std::string() : picture::NO_VIDEOS;
    });
    picture::SceneOptions& scene = arguments.scene;
    addValue(
        command, "--size", [&scene](std::string const& text) { parseSize(text, scene); },
        fmt::format("Points of the video's pictures [default: {}x{}]", scene.width, scene.height),
        "WIDTHxHEIGHT", false)
        ->needs(video);
    addParsed(command, "--rotation", scene.rotation, parseRotation,
              "Degrees by which the video's pictures are to be turned clockwise [default: 0]", "N")
        ->needs(video);
}

}  // namespace

void addGenerateCommand(CLI::App& app, CliStreams const& streams, int& exitStatus) {
    auto const arguments = std::make_shared<GenerateArguments>();
    CLI::App* const command = app.add_subcommand(
        "generate", "Write a made-up recording that shows what phones show (a rate is 0 to 1)");
    command->option_defaults()->group(kResults);
    addParsed(*command, "-o,--output", arguments->output, parseOutput,
              "File to write, - for standard output", "FILE")
        ->required();
    command->option_defaults()->group(kRecordingGroup);
    addOptions(*command, arguments->options);
    addJson(*command, arguments->json, "Tell what was made as JSON, - for standard output");
    addSceneOptions(*command, *arguments);
    command->callback(
        [arguments, &streams, &exitStatus] { exitStatus = runGenerate(*arguments, streams); });
}

}  // namespace zebcam::tool::commands
