#include "faults/FaultTally.h"

#include <fmt/format.h>

namespace zebcam::tool {

std::string FaultTally::text() const {
    std::string text;
    for (auto const& [kind, count] : strikes) {
        text += fmt::format("{}{} {}", text.empty() ? "" : ", ", traitsOf(kind).name, count);
    }
    return fmt::format("{} (random seed {})", text, randomSeed);
}

}  // namespace zebcam::tool
