#pragma once

#include <policy/zsl/ISelector.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "pipeline/ReplayOptions.h"
#include "pipeline/SimulatedPipeline.h"

namespace zebcam::tool::pipeline {

/// The selection policy that a library's `extern "C" ISelector* create()` makes. The library stays
/// loaded as long as the policy lives. Throws InputError, naming the library, when it cannot be
/// loaded, lacks `create`, or `create` gives null or throws.
std::shared_ptr<NSCam::ZslPolicy::ISelector> loadSelector(std::string const& path);

/// What a policy calls itself; empty when it does not say.
std::string nameOf(NSCam::ZslPolicy::ISelector const& selector);

/// Sets properties, and when it is destroyed puts back what was there before.
class PropertyScope {
public:
    /// Throws InputError for a property that cannot be set.
    explicit PropertyScope(std::vector<std::pair<std::string, std::string>> const& properties);
    ~PropertyScope();
    PropertyScope(PropertyScope const&) = delete;
    PropertyScope& operator=(PropertyScope const&) = delete;

private:
    void restore();

    std::vector<std::pair<std::string, std::string>> mBefore;  ///< empty: there was none
};

/// A pipeline as the options describe it, without listeners. Throws InputError for a policy that
/// cannot be loaded.
PipelineOptions pipelineOptions(ReplayOptions const& options);

/// The properties that the options ask for, the offset's among them.
std::vector<std::pair<std::string, std::string>> propertiesOf(ReplayOptions const& options);

/// The ZSL offset that a processor made now would have, ms: the sum of the offset's properties as
/// they are set at this moment, whoever set them.
int64_t offsetInForceMs();

/// The same in ns, for sums that wrap around as the processor's do.
uint64_t offsetInForceNs();

}  // namespace zebcam::tool::pipeline
