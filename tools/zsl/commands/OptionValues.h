#pragma once

#include <CLI/CLI.hpp>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "compare/ComparisonFields.h"
#include "pipeline/PolicyWatch.h"
#include "pipeline/ReplayOptions.h"

namespace zebcam::tool::commands {

/// Stands for standard input or output where a file is to be named.
inline constexpr char STANDARD_STREAM[] = "-";

/// The values of options. Each reads `text` or throws std::invalid_argument with a text that says
/// what was expected and found.

int64_t parseWholeNumber(std::string const& text, int64_t min, int64_t max);

/// A time from 0 to an hour, in ns.
int64_t parseDelay(std::string const& text);

/// From 1 ms to a week, in ns.
int64_t parseRunTime(std::string const& text);

/// From 0 to an hour, but not 0.
std::chrono::nanoseconds parseTimeLimit(std::string const& text);

/// A boot time in ns: with a unit, in seconds with a point as logs have it, or in whole ns.
int64_t parseBootTime(std::string const& text);

/// A time in whole ms, in ms.
int64_t parseMilliseconds(std::string const& text);

/// `default`, `cshot`, `multiframe`, `best-shot`, or the path of a library (which contains a slash
/// or ends with `.so`) or of a rule (ends with `.py`).
pipeline::PolicyOption parsePolicy(std::string const& text);

/// The policies that need no path.
std::vector<std::string> policyNames();

std::vector<std::string> logLevelNames();

/// `error`, `warning`, `info` or `debug`, as a ULog::LogLevel.
uint32_t parseLogLevel(std::string const& text);

/// For a file to read: what is wrong with its name, empty for nothing.
std::string isNamed(std::string const& path);

/// The name of a file to write, `-` included.
std::string parseOutput(std::string const& text);

/// `KEY=VALUE`; the value may be empty or contain further equals signs.
std::pair<std::string, std::string> parseProperty(std::string const& text);

/// `NAME=VALUE` of a policy's parameter, fit to become a property.
std::pair<std::string, std::string> parsePolicyParameter(std::string const& text);

/// Options that the commands share, each in the group under which help tells it. The group stays
/// the command's usual one for what is added next.

inline constexpr char kRecordingGroup[] = "Recording";
inline constexpr char kCaptures[] = "Captures";
inline constexpr char kPipeline[] = "Pipeline";
inline constexpr char kFaults[] = "Faults";
inline constexpr char kResults[] = "Results";

inline constexpr int64_t kMaxFramesPerCapture = 1'000;
inline constexpr int64_t kMaxHistory = 100'000;

/// Makes an option's value with `parse`, which is called once for each time that the option is
/// given; what it throws as std::invalid_argument becomes the option's complaint. Only a list may
/// be given more than once.
CLI::Option* addValue(CLI::App& command, std::string const& name,
                      std::function<void(std::string const&)> const& parse, std::string const& help,
                      std::string const& type, bool isList);

/// The same for what `parse` gives: into `target`, or if that is a list at its end, in which case
/// the option may be repeated.
template <typename Target, typename Parse>
CLI::Option* addParsed(CLI::App& command, std::string const& name, Target& target,
                       Parse const& parse, std::string const& help, std::string const& type) {
    if constexpr (requires(std::string const& text) { target.push_back(parse(text)); }) {
        auto const append = [&target, parse](auto const& text) { target.push_back(parse(text)); };
        return addValue(command, name, append, help, type, true);
    } else {
        auto const assign = [&target, parse](auto const& text) { target = parse(text); };
        return addValue(command, name, assign, help, type, false);
    }
}

/// An option without a value.
CLI::Option* addFlag(CLI::App& command, std::string const& name, bool& isOn,
                     std::string const& help);

/// An option for a whole number from 1 to `max`, which is `count` until then.
CLI::Option* addCount(CLI::App& command, std::string const& name, size_t& count, int64_t max,
                      std::string const& help);

/// An option for a result that standard output cannot take beside the text: `-` is refused.
CLI::Option* addFile(CLI::App& command, std::string const& name, std::optional<std::string>& path,
                     std::string const& help);

/// --json.
void addJson(CLI::App& command, std::optional<std::string>& path,
             std::string const& help =
                 "Write the result as JSON too, - for standard output instead of the text");

/// --log.
void addLogOption(CLI::App& command, pipeline::ReplayOptions& options);

/// --request, the numbers of captures.
void addRequests(CLI::App& command, std::vector<uint32_t>& requests, std::string const& help);

/// Throws CLI::ValidationError for an option whose result goes where an earlier one's does, for one
/// file holds one result, or would replace one of `inputs`. An option that was not given has no
/// path.
void requireOwnFiles(std::vector<std::pair<char const*, std::optional<std::string>>> const& outputs,
                     std::vector<std::string> const& inputs = {});

/// --report and its like, which not every build can write.
CLI::Option* addReportOption(CLI::App& command, std::optional<std::string>& path,
                             std::string const& name = "--report",
                             std::string const& help = "Write a page for a browser");

/// --from, --to, --any-rate.
void addInputOptions(CLI::App& command, recording::InputOptions& options);

/// --video, which not every build can read, and --no-cache. A list may be given more than once.
void addVideoOptions(CLI::App& command, std::optional<std::string>& path, bool& isCacheOff);
void addVideoOptions(CLI::App& command, std::vector<std::string>& paths, bool& isCacheOff);

/// --press, --captures.
void addPressOptions(CLI::App& command, pipeline::ReplayOptions& options);

/// --frames, --policy, --policy-option, --offset, --history.
void addServiceOptions(CLI::App& command, pipeline::ReplayOptions& options);

/// --timeout-ms, --frame-sync.
void addCaptureOptions(CLI::App& command, pipeline::ReplayOptions& options);

/// --time-limit, and what holds a library's policy to it. Null for a built-in policy, which needs
/// none.
void addPolicyLimit(CLI::App& command, std::chrono::nanoseconds& limit);
std::unique_ptr<pipeline::PolicyWatch> watchPolicy(char const* command,
                                                   pipeline::PolicyOption const& policy,
                                                   std::chrono::nanoseconds limit);

/// --delivery-delay, unless frames come by themselves, --reprocess-delay, --property.
void addPipelineOptions(CLI::App& command, pipeline::ReplayOptions& options,
                        bool hasDelivery = true);

/// --fault, --seed.
void addFaultOptions(CLI::App& command, pipeline::FaultOptions& options);

/// --fail-if.
void addLimitOption(CLI::App& command, std::vector<compare::Limit>& limits);

/// Throws CLI::ValidationError for what was given and would do nothing: a time-out or parameters
/// that none of `policies` has, a property that the processor does not read, an offset that a
/// property sets too.
void requireConsistent(CLI::App const& command, pipeline::ReplayOptions const& options,
                       std::span<pipeline::PolicyOption const> policies, bool setsOffset);

}  // namespace zebcam::tool::commands
