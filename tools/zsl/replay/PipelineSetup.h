#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "replay/ReplayOptions.h"
#include "sim/SimulatedPipeline.h"

namespace zebcam::tool {

/// A pipeline as the options describe it, without listeners. Throws InputError for a policy that
/// cannot be loaded.
PipelineOptions pipelineOptions(ReplayOptions const& options);

/// The properties that the options ask for, the offset's among them.
std::vector<std::pair<std::string, std::string>> propertiesOf(ReplayOptions const& options);

/// The ZSL offset in force: the sum that the processor makes of the offset's properties.
int64_t offsetInForceMs();

}  // namespace zebcam::tool
