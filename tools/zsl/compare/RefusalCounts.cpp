#include "compare/RefusalCounts.h"

#include <fmt/format.h>
#include <ulog/ULogger.h>

#include <algorithm>
#include <numeric>
#include <utility>
#include <vector>

namespace zebcam::tool {

uint64_t RefusalCounts::total() const {
    return std::accumulate(byCriterion.begin(), byCriterion.end(), uint64_t{0});
}

std::string RefusalCounts::text() const {
    std::vector<std::pair<uint64_t, char const*>> counts;
    for (size_t i = 0; i < byCriterion.size(); ++i) {
        if (byCriterion[i] > 0) {
            counts.emplace_back(byCriterion[i], toString(static_cast<Criterion>(i)));
        }
    }
    std::stable_sort(counts.begin(), counts.end(),
                     [](auto const& a, auto const& b) { return a.first > b.first; });
    std::string text;
    for (auto const& [count, name] : counts) {
        text += fmt::format("{}{} {}", text.empty() ? "" : ", ", name, count);
    }
    return text;
}

uint32_t RefusalCounter::logLevel() {
    // Debug lines add the values that were found, which nobody counts.
    return NSCam::Utils::ULog::LOG_LEVEL_INFO;
}

void RefusalCounter::feed(host::LogLine const& line) {
    // Some lines go to both outputs.
    if (line.output == host::LogLine::Output::Camera) {
        mExplainer.feed(fromLogLine(line));
    }
}

RefusalCounts RefusalCounter::finish() {
    RefusalCounts counts;
    for (CaptureExplanation const& capture : mExplainer.finish().captures) {
        for (TryExplanation const& attempt : capture.tries) {
            for (Candidate const& frame : attempt.candidates) {
                counts[frame.criterion] += frame.criterion == Criterion::None ? 0 : 1;
            }
        }
    }
    return counts;
}

}  // namespace zebcam::tool
