#pragma once

#include <string>

#include "explain/Explanation.h"

namespace zebcam::tool {

/// The whole for people: a block for each capture with a table for each try, then what is left
/// pending, given back and wrong, and the counts. Plain text of at most 100 columns.
std::string explanationText(Explanation const& explanation);

/// One capture; a part of the above.
std::string captureText(CaptureExplanation const& capture);

}  // namespace zebcam::tool
