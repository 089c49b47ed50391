#include "commands/OptionValues.h"

#include <cutils/properties.h>
#include <fmt/format.h>
#include <ulog/ULogger.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "base/Decimal.h"
#include "base/Text.h"
#include "commands/Commands.h"
#include "picture/VideoFile.h"
#include "pipeline/ProcessorProperties.h"
#include "report/Page.h"
#include "script/Rule.h"

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

int64_t parseRunTime(std::string const& text) {
    constexpr int64_t kMaxRunNs = 7 * 24 * 3600 * base::NS_PER_SECOND;
    int64_t const ns = base::parseDuration(text);
    if (ns < base::NS_PER_MS || ns > kMaxRunNs) {
        throw std::invalid_argument(fmt::format(
            "expected a time from {} to {}, found {}", base::formatDuration(base::NS_PER_MS),
            base::formatDuration(kMaxRunNs), base::formatDuration(ns)));
    }
    return ns;
}

std::chrono::nanoseconds parseTimeLimit(std::string const& text) {
    std::chrono::nanoseconds const limit(parseDelay(text));
    if (limit.count() == 0) {
        refuse("a time longer than 0s", text);
    }
    return limit;
}

int64_t parseBootTime(std::string const& text) {
    bool const hasUnit = text.ends_with('s');
    bool const hasPoint = text.find('.') != std::string::npos;
    constexpr int kSeconds = 9;
    std::optional<int64_t> const ns =
        hasUnit ? base::parseDuration(text) : base::scaledDecimal(text, hasPoint ? kSeconds : 0);
    if (!ns) {
        refuse("a boot time after @, in seconds with a point (28670.539810) or in ns", text);
    }
    return *ns;
}

int64_t parseMilliseconds(std::string const& text) {
    int64_t const ns = base::parseDuration(text);
    // The property that it becomes counts in ms.
    if (ns % base::NS_PER_MS != 0) {
        refuse("whole milliseconds", text);
    }
    return ns / base::NS_PER_MS;
}

namespace {

constexpr pipeline::PolicyKind kNamed[] = {
    pipeline::PolicyKind::Default, pipeline::PolicyKind::CShot, pipeline::PolicyKind::Multiframe,
    pipeline::PolicyKind::BestShot};

constexpr std::pair<char const*, uint32_t> kLogLevels[] = {{"error", ulog::LOG_LEVEL_ERROR},
                                                           {"warning", ulog::LOG_LEVEL_WARNING},
                                                           {"info", ulog::LOG_LEVEL_INFO},
                                                           {"debug", ulog::LOG_LEVEL_DEBUG}};

}  // namespace

std::vector<std::string> policyNames() {
    std::vector<std::string> names;
    for (pipeline::PolicyKind const kind : kNamed) {
        names.push_back(pipeline::PolicyOption{kind, {}}.name());
    }
    return names;
}

std::vector<std::string> logLevelNames() {
    std::vector<std::string> names;
    for (auto const& [name, level] : kLogLevels) {
        names.emplace_back(name);
    }
    return names;
}

pipeline::PolicyOption parsePolicy(std::string const& text) {
    for (pipeline::PolicyKind const kind : kNamed) {
        pipeline::PolicyOption policy{kind, {}};
        if (policy.name() == text) {
            return policy;
        }
    }
    // As dlopen tells a path from a name, so that a misspelt policy is not looked for as a file.
    bool const isRule = text.ends_with(script::RULE_SUFFIX);
    if (isRule || text.find('/') != std::string::npos || text.ends_with(".so")) {
        if (isRule && !script::canRunRules()) {
            throw std::invalid_argument(script::NO_RULES);
        }
        return {pipeline::PolicyKind::Plugin, text};
    }
    std::vector<std::string> const names = policyNames();
    throw std::invalid_argument(
        fmt::format("expected {}, or the path of a library or of a rule (.py), found {}{}",
                    base::anyOf(names), base::quoteContent(text), base::didYouMean(text, names)));
}

uint32_t parseLogLevel(std::string const& text) {
    for (auto const& [name, level] : kLogLevels) {
        if (text == name) {
            return level;
        }
    }
    std::vector<std::string> const names = logLevelNames();
    throw std::invalid_argument(fmt::format("expected {}, found {}{}", base::anyOf(names),
                                            base::quoteContent(text),
                                            base::didYouMean(text, names)));
}

std::string isNamed(std::string const& path) {
    return path.empty() ? "expected the name of a file, found \"\"" : "";
}

std::string parseOutput(std::string const& text) {
    if (text.empty()) {
        refuse("the name of a file, or -", text);
    }
    return text;
}

