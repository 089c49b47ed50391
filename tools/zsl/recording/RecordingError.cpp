#include "recording/RecordingError.h"

#include <fmt/format.h>

namespace zebcam::tool::recording {

namespace {

std::string describe(RecordingPlace const& place, std::string_view expected,
                     std::string_view found) {
    std::string text = place.path + ":";
    if (place.line > 0) {
        text += fmt::format("{}:", place.line);
    }
    if (!place.column.empty()) {
        text += fmt::format(" column \"{}\":", place.column);
    }
    return text + fmt::format(" expected {}, found {}", expected, found);
}

}  // namespace

RecordingError::RecordingError(RecordingPlace const& place, std::string_view expected,
                               std::string_view found)
    : std::runtime_error(describe(place, expected, found)) {
}

}  // namespace zebcam::tool::recording
