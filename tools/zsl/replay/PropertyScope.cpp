#include "replay/PropertyScope.h"

#include <cutils/properties.h>
#include <fmt/format.h>
#include <platform/Properties.h>

#include "sim/InputError.h"

namespace zebcam::tool {

PropertyScope::PropertyScope(std::vector<std::pair<std::string, std::string>> const& properties) {
    for (auto const& [key, value] : properties) {
        if (property_set(key.c_str(), value.c_str()) != 0) {
            clear();
            throw InputError(fmt::format(
                "property '{}' cannot be set to '{}': expected a key of letters, digits and "
                "'.-@:_' and a value of at most {} bytes",
                key, value, PROPERTY_VALUE_MAX - 1));
        }
        mKeys.push_back(key);
    }
}

PropertyScope::~PropertyScope() {
    clear();
}

void PropertyScope::clear() {
    for (std::string const& key : mKeys) {
        platform::clearProperty(key);
    }
}

}  // namespace zebcam::tool
