#include <cutils/properties.h>
#include <platform/Properties.h>
#include <sys/mman.h>
#include <unistd.h>

#include <map>
#include <stdexcept>

#include "Fuzz.h"

using namespace zebcam;

namespace {

using Properties = std::map<std::string, std::string>;

Properties all() {
    Properties properties;
    property_list([](char const* key, char const* value,
                     void* to) { (*static_cast<Properties*>(to))[key] = value; },
                  &properties);
    return properties;
}

}  // namespace

/// A file adds its properties, each of which can be got, or nothing.
int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    int const fd = memfd_create("properties", 0);
    fuzz::require(fd >= 0 && write(fd, data, size) == static_cast<ssize_t>(size), "a file");
    bool isLoaded = true;
    try {
        platform::loadProperties("/proc/self/fd/" + std::to_string(fd));
    } catch (std::runtime_error const& refusal) {
        isLoaded = false;
        fuzz::require(*refusal.what() != '\0', "a refusal says why");
    }
    close(fd);
    Properties const properties = all();
    fuzz::require(isLoaded || properties.empty(), "a refused file adds nothing");
    for (auto const& [key, value] : properties) {
        char got[PROPERTY_VALUE_MAX] = {};
        property_get(key.c_str(), got, "");
        fuzz::require(!key.empty() && got == value, "a property that is listed can be got");
        platform::clearProperty(key);
    }
    fuzz::require(all().empty(), "properties can be forgotten");
    return 0;
}
