#pragma once

#include <string>

#include "log/Explanation.h"

namespace zebcam::tool::report {

/// The whole for people: a block for each capture with a table for each try, then what is left
/// pending, given back and wrong, and the counts. Plain text of at most 100 columns.
std::string explanationText(log::Explanation const& explanation);

/// One capture; a part of the above.
std::string captureText(log::CaptureExplanation const& capture);

}  // namespace zebcam::tool::report
