#pragma once

#include <string>
#include <utility>
#include <vector>

namespace zebcam::tool {

/// Sets properties and forgets them again when it is destroyed.
class PropertyScope {
public:
    /// Throws InputError for a property that cannot be set.
    explicit PropertyScope(std::vector<std::pair<std::string, std::string>> const& properties);
    ~PropertyScope();
    PropertyScope(PropertyScope const&) = delete;
    PropertyScope& operator=(PropertyScope const&) = delete;

private:
    void clear();

    std::vector<std::string> mKeys;
};

}  // namespace zebcam::tool
