#pragma once

#include <policy/zsl/ISelector.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "pipeline/ReplayOptions.h"
#include "pipeline/SimulatedPipeline.h"

namespace zebcam::tool::pipeline {

/// A policy of the user's, and the names of the parameters that it takes, if it tells them.
struct LoadedPolicy {
    std::shared_ptr<NSCam::ZslPolicy::ISelector> selector;
    std::optional<std::vector<std::string>> parameters;
};

/// The selection policy that a library's `extern "C" ISelector* create()` makes, or that a file in
/// Python is. A library stays loaded as long as the policy lives; what it exports as `extern "C"
/// char const* const* parameterNames()` are the names, ended by a null. Throws InputError, naming
/// the file, when it cannot be loaded, lacks `create`, or `create` gives null or throws, and for
/// whatever Python does not like.
LoadedPolicy loadPolicy(std::string const& path);

/// What is wrong with a parameter that is none of the `known` ones that the policy takes.
std::string unknownParameter(PolicyOption const& policy, std::string const& name,
                             std::vector<std::string> const& known);

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
/// cannot be loaded, and for a parameter that it does not take.
PipelineOptions pipelineOptions(ReplayOptions const& options);

/// The properties that the options ask for, the offset's among them.
std::vector<std::pair<std::string, std::string>> propertiesOf(ReplayOptions const& options);

/// The ZSL offset that a processor made now would have, ms: the sum of the offset's properties as
/// they are set at this moment, whoever set them.
int64_t offsetInForceMs();

/// The same in ns, for sums that wrap around as the processor's do.
uint64_t offsetInForceNs();

}  // namespace zebcam::tool::pipeline
