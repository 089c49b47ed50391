#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

/// Takes one input, of any content; a fault ends the process.
extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size);

namespace zebcam::fuzz {

/// Ends the process, with the rule, unless it holds.
inline void require(bool holds, char const* rule) {
    if (!holds) {
        std::fprintf(stderr, "broken rule: %s\n", rule);
        std::abort();
    }
}

inline std::string textOf(uint8_t const* data, size_t size) {
    return {reinterpret_cast<char const*>(data), size};
}

}  // namespace zebcam::fuzz
