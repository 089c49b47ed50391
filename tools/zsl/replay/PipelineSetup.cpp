#include "replay/PipelineSetup.h"

#include <cutils/properties.h>

#include <algorithm>

#include "sim/PluginSelector.h"

namespace zebcam::tool {
namespace {

constexpr int64_t kFixedTimeoutMs = 3000;

}  // namespace

PipelineOptions pipelineOptions(ReplayOptions const& options) {
    using namespace NSCam::ZslPolicy;
    PipelineOptions pipeline;
    pipeline.history = options.history;
    pipeline.frameSync = options.frameSync;
    pipeline.timeoutMs = kFixedTimeoutMs;
    pipeline.logLevel = options.logLevel;
    switch (options.policy.kind) {
        case PolicyKind::Default:
            break;
        case PolicyKind::CShot:
            pipeline.pPolicy = std::make_shared<ZslPolicyParams>();
            pipeline.pPolicy->policy = POLICY_CONTINUOUS_SHOT;
            break;
        case PolicyKind::Multiframe:
            pipeline.pPolicy = std::make_shared<ZslPolicyParams>();
            pipeline.pPolicy->policy = POLICY_MULTIFRAME_BIT;
            pipeline.pPolicy->timeoutMs = options.timeoutMs;
            pipeline.timeoutMs = options.timeoutMs;
            break;
        case PolicyKind::Plugin:
            pipeline.pSelector = loadSelector(options.policy.pluginPath);
            break;
    }
    if (!options.faults.rules.empty()) {
        // A capture whose policy fails gets one with the fixed time-out.
        pipeline.timeoutMs = std::min(pipeline.timeoutMs, kFixedTimeoutMs);
    }
    return pipeline;
}

std::vector<std::pair<std::string, std::string>> propertiesOf(ReplayOptions const& options) {
    auto properties = options.properties;
    if (options.offsetMs) {
        properties.emplace_back(OFFSET_PROPERTY, std::to_string(*options.offsetMs));
    }
    return properties;
}

/// The sum that the processor makes of the offset's properties.
int64_t offsetInForceMs() {
    uint64_t sum = 0;
    for (char const* property :
         {"ro.vendor.camera3.zsl.default", "ro.vendor.camera3.zsl.project", OFFSET_PROPERTY}) {
        sum += static_cast<uint64_t>(property_get_int64(property, 0));
    }
    return static_cast<int64_t>(sum);
}

}  // namespace zebcam::tool
