#pragma once

#include <policy/zsl/ISelector.h>

#include <memory>
#include <string>

namespace zebcam::tool {

/// The selection policy that a library's `extern "C" ISelector* create()` makes. The library stays
/// loaded as long as the policy lives. Throws InputError, naming the library, when it cannot be
/// loaded, lacks `create`, or `create` gives null or throws.
std::shared_ptr<NSCam::ZslPolicy::ISelector> loadSelector(std::string const& path);

}  // namespace zebcam::tool
