#include "commands/OptionValues.h"

#include <fmt/format.h>
#include <ulog/ULogger.h>

#include <algorithm>
#include <charconv>
#include <limits>
#include <stdexcept>
#include <vector>

#include "base/Text.h"
#include "report/Page.h"

namespace zebcam::tool::commands {

namespace ulog = NSCam::Utils::ULog;

namespace {

/// As long as a recording's own times may be, so that sums of them fit 64 bits.
constexpr int64_t kMaxDelayNs = 3'600'000'000'000;

[[noreturn]] void refuse(std::string const& expected, std::string const& text) {
    throw std::invalid_argument(
        fmt::format("expected {}, found {}", expected, base::quoteContent(text)));
}

}  // namespace

int64_t parseWholeNumber(std::string const& text, int64_t min, int64_t max) {
    int64_t value = 0;
    auto const [rest, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || rest != text.data() + text.size() || value < min || value > max) {
        refuse(fmt::format("a whole number from {} to {}", min, max), text);
    }
    return value;
}

int64_t parseDelay(std::string const& text) {
    int64_t const ns = base::parseDuration(text);
    if (ns < 0 || ns > kMaxDelayNs) {
        refuse("a time from 0s to " + base::formatDuration(kMaxDelayNs), text);
    }
    return ns;
}

int64_t parseMilliseconds(std::string const& text) {
    constexpr int64_t kNsPerMs = 1'000'000;
    int64_t const ns = base::parseDuration(text);
    if (ns % kNsPerMs != 0) {
        refuse("whole milliseconds", text);
    }
    return ns / kNsPerMs;
}

pipeline::PolicyOption parsePolicy(std::string const& text) {
    for (pipeline::PolicyKind const kind :
         {pipeline::PolicyKind::Default, pipeline::PolicyKind::CShot,
          pipeline::PolicyKind::Multiframe}) {
        pipeline::PolicyOption policy{kind, {}};
        if (policy.name() == text) {
            return policy;
        }
    }
    if (text.find('/') != std::string::npos || text.ends_with(".so")) {
        return {pipeline::PolicyKind::Plugin, text};
    }
    refuse("default, cshot, multiframe or the path of a library", text);
}

uint32_t parseLogLevel(std::string const& text) {
    for (auto const& [name, level] : {std::pair{"error", ulog::LOG_LEVEL_ERROR},
                                      {"warning", ulog::LOG_LEVEL_WARNING},
                                      {"info", ulog::LOG_LEVEL_INFO},
                                      {"debug", ulog::LOG_LEVEL_DEBUG}}) {
        if (text == name) {
            return level;
        }
    }
    refuse("error, warning, info or debug", text);
}

std::pair<std::string, std::string> parseProperty(std::string const& text) {
    size_t const equals = text.find('=');
    if (equals == std::string::npos || equals == 0) {
        refuse("KEY=VALUE", text);
    }
    return {text.substr(0, equals), text.substr(equals + 1)};
}

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

CLI::Option* addFile(CLI::App& command, std::string const& name, std::optional<std::string>& path,
                     std::string const& help) {
    auto const parse = [&path](std::string const& text) {
        if (text.empty() || text == "-") {
            throw std::invalid_argument("expected the name of a file");
        }
        path = text;
    };
    return addValue(command, name, parse, help, "FILE");
}

void addJson(CLI::App& command, std::optional<std::string>& path, std::string const& help) {
    addValue(
        command, "--json", [&path](std::string const& text) { path = text; }, help, "FILE");
}

void addLogOption(CLI::App& command, pipeline::ReplayOptions& options) {
    addValue(
        command, "--log",
        [&options](std::string const& text) { options.logLevel = parseLogLevel(text); },
        "Print the processor's log: error, warning, info or debug", "LEVEL");
}

void addReportOption(CLI::App& command, std::optional<std::string>& path) {
    addFile(command, "--report", path, "Write a page for a browser")->check([](std::string const&) {
        return report::reportPage() != nullptr ? std::string()
                                               : "this zsl was built without the page; build it "
                                                 "with -DZSL_BUILD_PAGE=ON, which "
                                                 "needs node and npm";
    });
}

void addPressOptions(CLI::App& command, pipeline::ReplayOptions& options) {
    CLI::Option* const press = addValue(
        command, "--press",
        [&options](std::string const& text) {
            options.pressesNs.push_back(base::parseDuration(text));
        },
        "Press this long after the first frame (1.2s, 350ms); may be repeated", "T");
    press->take_all();
    addCount(command, "--captures", options.captures, kMaxCaptures,
             "Number of presses, evenly spread, without --press")
        ->excludes(press);
}

void addServiceOptions(CLI::App& command, pipeline::ReplayOptions& options) {
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

void addCaptureOptions(CLI::App& command, pipeline::ReplayOptions& options) {
    addValue(
        command, "--timeout-ms",
        [&options](std::string const& text) {
            options.timeoutMs = parseWholeNumber(text, 0, kMaxTimeoutMs);
        },
        fmt::format("Time-out of the multiframe policy [default: {}]", options.timeoutMs), "N");
    command.add_flag("--frame-sync", options.frameSync,
                     "Ask for frames whose sensors are synchronised");
}

void addPipelineOptions(CLI::App& command, pipeline::ReplayOptions& options) {
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

void addFaultOptions(CLI::App& command, pipeline::FaultOptions& options) {
    CLI::Option* const fault = addValue(
        command, "--fault",
        [&options](std::string const& text) {
            options.rules.push_back(pipeline::parseFault(text));
        },
        fmt::format("Let something go wrong, at a rate from 0 to 1 or once: {}; may be repeated",
                    pipeline::faultKindNames()),
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

void requireOneOffset(pipeline::ReplayOptions const& options, std::optional<int64_t> offsetMs) {
    bool const isSet = std::any_of(
        options.properties.begin(), options.properties.end(),
        [](auto const& property) { return property.first == pipeline::OFFSET_PROPERTY; });
    if (offsetMs && isSet) {
        throw CLI::ValidationError(
            "--offset", fmt::format("--property sets {} as well", pipeline::OFFSET_PROPERTY));
    }
}

}  // namespace zebcam::tool::commands
