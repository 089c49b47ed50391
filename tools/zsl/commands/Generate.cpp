#include "commands/Commands.h"

#include <CLI/CLI.hpp>

#include <charconv>
#include <cmath>
#include <exception>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "base/Text.h"
#include "commands/Commands.h"
#include "recording/RecordingFile.h"
#include "recording/RecordingGenerator.h"

namespace zebcam::tool::commands {

namespace {

constexpr double kNsPerMs = 1e6;

/// The command line in the user's units.
struct Arguments {
    std::string output;
    recording::GeneratorOptions options;
    double jitterUs = static_cast<double>(options.jitterNs) / 1e3;
    std::optional<double> exposureMs;
};

// Refuses what does not fit a number of ns, which rounding would leave undefined.
int64_t toNs(char const* name, double value, double nsPerUnit) {
    double const ns = value * nsPerUnit;
    if (!(std::abs(ns) < 9e18)) {
        throw std::invalid_argument(std::string(name) + ": expected a time within 64 bits of ns");
    }
    return std::llround(ns);
}

// What is too large would be cut to the largest number in silence.
std::string refuseNoNumber(std::string const& text) {
    uint64_t value = 0;
    auto const [rest, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    bool const good = error == std::errc() && rest == text.data() + text.size();
    return good ? "" : "expected a whole number below 2^64, found " + base::quoteContent(text);
}

int run(Arguments& arguments) {
    try {
        recording::GeneratorOptions& options = arguments.options;
        options.jitterNs = toNs("jitter", arguments.jitterUs, 1e3);
        if (arguments.exposureMs) {
            options.exposureNs = toNs("exposure", *arguments.exposureMs, kNsPerMs);
        }
        recording::Recording const recording = recording::generate(options);
        if (arguments.output != "-") {
            recording::writeRecording(recording, arguments.output);
            return 0;
        }
        recording::writeRecording(recording, std::cout);
        return std::cout.flush() ? 0 : 2;
    } catch (std::exception const& error) {
        std::cerr << "zsl generate: " << error.what() << '\n';
        return 2;
    }
}

void addTimeOptions(CLI::App& command, Arguments& arguments) {
    recording::GeneratorOptions& options = arguments.options;
    command.add_option("--frames", options.frames, "Number of frames (2 to 1000000)");
    command.add_option("--fps", options.fps, "Rate that the sensor reports (1 to 960)");
    command.add_option("--seed", options.seedValue, "Another value makes another recording")
        ->check(refuseNoNumber);
    command.add_option("--start-ns", options.startNs, "Time of the first frame");
    command.add_option("--first-frame", options.firstFrameNo, "Number of the first frame");
    command.add_option("--interval-excess-ppm", options.intervalExcessPpm,
                       "How much longer the intervals are than reported (0 to 100000)");
    command.add_option("--jitter-us", arguments.jitterUs,
                       "How far an interval strays (at most a tenth of it)");
    command.add_option("--late-rate", options.lateRate,
                       "Share of frames that come 1.3 ms late (at most 0.4 of an interval)");
    command.add_option("--gap-rate", options.gapRate,
                       "Share of intervals of twice the length, mostly in the first frames");
}

void addStateOptions(CLI::App& command, Arguments& arguments) {
    recording::GeneratorOptions& options = arguments.options;
    command.add_option("--exposure-ms", arguments.exposureMs,
                       "Exposure at the start, up to the frame duration "
                       "[default: 10, or a third of a shorter frame]");
    command.add_option("--exposure-drift-rate", options.exposureDriftRate,
                       "Share of frames whose exposure changes by up to 5 %");
    command.add_option("--exposure-jump-rate", options.exposureJumpRate,
                       "Share of frames whose exposure doubles or halves");
    command.add_option("--scan-rate", options.scanRate,
                       "Share of frames that begin a focus scan, of those outside one");
    command.add_option("--strange-af-state-rate", options.strangeAfStateRate,
                       "Share of frames with the undocumented AF state 101");
    command.add_option("--missing-af-state-rate", options.missingAfStateRate,
                       "Share of frames without AF state, evenly spread");
    command.add_option("--error-rate", options.errorRate, "Share of frames with an unusable image");
    command.add_option("--unsynced-rate", options.unsyncedRate,
                       "Share of frames whose sensors are not synchronised");
}

}  // namespace

void addGenerateCommand(CLI::App& app, int& exitStatus) {
    auto const arguments = std::make_shared<Arguments>();
    CLI::App* const command = app.add_subcommand(
        "generate", "Write a made-up recording that shows what phones show (a rate is 0 to 1)");
    command->option_defaults()->always_capture_default();
    command->add_option("-o,--output", arguments->output, "File to write, - for standard output")
        ->required();
    addTimeOptions(*command, *arguments);
    addStateOptions(*command, *arguments);
    command->callback([arguments, &exitStatus] { exitStatus = run(*arguments); });
}

}  // namespace zebcam::tool::commands