std::pair<std::string, std::string> parseProperty(std::string const& text) {
    // The first: a value may hold others.
    size_t const equals = text.find('=');
    if (equals == std::string::npos || equals == 0) {
        refuse("KEY=VALUE", text);
    }
    return {text.substr(0, equals), text.substr(equals + 1)};
}

std::pair<std::string, std::string> parsePolicyParameter(std::string const& text) {
    auto const [name, value] = parseProperty(text);
    if (!std::all_of(name.begin(), name.end(), [](char c) {
            return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                   c == '_' || c == '-' || c == '.';
        })) {
        refuse("NAME=VALUE, with a name of letters, digits and '._-'", text);
    }
    if (value.empty() || value.size() >= PROPERTY_VALUE_MAX) {
        refuse(fmt::format("NAME=VALUE, with a value of 1 to {} bytes", PROPERTY_VALUE_MAX - 1),
               text);
    }
    return {name, value};
}

namespace {

// Bounds against slips that would take all memory or hours.
constexpr int64_t kMaxCaptures = 10'000;
constexpr char kWhyNotMore[] = "; more may take more than 1 GB of memory";
constexpr int64_t kMaxTimeoutMs = 86'400'000;  // a day

}  // namespace

CLI::Option* addValue(CLI::App& command, std::string const& name,
                      std::function<void(std::string const&)> const& parse, std::string const& help,
                      std::string const& type, bool isList) {
    CLI::Option* const option = command.add_option_function<std::vector<std::string>>(
        name,
        [name, parse, isList](std::vector<std::string> const& values) {
            // Which of them was meant is anybody's guess.
            if (values.size() > 1 && !isList) {
                throw CLI::ValidationError(
                    name, fmt::format("expected once, found {} times", values.size()));
            }
            for (std::string const& value : values) {
                try {
                    parse(value);
                } catch (std::invalid_argument const& error) {
                    throw CLI::ValidationError(name, error.what());
                }
            }
        },
        help);
    // A list would else take all words that follow.
    return option->type_name(type)->type_size(1)->expected(1)->allow_extra_args(false)->take_all();
}

CLI::Option* addFlag(CLI::App& command, std::string const& name, bool& isOn,
                     std::string const& help) {
    // The parser would take --flag=3 and --flag=false as well.
    return command.add_flag(name, isOn, help)->disable_flag_override();
}

CLI::Option* addCount(CLI::App& command, std::string const& name, size_t& count, int64_t max,
                      std::string const& help) {
    auto const parse = [max](std::string const& text) {
        return static_cast<size_t>(parseWholeNumber(text, 1, max));
    };
    return addParsed(command, name, count, parse, fmt::format("{} [default: {}]", help, count),
                     "N");
}

CLI::Option* addFile(CLI::App& command, std::string const& name, std::optional<std::string>& path,
                     std::string const& help) {
    auto const parse = [](std::string const& text) {
        if (text.empty() || text == "-") {
            refuse("the name of a file", text);
        }
        return text;
    };
    return addParsed(command, name, path, parse, help, "FILE");
}

void addJson(CLI::App& command, std::optional<std::string>& path, std::string const& help) {
    command.option_defaults()->group(kResults);
    addParsed(command, "--json", path, parseOutput, help, "FILE");
}

void addLogOption(CLI::App& command, pipeline::ReplayOptions& options) {
    command.option_defaults()->group(kResults);
    addParsed(command, "--log", options.logLevel, parseLogLevel,
              "Print the processor's log: error, warning, info or debug", "LEVEL");
}

void addRequests(CLI::App& command, std::vector<uint32_t>& requests, std::string const& help) {
    auto const parse = [](std::string const& text) {
        return static_cast<uint32_t>(parseWholeNumber(text, 0, UINT32_MAX));
    };
    addParsed(command, "--request", requests, parse, help, "N");
}

void requireOwnFiles(std::vector<std::pair<char const*, std::optional<std::string>>> const& outputs,
                     std::vector<std::string> const& inputs) {
    namespace fs = std::filesystem;
    std::map<std::string, char const*> taken;
    for (auto const& [option, path] : outputs) {
        if (path && !taken.emplace(*path, option).second) {
            throw CLI::ValidationError(
                option, fmt::format("{} goes to '{}' as well", taken.at(*path), *path));
        }
        for (std::string const& input : inputs) {
            std::error_code ignored;  // of a file that is not there
            if (path && fs::is_regular_file(input, ignored) &&
                fs::equivalent(*path, input, ignored)) {
                throw CLI::ValidationError(
                    option, fmt::format("'{}' is what is read, and would be lost", *path));
            }
        }
    }
}

