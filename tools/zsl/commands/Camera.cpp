#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "base/AtomicFile.h"
#include "base/LineWriter.h"
#include "base/SignalWatch.h"
#include "base/Text.h"
#include "commands/CameraShots.h"
#include "commands/Commands.h"
#include "commands/OptionValues.h"
#include "picture/Camera.h"
#include "picture/Jpeg.h"
#include "report/Reports.h"
#include "run/CameraFrames.h"
#include "run/LiveRun.h"
#include "serve/CameraPage.h"

namespace zebcam::tool::commands {

namespace {

constexpr uint32_t kPreviewWidth = 640;
constexpr int kPreviewQuality = 70;
constexpr size_t kLateFrames = 8;

using Tell = std::function<void(std::string const& line)>;

struct CameraArguments {
    picture::CameraOptions camera;
    std::optional<std::string> json;
    std::optional<std::string> pictures;
    std::optional<std::string> report;
    std::optional<uint16_t> port;  ///< 0: any that is free; none: no page
    std::chrono::nanoseconds policyLimit = pipeline::PolicyWatch::DEFAULT_LIMIT;
    run::LiveOptions options{.replay = {}, .durationNs = {}, .pressEveryNs = {}, .recordPath = {}};
};

/// How often somebody entered a line on standard input; none once there is no more of it.
std::optional<size_t> readPresses() {
    // To read from a terminal that another program has would stop this one.
    if (isatty(STDIN_FILENO) != 0 && tcgetpgrp(STDIN_FILENO) != getpgrp()) {
        return 0;
    }
    std::array<char, 256> text{};
    ssize_t const got = read(STDIN_FILENO, text.data(), text.size());
    return got > 0 ? std::optional<size_t>(std::count(text.begin(), text.begin() + got, '\n'))
                   : std::nullopt;
}

/// Presses for whoever asks for it, and tells what goes wrong with the camera, until the run is
/// over or a signal ends it, which it gives.
std::optional<int> watch(run::LiveRun& live, base::SignalWatch const& signals,
                         run::CameraFrames const& frames, Tell const& tell) {
    std::array<pollfd, 2> inputs = {{{signals.fd(), POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}}};
    std::string troubles;
    auto const tellTroubles = [&](int64_t elapsedNs) {
        std::string now = report::cameraTroubles(frames.facts());
        bool const areNew = now != troubles;
        if (areNew) {
            tell(fmt::format("{:>7} s  camera: {}\n", base::formatSeconds(elapsedNs), now));
            troubles = std::move(now);
        }
        return areNew;
    };
    int64_t nextNs = 0;  // of a line on them
    // Polled, for a run ends by itself as well.
    while (!live.isOver()) {
        poll(inputs.data(), inputs.size(), kPollMs);
        while (auto const signal = signals.take()) {
            if (*signal != SIGUSR1) {
                tellTroubles(live.status().elapsedNs);
                return signal;
            }
            live.press();
        }
        if (inputs[1].revents != 0) {
            auto const presses = readPresses();
            for (size_t i = 0; i < presses.value_or(0); ++i) {
                live.press();
            }
            inputs[1].fd = presses ? STDIN_FILENO : -1;
        }
        int64_t const elapsedNs = live.status().elapsedNs;
        if (elapsedNs >= nextNs && tellTroubles(elapsedNs)) {
            nextNs = elapsedNs + base::NS_PER_SECOND;
        }
    }
    tellTroubles(live.status().elapsedNs);
    return std::nullopt;
}

/// The text first: a run may have lasted for days, and the file may be refused.
void tellResult(run::LiveResult const& result, base::ResultFile& json, CliStreams const& streams) {
    if (!json.isStandard()) {
        streams.out << '\n' << report::liveReport(result, streams.outStyle) << std::flush;
    }
    json.put([&](std::ostream& out) {
        report::writeJson(report::toJson(result, nullptr, streams.provenance), out);
        if (json.isStandard() && !out.flush()) {
            streams.err << report::liveReport(result, streams.errStyle);
        }
    });
}

serve::CameraPageSource pageOf(run::CameraFrames const& frames, CameraShots const& shots,
                               run::LiveRun& live) {
    return {.preview = [&frames]() -> std::optional<std::string> {
                auto const newest = frames.newest();
                return newest ? std::optional(picture::toJpeg(
                                    newest->picture->pixels(picture::PixelKind::Rgb, kPreviewWidth),
                                    kPreviewQuality))
                              : std::nullopt;
            },
            .shot = [&shots](uint32_t requestNo,
                             size_t index) { return shots.shown(requestNo, index); },
            .state = [&shots] { return shots.state(); },
            .press = [&live] { live.press(); }};
}

/// What the report shows; none: there is too little to be shown.
using Replay = std::optional<std::pair<recording::Recording, run::ReplayResult>>;

/// Runs until the end, with lines to `lines` and the log to `log`; the same where one stream takes
/// both.
std::pair<run::LiveResult, Replay> takePictures(CameraArguments& arguments,
                                                std::unique_ptr<picture::Camera> camera,
                                                base::SignalWatch const& signals,
                                                base::LineWriter& lines, base::LineWriter& log) {
    Tell const tell = [&lines](std::string const& line) { lines.push(line); };
    // What a capture was offered leaves the history before its result comes.
    size_t const pictures = arguments.report ? arguments.options.replay.history + kLateFrames : 0;
    run::CameraFrames frames(std::move(camera), pictures);
    CameraShots shots(frames, arguments.pictures,
                      {.forPage = arguments.port.has_value(), .forReport = pictures > 0}, tell);
    run::LiveRun live(frames, arguments.options,
                      {.log = [&log](std::string const& text) { log.push(text); },
                       .press = [&frames](uint32_t requestNo,
                                          int64_t pressNs) { frames.press(requestNo, pressNs); },
                       .frame = [&shots](run::LiveFrame const& frame) { shots.take(frame); }});
    tell(report::cameraText(frames.facts()));
    std::optional<serve::CameraPage> page;
    if (arguments.port) {
        page.emplace(*arguments.port, pageOf(frames, shots, live));
        tell(fmt::format("Page       {}\n", page->address()));
    }
    tell("\n");
    live.start();
    std::optional<int> const signal = watch(live, signals, frames, tell);
    page.reset();  // nobody presses from here on
    run::LiveResult result = live.finish();
    result.signal = signal;
    result.camera = frames.facts();
    shots.finish(result);
    Replay replay = arguments.report ? shots.replayOf(result) : std::nullopt;
    return {std::move(result), std::move(replay)};
}

int runCamera(CLI::App const& command, CameraArguments& arguments, CliStreams const& streams) {
    requireConsistent(command, arguments.options.replay, {&arguments.options.replay.policy, 1},
                      arguments.options.replay.offsetMs.has_value());
    requireOwnFiles({{"--json", arguments.json},
                     {"--report", arguments.report},
                     {"--record", arguments.options.recordPath}},
                    {arguments.camera.source});
    base::ResultFile json(arguments.json, streams.out);
    base::ResultFile report(arguments.report, streams.out);
    // First of all, so that every thread leaves the signals to this one.
    std::optional<base::SignalWatch> signals(std::in_place, std::vector{SIGUSR1});
    auto const policy =
        watchPolicy("zsl camera", arguments.options.replay.policy, arguments.policyLimit);
    std::unique_ptr<picture::Camera> camera;
    try {
        camera = picture::openCamera(arguments.camera, [&signals] { signals->throwIfAny(); });
    } catch (base::Interrupted const& interrupted) {
        streams.err << "zsl camera: " << interrupted.what() << '\n';
        return kSignalStatus + interrupted.signal();
    }
    // Destroyed before anybody else writes to the streams.
    std::optional<base::LineWriter> err(std::in_place, streams.err, kLogBytes);
    std::optional<base::LineWriter> out(std::in_place, streams.out, kLogBytes);
    auto [result, replay] =
        takePictures(arguments, std::move(camera), *signals, json.isStandard() ? *err : *out, *err);
    out->finish(kPatience);
    out.reset();
    base::LineWriter::Counts const shown = err->finish(kPatience);
    err.reset();
    if (shown.lines > 0) {
        result.log = shown;
    }
    tellResult(result, json, streams);
    report.put([&, &shown = replay](std::ostream& page) {
        if (!shown) {
            throw base::OutputError("--report: expected two frames at least, found fewer");
        }
        report::writeHtmlReport(shown->first, shown->second, nullptr, streams.provenance, page);
    });
    // What is left is to wait for whoever reads: a signal shall end that as it ends others.
    signals.reset();
    if (shown.hasFailed) {
        throw base::OutputError("standard error cannot be written");
    }
    return result.isClean() ? 0 : 1;
}

void addSourceOptions(CLI::App& command, CameraArguments& arguments) {
    command.option_defaults()->group(kRecordingGroup);
    command
        .add_option("SOURCE", arguments.camera.source,
                    "/dev/video0, an address (rtsp://...), a pipe, lavfi:testsrc2, or a file at "
                    "its own pace")
        ->required()
        ->check([](std::string const& source) {
            return source == STANDARD_STREAM
                       ? "expected a camera; standard input is for presses, a named pipe is read"
                       : isNamed(source);
        })
        ->type_name("SOURCE");
    addParsed(command, "--input-option", arguments.camera.inputOptions, parseProperty,
              "Give FFmpeg's reader of the source an option, as video_size=1280x720; may be "
              "repeated",
              "NAME=VALUE");
    addParsed(command, "--stall-timeout", arguments.camera.stallNs, parseRunTime,
              "Without a picture for so long the camera is gone [default: 5s]", "T");
    addParsed(command, "--duration", arguments.options.durationNs, parseRunTime,
              "How long to run [default: until Ctrl-C or the source's end]", "T");
    addParsed(command, "--press-every", arguments.options.pressEveryNs, parseRunTime,
              "Time from press to press, beside those by Enter and SIGUSR1", "T");
    addParsed(command, "--dump-every", arguments.options.dumpEveryNs, parseRunTime,
              "Time from dump to dump [default: 1s]", "T");
}

void addServeOption(CLI::App& command, std::optional<uint16_t>& port) {
    command
        .add_option_function<std::string>(
            "--serve",
            [&port](std::string const& text) {
                try {
                    port = static_cast<uint16_t>(parseWholeNumber(text, 0, UINT16_MAX));
                } catch (std::invalid_argument const& error) {
                    throw CLI::ValidationError("--serve", error.what());
                }
            },
            "Serve a page with preview, button and captures on 127.0.0.1 [default: a free port]")
        ->expected(0, 1)
        ->default_str("0")
        ->type_name("[PORT]");
}

}  // namespace

void addCameraCommand(CLI::App& app, CliStreams const& streams, int& exitStatus) {
    auto const arguments = std::make_shared<CameraArguments>();
    CLI::App* const command =
        app.add_subcommand("camera", "Take pictures with a real camera, without shutter lag");
    addSourceOptions(*command, *arguments);
    addServiceOptions(*command, arguments->options.replay);
    addCaptureOptions(*command, arguments->options.replay);
    addPipelineOptions(*command, arguments->options.replay, false);
    addPolicyLimit(*command, arguments->policyLimit);
    addLogOption(*command, arguments->options.replay);
    addFile(*command, "--pictures", arguments->pictures,
            "Write each picture into this folder as it comes")
        ->type_name("DIR");
    addServeOption(*command, arguments->port);
    addReportOption(*command, arguments->report);
    addFile(*command, "--record", arguments->options.recordPath,
            "Record what the processor sees, for zsl replay");
    addJson(*command, arguments->json);
    command->callback([command, arguments, &streams, &exitStatus] {
        exitStatus = runCamera(*command, *arguments, streams);
    });
}

}  // namespace zebcam::tool::commands
