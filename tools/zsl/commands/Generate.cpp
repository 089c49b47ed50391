#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <charconv>
#include <limits>
#include <memory>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>

#include "base/ResultFile.h"
#include "base/Text.h"
#include "commands/Commands.h"
#include "commands/OptionValues.h"
#include "recording/RecordingFile.h"
#include "recording/RecordingGenerator.h"
#include "report/JsonReport.h"

namespace zebcam::tool::commands {

namespace {

struct Arguments {
    std::string output;
    std::optional<std::string> json;
    recording::GeneratorOptions options;
};

double parseNumber(std::string const& text) {
    double value = 0;
    auto const [rest, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || rest != text.data() + text.size()) {
        throw std::invalid_argument("expected a number, found " + base::quoteContent(text));
    }
    return value;
}

int run(Arguments const& arguments, CliStreams const& streams) {
    if (arguments.output == "-" && arguments.json == "-") {
        throw CLI::ValidationError("--json", "--output goes to '-' as well");
    }
    base::ResultFile output(arguments.output, streams.out);
    base::ResultFile json(arguments.json, streams.out);
    recording::Recording recording = recording::generate(arguments.options);
    recording.path = output.isStandard() ? "" : arguments.output;
    output.put([&](std::ostream& out) { recording::writeRecording(recording, out); });
    json.put([&](std::ostream& out) {
        report::writeJson(report::toJson(arguments.options, recording), out);
    });
    return 0;
}

/// Numbers of one type each; the generator knows their ranges, which partly depend on each other.
class NumberOptions {
public:
    explicit NumberOptions(CLI::App& command) : mCommand(command) {}

    template <typename Whole>
    void addWhole(std::string const& name, Whole& value, std::string const& help) {
        auto const max =
            static_cast<int64_t>(std::min<uint64_t>(std::numeric_limits<Whole>::max(), INT64_MAX));
        auto const parse = [&value, max](std::string const& text) {
            value = static_cast<Whole>(parseWholeNumber(text, 0, max));
        };
        addValue(mCommand, name, parse, fmt::format("{} [default: {}]", help, value), "N");
    }

    void addNumber(std::string const& name, double& value, std::string const& help) {
        auto const parse = [&value](std::string const& text) { value = parseNumber(text); };
        addValue(mCommand, name, parse, fmt::format("{} [default: {}]", help, value), "X");
    }

    void addTime(std::string const& name, int64_t& ns, std::string const& help) {
        auto const parse = [&ns](std::string const& text) { ns = base::parseDuration(text); };
        addValue(mCommand, name, parse,
                 fmt::format("{} [default: {}]", help, base::formatDuration(ns)), "T");
    }

private:
    CLI::App& mCommand;
};

void addOptions(CLI::App& command, recording::GeneratorOptions& options) {
    NumberOptions numbers(command);
    numbers.addWhole("--frames", options.frames, "Number of frames, 2 to 1000000");
    numbers.addNumber("--fps", options.fps, "Rate that the sensor reports, 1 to 960");
    numbers.addWhole("--seed", options.seedValue, "Another value makes another recording");
    numbers.addTime("--start", options.startNs, "Time of the first frame");
    numbers.addWhole("--first-frame", options.firstFrameNo, "Number of the first frame");
    numbers.addWhole("--interval-excess-ppm", options.intervalExcessPpm,
                     "How much longer the intervals are than reported, up to 100000");
    numbers.addTime("--jitter", options.jitterNs,
                    "How far an interval strays, at most a tenth of it");
    numbers.addNumber("--late-rate", options.lateRate,
                      "Share of frames that come 1.3 ms late (at most 0.4 of an interval)");
    numbers.addNumber("--gap-rate", options.gapRate,
                      "Share of intervals of twice the length, mostly in the first frames");
    addValue(
        command, "--exposure",
        [&options](std::string const& text) { options.exposureNs = base::parseDuration(text); },
        "Exposure at the start, up to the frame duration [default: 10ms, or a third of a shorter "
        "frame]",
        "T");
    numbers.addNumber("--exposure-drift-rate", options.exposureDriftRate,
                      "Share of frames whose exposure changes by up to 5 %");
    numbers.addNumber("--exposure-jump-rate", options.exposureJumpRate,
                      "Share of frames whose exposure doubles or halves");
    numbers.addNumber("--scan-rate", options.scanRate,
                      "Share of frames that begin a focus scan, of those outside one");
    numbers.addNumber("--strange-af-state-rate", options.strangeAfStateRate,
                      "Share of frames with the undocumented AF state 101");
    numbers.addNumber("--missing-af-state-rate", options.missingAfStateRate,
                      "Share of frames without AF state, evenly spread");
    numbers.addNumber("--error-rate", options.errorRate, "Share of frames with an unusable image");
    numbers.addNumber("--unsynced-rate", options.unsyncedRate,
                      "Share of frames whose sensors are not synchronised");
}

}  // namespace

void addGenerateCommand(CLI::App& app, CliStreams const& streams, int& exitStatus) {
    auto const arguments = std::make_shared<Arguments>();
    CLI::App* const command = app.add_subcommand(
        "generate", "Write a made-up recording that shows what phones show (a rate is 0 to 1)");
    addValue(
        *command, "-o,--output", [arguments](std::string const& text) { arguments->output = text; },
        "File to write, - for standard output", "FILE")
        ->required();
    addOptions(*command, arguments->options);
    addJson(*command, arguments->json, "Tell what was made as JSON, - for standard output");
    command->callback(
        [arguments, &streams, &exitStatus] { exitStatus = run(*arguments, streams); });
}

}  // namespace zebcam::tool::commands
