#include <algorithm>
#include <utility>

#include "Version.h"
#include "report/JsonParts.h"
#include "report/LogCaptures.h"
#include "report/Reports.h"
#include "report/TraceTracks.h"

namespace zebcam::tool::report {

namespace {

/// A log has no recording; marks are as wide as at the usual rate.
constexpr int64_t kUsualIntervalNs = 33'333'333;

}  // namespace

void writeTrace(log::Explanation const& explanation, std::string const& path, std::ostream& out) {
    std::vector<std::pair<pipeline::CaptureRecord, log::CaptureExplanation const*>> told;
    for (log::CaptureExplanation const& capture : explanation.captures) {
        if (wantedInstantNs(capture)) {
            told.emplace_back(recordOf(capture), &capture);
        }
    }
    // The log's order is that of its lines, which processes mix.
    std::stable_sort(told.begin(), told.end(), [](auto const& a, auto const& b) {
        return a.first.pressNs < b.first.pressNs;
    });
    run::ReplayResult result;
    log::Explanation shown;
    for (auto& [record, capture] : told) {
        result.captures.push_back(std::move(record));
        shown.captures.push_back(*capture);
    }
    result.firstTimestampNs = told.empty() ? 0 : result.captures.front().pressNs;
    recording::Recording const nothing{path, {}, {}, kUsualIntervalNs};
    Json const about = {{"log", orNull(path)},
                        {"version", VERSION},
                        {"sensorTimeOfZeroNs", result.firstTimestampNs}};
    writeTracks({nothing, result, &shown, {}, {}}, about, out);
}

}  // namespace zebcam::tool::report