CLI::Option* addReportOption(CLI::App& command, std::optional<std::string>& path,
                             std::string const& name, std::string const& help) {
    return addFile(command, name, path, help)->check([](std::string const&) {
        return report::reportPage() != nullptr ? std::string()
                                               : "this zsl was built without the page; build it "
                                                 "with -DZSL_BUILD_PAGE=ON, which "
                                                 "needs node and npm";
    });
}

void addLimitOption(CLI::App& command, std::vector<compare::Limit>& limits) {
    addParsed(
        command, "--fail-if", limits, [](std::string const& text) { return compare::Limit(text); },
        "Exit with 1 if this holds for a run (zsl list fields), as p95_lag_ms>50; may be "
        "repeated",
        "FIELD<|<=|>|>=|==|!=N");
}

void addInputOptions(CLI::App& command, recording::InputOptions& options) {
    command.option_defaults()->group(kRecordingGroup);
    addParsed(command, "--from", options.fromNs, base::parseDuration,
              "Take the part from so long after the first frame; times count from its first", "T");
    addParsed(command, "--to", options.toNs, base::parseDuration,
              "Take the part up to so long after the first frame", "T");
    addFlag(command, "--any-rate", options.anyRate,
            "Take a recording below 1 or above 2000 frames/s too");
}

namespace {

std::string isReadableVideo(std::string const& path) {
    return picture::canReadVideos() ? isNamed(path) : picture::NO_VIDEOS;
}

template <typename Target>
void addVideoOptionsTo(CLI::App& command, Target& target, std::string const& help,
                       bool& isCacheOff) {
    auto const parse = [](std::string const& path) { return path; };
    addParsed(command, "--video", target, parse, help, "FILE")->check(isReadableVideo);
    addFlag(command, "--no-cache", isCacheOff,
            "Measure the pictures of videos anew, and keep nothing");
}

}  // namespace

void addVideoOptions(CLI::App& command, std::optional<std::string>& path, bool& isCacheOff) {
    addVideoOptionsTo(command, path, "Take the frames' pictures from this video", isCacheOff);
}

void addVideoOptions(CLI::App& command, std::vector<std::string>& paths, bool& isCacheOff) {
    addVideoOptionsTo(command, paths,
                      "The pictures of a recording: one video for each recording, in their order",
                      isCacheOff);
}

void addPressOptions(CLI::App& command, pipeline::ReplayOptions& options) {
    command.option_defaults()->group(kCaptures);
    auto const parse = [&options](std::string const& text) {
        if (options.pressesNs.size() + options.pressBootTimesNs.size() == kMaxCaptures) {
            throw std::invalid_argument(
                fmt::format("expected at most {} presses{}", kMaxCaptures, kWhyNotMore));
        }
        if (text.starts_with('@')) {
            options.pressBootTimesNs.push_back(parseBootTime(text.substr(1)));
        } else {
            options.pressesNs.push_back(base::parseDuration(text));
        }
    };
    CLI::Option* const press =
        addValue(command, "--press", parse,
                 "Press this long after the first frame (1.2s, 350ms) or at a boot time "
                 "(@28670.53981); may be repeated",
                 "T|@T", true);
    auto const parseCount = [](std::string const& text) {
        try {
            return static_cast<size_t>(parseWholeNumber(text, 1, kMaxCaptures));
        } catch (std::invalid_argument const& error) {
            throw std::invalid_argument(error.what() + std::string(kWhyNotMore));
        }
    };
    addParsed(command, "--captures", options.captures, parseCount,
              fmt::format("Number of presses, evenly spread, without --press [default: {}]",
                          options.captures),
              "N")
        ->excludes(press);
}

void addServiceOptions(CLI::App& command, pipeline::ReplayOptions& options) {
    command.option_defaults()->group(kCaptures);
    addCount(command, "--frames", options.framesPerCapture, kMaxFramesPerCapture,
             "Frames of each capture");
    addParsed(command, "--policy", options.policy, parsePolicy,
              "default, cshot, multiframe, best-shot, a library with a policy or a rule in Python "
              "[default: default]",
              "NAME|PATH.so|PATH.py");
    addParsed(command, "--policy-option", options.policyParameters, parsePolicyParameter,
              "Give best-shot or the file's policy a parameter; may be repeated", "NAME=VALUE");
    addParsed(command, "--offset", options.offsetMs, parseMilliseconds,
              "How long before the press the wanted instant lies (ZSL offset), whole ms", "T");
    addCount(command, "--history", options.history, kMaxHistory, "Frames that the history keeps")
        ->group(kPipeline);
}

