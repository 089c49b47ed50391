#pragma once

#include <CLI/CLI.hpp>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "replay/ReplayOptions.h"

/// Options that the commands share which replay recordings.
namespace zebcam::tool {

inline constexpr int64_t kMaxFramesPerCapture = 1'000;
inline constexpr int64_t kMaxHistory = 100'000;

/// Makes an option's value with `parse`, which is called once for each time that the option is
/// given; what it throws as std::invalid_argument becomes the option's complaint.
CLI::Option* addValue(CLI::App& command, std::string const& name,
                      std::function<void(std::string const&)> const& parse, std::string const& help,
                      std::string const& type);

/// The same for a whole number from 1 to `max`, which is `count` until then.
CLI::Option* addCount(CLI::App& command, std::string const& name, size_t& count, int64_t max,
                      std::string const& help);

/// The name of a file for a result that standard output cannot take beside the text; throws
/// std::invalid_argument for `-` and for nothing.
std::string requireFile(std::string const& path);

/// --press, --captures.
void addPressOptions(CLI::App& command, ReplayOptions& options);

/// --frames, --policy, --offset, --history.
void addServiceOptions(CLI::App& command, ReplayOptions& options);

/// --timeout-ms, --frame-sync.
void addCaptureOptions(CLI::App& command, ReplayOptions& options);

/// --delivery-delay, --reprocess-delay, --property.
void addPipelineOptions(CLI::App& command, ReplayOptions& options);

/// --fault, --seed.
void addFaultOptions(CLI::App& command, FaultOptions& options);

/// Throws CLI::ValidationError when both `offsetMs` and a property set the offset.
void requireOneOffset(ReplayOptions const& options, std::optional<int64_t> offsetMs);

}  // namespace zebcam::tool
