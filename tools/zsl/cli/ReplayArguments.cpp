#include "cli/ReplayArguments.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <vector>

#include "cli/OptionValues.h"
#include "text/Duration.h"

namespace zebcam::tool {
namespace {

constexpr int64_t kMaxCaptures = 100'000;
constexpr int64_t kMaxTimeoutMs = 86'400'000;

}  // namespace

CLI::Option* addValue(CLI::App& command, std::string const& name,
                      std::function<void(std::string const&)> const& parse, std::string const& help,
                      std::string const& type) {
    CLI::Option* const option = command.add_option_function<std::vector<std::string>>(
        name,
        [name, parse](std::vector<std::string> const& values) {
            for (std::string const& value : values) {
                try {
                    parse(value);
                } catch (std::invalid_argument const& error) {
                    throw CLI::ValidationError(name, error.what());
                }
            }
        },
        help);
    return option->type_name(type)->type_size(1)->expected(1)->allow_extra_args(false);
}

CLI::Option* addCount(CLI::App& command, std::string const& name, size_t& count, int64_t max,
                      std::string const& help) {
    return addValue(
        command, name,
        [&count, max](std::string const& text) {
            count = static_cast<size_t>(parseWholeNumber(text, 1, max));
        },
        fmt::format("{} [default: {}]", help, count), "N");
}

std::string requireFile(std::string const& path) {
    if (path.empty() || path == "-") {
        throw std::invalid_argument("expected the name of a file");
    }
    return path;
}

void addPressOptions(CLI::App& command, ReplayOptions& options) {
    CLI::Option* const press = addValue(
        command, "--press",
        [&options](std::string const& text) { options.pressesNs.push_back(parseDuration(text)); },
        "Press this long after the first frame (1.2s, 350ms); may be repeated", "T");
    press->take_all();
    addCount(command, "--captures", options.captures, kMaxCaptures,
             "Number of presses, evenly spread, without --press")
        ->excludes(press);
}

void addServiceOptions(CLI::App& command, ReplayOptions& options) {
    addCount(command, "--frames", options.framesPerCapture, kMaxFramesPerCapture,
             "Frames of each capture");
    addValue(
        command, "--policy",
        [&options](std::string const& text) { options.policy = parsePolicy(text); },
        "default, cshot, multiframe or a library with a policy [default: default]", "NAME|PATH.so");
    addValue(
        command, "--offset",
        [&options](std::string const& text) { options.offsetMs = parseMilliseconds(text); },
        "How long before the press the wanted instant lies (ZSL offset), whole ms", "T");
    addCount(command, "--history", options.history, kMaxHistory, "Frames that the history keeps");
}

void addCaptureOptions(CLI::App& command, ReplayOptions& options) {
    addValue(
        command, "--timeout-ms",
        [&options](std::string const& text) {
            options.timeoutMs = parseWholeNumber(text, 0, kMaxTimeoutMs);
        },
        fmt::format("Time-out of the multiframe policy [default: {}]", options.timeoutMs), "N");
    command.add_flag("--frame-sync", options.frameSync,
                     "Ask for frames whose sensors are synchronised");
}

void addPipelineOptions(CLI::App& command, ReplayOptions& options) {
    auto const setTo = [](std::optional<int64_t>& delay) {
        return [&delay](std::string const& text) { delay = parseDelay(text); };
    };
    addValue(command, "--delivery-delay", setTo(options.deliveryDelayNs),
             "From the end of the readout to the history [default: the frame's duration]", "T");
    addValue(command, "--reprocess-delay", setTo(options.reprocessDelayNs),
             "From a served frame to its result [default: the median interval]", "T");
    addValue(
        command, "--property",
        [&options](std::string const& text) { options.properties.push_back(parseProperty(text)); },
        "Set a system property first; may be repeated", "KEY=VALUE")
        ->take_all();
}

void addFaultOptions(CLI::App& command, FaultOptions& options) {
    CLI::Option* const fault = addValue(
        command, "--fault",
        [&options](std::string const& text) { options.rules.push_back(parseFault(text)); },
        fmt::format("Let something go wrong, at a rate from 0 to 1 or once: {}; may be repeated",
                    faultKindNames()),
        "KIND[:RATE|@TIME]");
    fault->take_all();
    addValue(
        command, "--seed",
        [&options](std::string const& text) {
            options.randomSeed = static_cast<uint64_t>(
                parseWholeNumber(text, 0, std::numeric_limits<int64_t>::max()));
        },
        fmt::format("Random seed: the same one, the same faults [default: {}]", options.randomSeed),
        "N")
        ->needs(fault);
}

void requireOneOffset(ReplayOptions const& options, std::optional<int64_t> offsetMs) {
    bool const isSet =
        std::any_of(options.properties.begin(), options.properties.end(),
                    [](auto const& property) { return property.first == OFFSET_PROPERTY; });
    if (offsetMs && isSet) {
        throw CLI::ValidationError("--offset",
                                   fmt::format("--property sets {} as well", OFFSET_PROPERTY));
    }
}

}  // namespace zebcam::tool
