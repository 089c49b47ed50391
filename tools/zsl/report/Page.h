#pragma once

#include <span>
#include <string_view>

namespace zebcam::tool::report {

/// The page of a report, without what it tells: write the pieces of a part one after the other, and
/// between the parts the title (as HTML), the summary that is shown without scripts (as HTML) and
/// the data (as JSON that is free of `<`).
struct ReportPage {
    using Part = std::span<std::string_view const>;
    Part beforeTitle, beforeSummary, beforeData, afterData;
};

/// The page that was put into the tool when it was built; null if it was built without.
ReportPage const* reportPage();

}  // namespace zebcam::tool::report
