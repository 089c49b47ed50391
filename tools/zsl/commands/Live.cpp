#include <fmt/format.h>
#include <poll.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>

#include "base/AtomicFile.h"
#include "base/InputFile.h"
#include "base/LineWriter.h"
#include "base/SignalWatch.h"
#include "base/Text.h"
#include "commands/Commands.h"
#include "commands/OptionValues.h"
#include "picture/MeasuredVideo.h"
#include "recording/Recording.h"
#include "recording/RecordingGenerator.h"
#include "report/Reports.h"
#include "run/LiveRun.h"

namespace zebcam::tool::commands {

namespace {

constexpr int64_t kGeneratedNs = 10 * base::NS_PER_SECOND;
// What phones do, from preview to slow motion.
constexpr int64_t kMinFps = 30;
constexpr int64_t kMaxFps = 960;

struct LiveArguments {
    std::optional<std::string> recording;
    int64_t fps = kMinFps;
    std::optional<std::string> json;
    std::chrono::nanoseconds policyLimit = pipeline::PolicyWatch::DEFAULT_LIMIT;
    run::LiveOptions options;
};

/// The recording that was named, or a made-up one of ten seconds, which a longer run repeats.
recording::Recording sourceOf(LiveArguments& arguments, CliStreams const& streams) {
    if (arguments.recording) {
        base::InputFile file(*arguments.recording);
        return picture::readWithPictures(file, arguments.options.replay.input,
                                         pictureMeasurer(streams, true));
    }
    recording::GeneratorOptions generator;
    generator.fps = static_cast<double>(arguments.fps);
    generator.frames = static_cast<uint32_t>(arguments.fps * kGeneratedNs / base::NS_PER_SECOND);
    recording::Recording recording = recording::generate(generator);
    recording.path.clear();  // it is in no file
    // For people who try it: long enough to see, short enough to wait for.
    if (!arguments.options.durationNs) {
        arguments.options.durationNs = kGeneratedNs;
    }
    return recording;
}

/// Tells once a second how the run stands, until it is over or a signal comes, which it gives.
std::optional<int> watch(run::LiveRun const& run, base::SignalWatch const& signals,
                         base::TextStyle const& style,
                         std::function<void(std::string const&)> const& tell) {
    pollfd signalled{signals.fd(), POLLIN, 0};
    int64_t nextNs = base::NS_PER_SECOND;
    // Polled, for a run ends by itself as well as by a signal.
    while (!run.isOver()) {
        if (poll(&signalled, 1, kPollMs) > 0) {
            try {
                signals.throwIfAny();
            } catch (base::Interrupted const& interrupted) {
                return interrupted.signal();  // the wished end of a run, no failure
            }
        }
        run::LiveStatus const status = run.status();
        if (status.elapsedNs >= nextNs) {
            tell(report::statusLine(status, style));
            // Lines that this thread was too late for are not made up for.
            nextNs = (status.elapsedNs / base::NS_PER_SECOND + 1) * base::NS_PER_SECOND;
        }
    }
    return std::nullopt;
}

/// The text first: a run may have lasted for days, and the file may be refused.
void tell(run::LiveResult const& result, recording::Recording const& recording,
          base::ResultFile& json, CliStreams const& streams) {
    if (!json.isStandard()) {
        streams.out << '\n' << report::liveReport(result, streams.outStyle) << std::flush;
    }
    json.put([&](std::ostream& out) {
        report::writeJson(report::toJson(result, &recording, streams.provenance), out);
        // Nobody shall have run it for nothing.
        if (json.isStandard() && !out.flush()) {
            streams.err << report::liveReport(result, streams.errStyle);
        }
    });
}

int runLive(CLI::App const& command, LiveArguments& arguments, CliStreams const& streams) {
    requireConsistent(command, arguments.options.replay, {&arguments.options.replay.policy, 1},
                      arguments.options.replay.offsetMs.has_value());
    if (arguments.recording && command.count("--fps") > 0) {
        throw CLI::ValidationError("--fps", "the RECORDING tells its own rate");
    }
    requireOwnFiles({{"--json", arguments.json}, {"--record", arguments.options.recordPath}},
                    {arguments.recording.value_or("")});
    recording::Recording const recording = sourceOf(arguments, streams);
    base::ResultFile json(arguments.json, streams.out);
    // First of all, so that every thread leaves the signals to this one.
    std::optional<base::SignalWatch> signals(std::in_place);
    auto const policy =
        watchPolicy("zsl live", arguments.options.replay.policy, arguments.policyLimit);
    // Destroyed before anybody else writes to the stream.
    base::LineWriter err(streams.err, kLogBytes);
    run::RecordedFrames frames(recording, arguments.options.replay,
                               arguments.options.durationNs.has_value());
    run::LiveRun live(
        frames, arguments.options,
        {.log = [&err](std::string const& lines) { err.push(lines); }, .press = {}, .frame = {}});
    live.start();
    auto const& style = json.isStandard() ? streams.errStyle : streams.outStyle;
    std::optional<int> const signal = watch(live, *signals, style, [&](std::string const& line) {
        if (json.isStandard()) {
            err.push(line);
        } else {
            streams.out << line << std::flush;
        }
    });
    run::LiveResult result = live.finish();
    result.signal = signal;
    base::LineWriter::Counts const shown = err.finish(kPatience);
    if (shown.lines > 0) {
        result.log = shown;
    }
    tell(result, recording, json, streams);
    // What is left is to wait for whoever reads the log: a signal shall end that as it ends others.
    signals.reset();
    if (shown.hasFailed) {
        throw base::OutputError("standard error cannot be written");
    }
    return result.isClean() ? 0 : 1;
}

void addSourceOptions(CLI::App& command, LiveArguments& arguments) {
    command.option_defaults()->group(kRecordingGroup);
    command
        .add_option("RECORDING", arguments.recording,
                    "CSV file or video, - for standard input; without one, frames are generated")
        ->check(isNamed)
        ->type_name("FILE");
    auto const parseFps = [](std::string const& text) {
        return parseWholeNumber(text, kMinFps, kMaxFps);
    };
    addParsed(command, "--fps", arguments.fps, parseFps,
              fmt::format("Rate of the generated frames, {} to {} [default: {}]", kMinFps, kMaxFps,
                          kMinFps),
              "N");
    addParsed(command, "--duration", arguments.options.durationNs, parseRunTime,
              "How long to run; the recording is repeated [default: once through it; generated: "
              "10s]",
              "T");
    addParsed(command, "--press-every", arguments.options.pressEveryNs, parseRunTime,
              "Time from press to press [default: 0.5s]", "T");
    addParsed(command, "--dump-every", arguments.options.dumpEveryNs, parseRunTime,
              "Time from dump to dump [default: 1s]", "T");
}

}  // namespace

void addLiveCommand(CLI::App& app, CliStreams const& streams, int& exitStatus) {
    auto const arguments = std::make_shared<LiveArguments>();
    CLI::App* const command = app.add_subcommand(
        "live", "Run the pipeline in real time, with threads of its own, and tell how it fares");
    addSourceOptions(*command, *arguments);
    addInputOptions(*command, arguments->options.replay.input);
    addServiceOptions(*command, arguments->options.replay);
    addCaptureOptions(*command, arguments->options.replay);
    addPipelineOptions(*command, arguments->options.replay);
    addPolicyLimit(*command, arguments->policyLimit);
    addFaultOptions(*command, arguments->options.replay.faults);
    addLogOption(*command, arguments->options.replay);
    addFile(*command, "--record", arguments->options.recordPath,
            "Record what the processor sees, for zsl replay");
    addJson(*command, arguments->json);
    command->callback([command, arguments, &streams, &exitStatus] {
        exitStatus = runLive(*command, *arguments, streams);
    });
}

}  // namespace zebcam::tool::commands
