#include "commands/Replay.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <utility>

#include "cli/OptionValues.h"
#include "cli/ReplayArguments.h"
#include "commands/ReplayObserver.h"
#include "device/DeviceRecordingReader.h"
#include "device/DeviceReplay.h"
#include "html/HtmlReport.h"
#include "output/AtomicFile.h"
#include "recording/RecordingReader.h"
#include "replay/Replay.h"
#include "report/JsonReport.h"
#include "report/TextReport.h"
#include "text/Duration.h"
#include "trace/TraceExport.h"

namespace zebcam::tool {
namespace {

constexpr size_t kLongRecording = 2'000;

struct Arguments {
    std::string recording;
    std::optional<std::string> json;
    std::optional<std::string> trace;
    std::optional<std::string> report;
    bool explain = false;
    ReplayOptions options;
};

/// Progress in percent on one line of a terminal, wiped at the end.
class Progress {
public:
    Progress(std::ostream& err, bool isOn) : mErr(err), mIsOn(isOn) {}
    ~Progress() {
        if (mShown >= 0) {
            mErr << "\r\033[K" << std::flush;
        }
    }
    Progress(Progress const&) = delete;
    Progress& operator=(Progress const&) = delete;

    void operator()(size_t frames, size_t total) {
        int const percent = static_cast<int>(frames * 100 / total);
        if (mIsOn && total >= kLongRecording && percent != mShown) {
            mShown = percent;
            mErr << fmt::format("\r{:3} % of {} frames", percent, total) << std::flush;
        }
    }

private:
    std::ostream& mErr;
    bool const mIsOn;
    int mShown = -1;
};

void addTimedOptions(CLI::App& command, ReplayOptions& options) {
    auto const addTo = [](std::vector<int64_t>& times) {
        return [&times](std::string const& text) { times.push_back(parseDuration(text)); };
    };
    addValue(command, "--flush-at", addTo(options.flushesNs),
             "Flush this long after the first frame; may be repeated", "T")
        ->take_all();
    addValue(command, "--dump-at", addTo(options.dumpsNs),
             "Print what every debuggee tells then; may be repeated", "T")
        ->take_all();
}

/// A file for results, opened before the work begins so that a bad path is told at once.
std::optional<AtomicFile> openResult(std::optional<std::string> const& path) {
    return path && path != "-" ? std::optional<AtomicFile>(std::in_place, *path) : std::nullopt;
}

ReplayObserver::Wishes wishesOf(Arguments const& arguments, CliStreams const& streams) {
    ReplayObserver::Wishes wishes;
    wishes.shownLevel = arguments.options.logLevel;
    wishes.show = [&streams](std::string const& lines) { streams.err << lines; };
    wishes.reasons = arguments.explain || arguments.json || arguments.trace || arguments.report;
    wishes.sections = arguments.trace.has_value();
    return wishes;
}

/// What is to be replayed: a recording of a device, or else one of a sensor.
struct Source {
    std::optional<DeviceRecording> device;
    Recording sensor;
};

Source readSource(std::string const& path) {
    Source source;
    if (isDeviceRecording(path)) {
        source.device = readDeviceRecording(path);
    } else {
        source.sensor = readRecording(path);
    }
    return source;
}

/// What came of a replay, and the frames that were in it.
struct Replayed {
    Recording recording;
    ReplayResult result;
};

Replayed replaySource(Source source, ReplayOptions const& options, ReplayObserver& observer) {
    Replayed replayed;
    if (source.device) {
        DeviceReplayResult device =
            replayDevice(*source.device, options.logLevel, observer.listener());
        replayed = {std::move(device.frames), std::move(device.replay)};
    } else {
        replayed.recording = std::move(source.sensor);
        replayed.result = replay(replayed.recording, options, observer.listener());
    }
    observer.finish();
    return replayed;
}

/// Throws CLI::ValidationError for an option whose value a device's recording fixes.
void requireNoFixedOption(CLI::App const& command, std::string const& path) {
    constexpr std::array kFree{"--log", "--json", "--explain", "--trace", "--report", "--help"};
    for (CLI::Option const* const option : command.get_options()) {
        std::string const name = option->get_name();
        if (option->count() > 0 && !option->get_positional() &&
            std::find(kFree.begin(), kFree.end(), name) == kFree.end()) {
            throw CLI::ValidationError(
                name, fmt::format("{} is a recording of a device, which fixes this", path));
        }
    }
}

int run(CLI::App const& command, Arguments const& arguments, CliStreams const& streams) {
    requireOneOffset(arguments.options, arguments.options.offsetMs);
    Source source = readSource(arguments.recording);
    if (source.device) {
        requireNoFixedOption(command, arguments.recording);
    }
    std::optional<AtomicFile> json = openResult(arguments.json);
    std::optional<AtomicFile> trace = openResult(arguments.trace);
    std::optional<AtomicFile> report = openResult(arguments.report);

    auto wishes = wishesOf(arguments, streams);
    std::optional<Progress> progress(std::in_place, streams.err, streams.showProgress);
    wishes.progress = [&](size_t frames, size_t total) { (*progress)(frames, total); };
    ReplayObserver observer(std::move(wishes));
    Replayed const replayed =
        replaySource(std::move(source), observer.listeningOptions(arguments.options), observer);
    ReplayResult const& result = replayed.result;
    Recording const& recording = replayed.recording;
    progress.reset();

    if (json) {
        writeJson(result, observer.explanation(), json->stream());
        json->commit();
    }
    if (trace) {
        writeTrace(
            {recording, result, observer.explanation(), observer.occupancy(), observer.sections()},
            trace->stream());
        trace->commit();
    }
    if (report) {
        writeHtmlReport(recording, result, observer.explanation(), report->stream());
        report->commit();
    }
    if (arguments.json == "-") {
        writeJson(result, observer.explanation(), streams.out);
    } else {
        streams.out << textReport(result, arguments.explain ? observer.explanation() : nullptr);
    }
    return result.isClean() ? 0 : 1;
}

}  // namespace

void addReplayCommand(CLI::App& app, CliStreams const& streams, int& exitStatus) {
    auto const arguments = std::make_shared<Arguments>();
    CLI::App* const command = app.add_subcommand(
        "replay", "Replay a recording, press the button and tell which frames the captures get");
    command
        ->add_option("RECORDING", arguments->recording,
                     "CSV file, - for standard input, or a recording of a device")
        ->required()
        ->type_name("FILE");
    addPressOptions(*command, arguments->options);
    addServiceOptions(*command, arguments->options);
    addTimedOptions(*command, arguments->options);
    addCaptureOptions(*command, arguments->options);
    addPipelineOptions(*command, arguments->options);
    addFaultOptions(*command, arguments->options.faults);
    addValue(
        *command, "--log",
        [arguments](std::string const& text) { arguments->options.logLevel = parseLogLevel(text); },
        "Print the processor's log: error, warning, info or debug", "LEVEL");
    addValue(
        *command, "--json", [arguments](std::string const& text) { arguments->json = text; },
        "Write the result as JSON too, - for standard output instead of the text", "FILE");
    command->add_flag("--explain", arguments->explain,
                      "Tell for each try which history frames were taken or refused, and why");
    addValue(
        *command, "--trace",
        [arguments](std::string const& text) { arguments->trace = requireFile(text); },
        "Write a trace for ui.perfetto.dev", "FILE");
    addValue(
        *command, "--report",
        [arguments](std::string const& text) { arguments->report = requireFile(text); },
        "Write a page for a browser", "FILE");
    command->callback([command, arguments, &streams, &exitStatus] {
        exitStatus = run(*command, *arguments, streams);
    });
}

}  // namespace zebcam::tool