void addCaptureOptions(CLI::App& command, pipeline::ReplayOptions& options) {
    command.option_defaults()->group(kCaptures);
    addParsed(
        command, "--timeout-ms", options.timeoutMs,
        [](std::string const& text) { return parseWholeNumber(text, 0, kMaxTimeoutMs); },
        fmt::format("Time-out of the multiframe policy [default: {}]", options.timeoutMs), "N");
    addFlag(command, "--frame-sync", options.frameSync,
            "Ask for frames whose sensors are synchronised");
}

void addPolicyLimit(CLI::App& command, std::chrono::nanoseconds& limit) {
    addParsed(command, "--time-limit", limit, parseTimeLimit,
              "Give up when a policy from a file takes longer for an answer [default: 600s]", "T");
}

std::unique_ptr<pipeline::PolicyWatch> watchPolicy(char const* command,
                                                   pipeline::PolicyOption const& policy,
                                                   std::chrono::nanoseconds limit) {
    std::string const path = policy.file();
    return path.empty() ? nullptr
                        : std::make_unique<pipeline::PolicyWatch>(command, path, limit, kBadInput);
}

void addPipelineOptions(CLI::App& command, pipeline::ReplayOptions& options, bool hasDelivery) {
    command.option_defaults()->group(kPipeline);
    if (hasDelivery) {
        addParsed(command, "--delivery-delay", options.deliveryDelayNs, parseDelay,
                  "From the end of the readout to the history [default: the frame's duration]",
                  "T");
    }
    addParsed(command, "--reprocess-delay", options.reprocessDelayNs, parseDelay,
              "From a served frame to its result [default: the median interval]", "T");
    addParsed(command, "--property", options.properties, parseProperty,
              "Set a system property that the processor reads (zsl list properties); may be "
              "repeated",
              "KEY=VALUE");
    command.add_flag("--any-property")
        ->description("Let --property set others, too, for a policy of your own")
        ->disable_flag_override();
}

void addFaultOptions(CLI::App& command, pipeline::FaultOptions& options) {
    command.option_defaults()->group(kFaults);
    CLI::Option* const fault = addParsed(
        command, "--fault", options.rules, pipeline::parseFault,
        "Let something go wrong (zsl list faults), at a rate from 0 to 1 or once; may be repeated",
        "KIND[:RATE|@TIME]");
    addParsed(
        command, "--seed", options.randomSeed,
        [](std::string const& text) { return parseWholeNumber(text, 0, INT64_MAX); },
        fmt::format("Random seed: the same one, the same faults [default: {}]", options.randomSeed),
        "N")
        ->needs(fault);
}

void requireConsistent(CLI::App const& command, pipeline::ReplayOptions const& options,
                       std::span<pipeline::PolicyOption const> policies, bool setsOffset) {
    std::vector<std::string> known;
    known.reserve(std::size(pipeline::PROCESSOR_PROPERTIES));
    for (pipeline::ProcessorProperty const& property : pipeline::PROCESSOR_PROPERTIES) {
        known.emplace_back(property.name);
    }
    for (auto const& [name, value] : options.properties) {
        if (setsOffset && name == pipeline::OFFSET_PROPERTY) {
            // Either would win in silence, depending on which is set last.
            throw CLI::ValidationError("--offset", fmt::format("--property sets {} as well", name));
        }
        if (command.count("--any-property") == 0 &&
            std::find(known.begin(), known.end(), name) == known.end()) {
            throw CLI::ValidationError(
                "--property",
                fmt::format("expected a property that the processor reads, or --any-property as "
                            "well, found {} (zsl list properties){}",
                            base::quoteContent(name), base::didYouMean(name, known)));
        }
    }
    bool const takesParameters =
        std::any_of(policies.begin(), policies.end(),
                    [](auto const& policy) { return !policy.file().empty(); });
    if (command.count("--policy-option") > 0 && !takesParameters) {
        throw CLI::ValidationError("--policy-option",
                                   "expected best-shot, a library or a rule as --policy, because "
                                   "the built-in policies take no parameters");
    }
    bool const hasTimeout = std::any_of(policies.begin(), policies.end(), [](auto const& policy) {
        return policy.kind == pipeline::PolicyKind::Multiframe;
    });
    if (command.count("--timeout-ms") > 0 && !hasTimeout) {
        throw CLI::ValidationError("--timeout-ms",
                                   fmt::format("expected --policy multiframe as well; the others "
                                               "wait for {} ms",
                                               pipeline::DEFAULT_TIMEOUT_MS));
    }
}

}  // namespace zebcam::tool::commands
