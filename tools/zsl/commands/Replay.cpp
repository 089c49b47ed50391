#include "commands/Commands.h"

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

#include "base/AtomicFile.h"
#include "base/Text.h"
#include "commands/Commands.h"
#include "commands/OptionValues.h"
#include "commands/ReplayObserver.h"
#include "device/DeviceRecordingReader.h"
#include "recording/RecordingFile.h"
#include "report/HtmlReport.h"
#include "report/JsonReport.h"
#include "report/TextReport.h"
#include "report/TraceExport.h"
#include "run/DeviceReplay.h"
#include "run/Replay.h"

namespace zebcam::tool::commands {

namespace {

constexpr size_t kLongRecording = 2'000;

struct Arguments {
    std::string recording;
    std::optional<std::string> json;
    std::optional<std::string> trace;
    std::optional<std::string> report;
    bool explain = false;
    pipeline::ReplayOptions options;
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

void addTimedOptions(CLI::App& command, pipeline::ReplayOptions& options) {
    auto const addTo = [](std::vector<int64_t>& times) {
        return [&times](std::string const& text) { times.push_back(base::parseDuration(text)); };
    };
    addValue(command, "--flush-at", addTo(options.flushesNs),
             "Flush this long after the first frame; may be repeated", "T")
        ->take_all();
    addValue(command, "--dump-at", addTo(options.dumpsNs),
             "Print what every debuggee tells then; may be repeated", "T")
        ->take_all();
}

/// A file for results, opened before the work begins so that a bad path is told at once.
std::optional<base::AtomicFile> openResult(std::optional<std::string> const& path) {
    return path && path != "-" ? std::optional<base::AtomicFile>(std::in_place, *path)
                               : std::nullopt;
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
    std::optional<device::DeviceRecording> device;
    recording::Recording sensor;
};

Source readSource(std::string const& path) {
    Source source;
    if (device::isDeviceRecording(path)) {
        source.device = device::readDeviceRecording(path);
    } else {
        source.sensor = recording::readRecording(path);
    }
    return source;
}

/// What came of a replay, and the frames that were in it.
struct Replayed {
    recording::Recording recording;
    run::ReplayResult result;
};

Replayed replaySource(Source source, pipeline::ReplayOptions const& options,
                      ReplayObserver& observer) {
    Replayed replayed;
    if (source.device) {
        run::DeviceReplayResult device =
            run::replayDevice(*source.device, options.logLevel, observer.listener());
        replayed = {std::move(device.frames), std::move(device.replay)};
    } else {
        replayed.recording = std::move(source.sensor);
        replayed.result = run::replay(replayed.recording, options, observer.listener());
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
    std::optional<base::AtomicFile> json = openResult(arguments.json);
    std::optional<base::AtomicFile> trace = openResult(arguments.trace);
    std::optional<base::AtomicFile> report = openResult(arguments.report);

    auto wishes = wishesOf(arguments, streams);
    std::optional<Progress> progress(std::in_place, streams.err, streams.showProgress);
    wishes.progress = [&](size_t frames, size_t total) { (*progress)(frames, total); };
    ReplayObserver observer(std::move(wishes));
    Replayed const replayed =
        replaySource(std::move(source), observer.listeningOptions(arguments.options), observer);
    run::ReplayResult const& result = replayed.result;
    recording::Recording const& recording = replayed.recording;
    progress.reset();

    if (json) {
        report::writeJson(result, observer.explanation(), json->stream());
        json->commit();
    }
    if (trace) {
        report::writeTrace(
            {recording, result, observer.explanation(), observer.occupancy(), observer.sections()},
            trace->stream());
        trace->commit();
    }
    if (report) {
        report::writeHtmlReport(recording, result, observer.explanation(), report->stream());
        report->commit();
    }
    if (arguments.json == "-") {
        report::writeJson(result, observer.explanation(), streams.out);
    } else {
        streams.out << report::textReport(result,
                                          arguments.explain ? observer.explanation() : nullptr);
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
        [arguments](std::string const& text) { arguments->report = requirePageFile(text); },
        "Write a page for a browser", "FILE");
    command->callback([command, arguments, &streams, &exitStatus] {
        exitStatus = run(*command, *arguments, streams);
    });
}

}  // namespace zebcam::tool::commands
