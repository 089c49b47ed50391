#include "pipeline/PipelineSetup.h"

#include <cutils/properties.h>
#include <dlfcn.h>
#include <fmt/format.h>
#include <platform/Properties.h>

#include <algorithm>
#include <array>
#include <exception>
#include <filesystem>

#include "base/InputError.h"
#include "base/Text.h"
#include "pipeline/PolicyWatch.h"
#include "script/Rule.h"

namespace zebcam::tool::pipeline {

using NSCam::ZslPolicy::ISelector;

namespace {

std::string loaderReason() {
    char const* const reason = dlerror();
    return reason != nullptr ? reason : "no reason given";
}

void requireFile(std::string const& path) {
    std::error_code ignored;
    if (!std::filesystem::exists(path, ignored)) {
        throw base::InputError(fmt::format("--policy {}: there is no such file", path));
    }
}

std::shared_ptr<void> openLibrary(std::string const& path) {
    requireFile(path);
    PolicyQuestion const question("dlopen()");
    std::error_code ignored;
    // An absolute path keeps the loader from looking in its own folders.
    std::string const absolute = std::filesystem::absolute(path, ignored).string();
    void* const handle = dlopen(absolute.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        throw base::InputError(
            fmt::format("--policy {}: cannot be loaded: {}", path, loaderReason()));
    }
    return {handle, [](void* library) { dlclose(library); }};
}

// Whatever the plug-in does wrong is told with its path: an exception of a library that is about
// to be closed must not get out of here.
ISelector* create(void* library, std::string const& path) {
    auto const function = reinterpret_cast<ISelector* (*)()>(dlsym(library, "create"));
    if (function == nullptr) {
        throw base::InputError(
            fmt::format("--policy {}: exports no function \"create\" (expected: extern \"C\" "
                        "NSCam::ZslPolicy::ISelector* create())",
                        path));
    }
    try {
        PolicyQuestion const question("create()");
        return function();
    } catch (std::exception const& error) {
        throw base::InputError(fmt::format("--policy {}: create() threw: {}", path, error.what()));
    } catch (...) {
        throw base::InputError(fmt::format("--policy {}: create() threw", path));
    }
}

/// Empty where the library does not tell.
std::optional<std::vector<std::string>> parameterNames(void* library) {
    auto const function =
        reinterpret_cast<char const* const* (*)()>(dlsym(library, "parameterNames"));
    if (function == nullptr) {
        return std::nullopt;
    }
    PolicyQuestion const question("parameterNames()");
    std::vector<std::string> names;
    for (char const* const* name = function(); *name != nullptr; ++name) {
        names.emplace_back(*name);
    }
    return names;
}

LoadedPolicy loadLibrary(std::string const& path) {
    std::shared_ptr<void> library = openLibrary(path);
    ISelector* const selector = create(library.get(), path);
    if (selector == nullptr) {
        throw base::InputError(fmt::format("--policy {}: create() gave null", path));
    }
    auto names = parameterNames(library.get());
    // The deleter keeps the library, because the policy's destructor is code of the library.
    return {{selector, [library = std::move(library)](ISelector* made) { delete made; }},
            std::move(names)};
}

std::optional<std::string> parameterOf(std::string const& name) {
    std::array<char, PROPERTY_VALUE_MAX> value{};
    property_get((POLICY_PROPERTY_PREFIX + name).c_str(), value.data(), "");
    return value.front() != 0 ? std::optional<std::string>(value.data()) : std::nullopt;
}

/// Of a policy that tells its parameters no others are taken: what is misspelt would count for
/// nothing.
std::shared_ptr<ISelector> selectorFor(ReplayOptions const& options) {
    LoadedPolicy policy = loadPolicy(options.policy.file());
    for (auto const& [name, value] : options.policyParameters) {
        if (policy.parameters && std::find(policy.parameters->begin(), policy.parameters->end(),
                                           name) == policy.parameters->end()) {
            throw base::InputError(unknownParameter(options.policy, name, *policy.parameters));
        }
    }
    return std::move(policy.selector);
}

}  // namespace

std::string unknownParameter(PolicyOption const& policy, std::string const& name,
                             std::vector<std::string> const& known) {
    return fmt::format("--policy-option: {} takes {}, found {}{}", policy.name(),
                       known.empty() ? "no parameters" : base::anyOf(known),
                       base::quoteContent(name), base::didYouMean(name, known));
}

LoadedPolicy loadPolicy(std::string const& path) {
    if (!path.ends_with(script::RULE_SUFFIX)) {
        return loadLibrary(path);
    }
    requireFile(path);
    PolicyQuestion const question("import");
    script::Rule rule =
        script::loadRule(path, {offsetInForceMs(), DEFAULT_TIMEOUT_MS, parameterOf});
    return {std::move(rule.policy), std::move(rule.options)};
}

std::string nameOf(ISelector const& selector) {
    try {
        char const* const name = selector.getName();
        return name != nullptr ? name : "";
    } catch (...) {
        // Whoever asks it for captures will tell.
        return "";
    }
}

PropertyScope::PropertyScope(std::vector<std::pair<std::string, std::string>> const& properties) {
    for (auto const& [key, value] : properties) {
        std::array<char, PROPERTY_VALUE_MAX> before{};
        property_get(key.c_str(), before.data(), "");
        mBefore.emplace_back(key, before.data());
        if (property_set(key.c_str(), value.c_str()) != 0) {
            restore();  // no destructor runs for an object that was not made
            throw base::InputError(fmt::format(
                "property '{}' cannot be set to '{}': expected a key of letters, digits and "
                "'.-@:_' and a value of at most {} bytes",
                key, value, PROPERTY_VALUE_MAX - 1));
        }
    }
}

PropertyScope::~PropertyScope() {
    restore();
}

void PropertyScope::restore() {
    // Backwards: of a key that is given twice, the first one knows what was there.
    for (auto before = mBefore.rbegin(); before != mBefore.rend(); ++before) {
        if (before->second.empty()) {
            platform::clearProperty(before->first);
        } else {
            property_set(before->first.c_str(), before->second.c_str());
        }
    }
}

PipelineOptions pipelineOptions(ReplayOptions const& options) {
    using namespace NSCam::ZslPolicy;
    PipelineOptions pipeline;
    pipeline.history = options.history;
    pipeline.frameSync = options.frameSync;
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
        case PolicyKind::BestShot:
            pipeline.pSelector = selectorFor(options);
            break;
    }
    if (!options.faults.rules.empty()) {
        // A capture whose policy fails gets one with the fixed time-out.
        pipeline.timeoutMs = std::min(pipeline.timeoutMs, DEFAULT_TIMEOUT_MS);
    }
    return pipeline;
}

std::vector<std::pair<std::string, std::string>> propertiesOf(ReplayOptions const& options) {
    auto properties = options.properties;
    for (auto const& [name, value] : options.policyParameters) {
        properties.emplace_back(POLICY_PROPERTY_PREFIX + name, value);
    }
    if (options.offsetMs) {
        properties.emplace_back(OFFSET_PROPERTY, std::to_string(*options.offsetMs));
    }
    return properties;
}

int64_t offsetInForceMs() {
    // By the platform's own reading of the properties, so that what is no number of 64 bits counts
    // here as it does there; unsigned, because the processor's sum wraps around too.
    uint64_t sum = 0;
    for (char const* property :
         {"ro.vendor.camera3.zsl.default", "ro.vendor.camera3.zsl.project", OFFSET_PROPERTY}) {
        sum += static_cast<uint64_t>(property_get_int64(property, 0));
    }
    return static_cast<int64_t>(sum);
}

uint64_t offsetInForceNs() {
    return static_cast<uint64_t>(offsetInForceMs()) * base::NS_PER_MS;
}

}  // namespace zebcam::tool::pipeline
