#pragma once

#include <string>
#include <string_view>

namespace zebcam::tool::base {

/// `content` between double quotes, fit for a terminal: what is not printable ASCII is escaped and
/// what exceeds 40 characters is cut off and marked by `...`.
std::string quoteContent(std::string_view content);

/// `text` with each byte that is not printable ASCII as \xHH, fit for a terminal and for JSON.
std::string printable(std::string_view text);

}  // namespace zebcam::tool::base
