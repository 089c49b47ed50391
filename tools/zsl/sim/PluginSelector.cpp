#include "sim/PluginSelector.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include <exception>
#include <filesystem>

#include "sim/InputError.h"

namespace zebcam::tool {

using NSCam::ZslPolicy::ISelector;

namespace {

std::string loaderReason() {
    char const* const reason = dlerror();
    return reason != nullptr ? reason : "no reason given";
}

std::shared_ptr<void> openLibrary(std::string const& path) {
    std::error_code ignored;
    if (!std::filesystem::exists(path, ignored)) {
        throw InputError(fmt::format("--policy {}: there is no such file", path));
    }
    // An absolute path keeps the loader from looking in its own folders.
    std::string const absolute = std::filesystem::absolute(path, ignored).string();
    void* const handle = dlopen(absolute.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        throw InputError(fmt::format("--policy {}: cannot be loaded: {}", path, loaderReason()));
    }
    return {handle, [](void* library) { dlclose(library); }};
}

ISelector* create(void* library, std::string const& path) {
    auto const function = reinterpret_cast<ISelector* (*)()>(dlsym(library, "create"));
    if (function == nullptr) {
        throw InputError(
            fmt::format("--policy {}: exports no function \"create\" (expected: extern \"C\" "
                        "NSCam::ZslPolicy::ISelector* create())",
                        path));
    }
    try {
        return function();
    } catch (std::exception const& error) {
        throw InputError(fmt::format("--policy {}: create() threw: {}", path, error.what()));
    } catch (...) {
        throw InputError(fmt::format("--policy {}: create() threw", path));
    }
}

}  // namespace

std::shared_ptr<ISelector> loadSelector(std::string const& path) {
    std::shared_ptr<void> library = openLibrary(path);
    ISelector* const selector = create(library.get(), path);
    if (selector == nullptr) {
        throw InputError(fmt::format("--policy {}: create() gave null", path));
    }
    return {selector, [library = std::move(library)](ISelector* made) { delete made; }};
}

}  // namespace zebcam::tool
