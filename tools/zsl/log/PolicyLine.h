#pragma once

#include <string_view>

#include "log/ProcessorLine.h"

namespace zebcam::tool::log::line {

/// The lines of the selectors and of the criteria that they judge by; each without its function.

/// A reason, of a selector about a frame or of a criterion about a stream.
Any parseReason(std::string_view text);
/// A verdict, or what a selector says at its end.
Any parsePolicy(std::string_view text);
Any parseMatch(std::string_view text);
Any parseSensorMode(std::string_view text);
Any parseFocus(std::string_view text);

}  // namespace zebcam::tool::log::line
