#include "run/ReplayResult.h"

#include <algorithm>
#include <numeric>

namespace zebcam::tool::run {

Spread spreadOf(std::vector<int64_t> values) {
    if (values.empty()) {
        return {};
    }
    std::sort(values.begin(), values.end());
    size_t const n = values.size();
    return {.count = n,
            .min = values.front(),
            .median = std::midpoint(values[(n - 1) / 2], values[n / 2]),
            .p95 = values[(n * 95 + 99) / 100 - 1],
            .max = values.back()};
}

ReplaySummary summarize(std::vector<pipeline::CaptureRecord> const& captures) {
    ReplaySummary summary;
    std::vector<int64_t> lags;
    for (pipeline::CaptureRecord const& capture : captures) {
        ++summary.captures;
        summary.answeredCaptures += capture.isAnswered() ? 1 : 0;
        for (pipeline::FrameOutcome const& frame : capture.frames) {
            ++summary.frames;
            switch (frame.served) {
                case pipeline::Served::AtOnce:
                    ++summary.atOnce;
                    break;
                case pipeline::Served::Waited:
                    ++summary.waited;
                    break;
                case pipeline::Served::TimedOut:
                    ++summary.timedOut;
                    break;
                case pipeline::Served::Flushed:
                    ++summary.flushed;
                    break;
                case pipeline::Served::Unanswered:
                    ++summary.unanswered;
                    break;
            }
            bool const isAnswered = frame.served != pipeline::Served::Unanswered;
            summary.withoutHistory += isAnswered && !frame.historyFrame ? 1 : 0;
            if (std::optional<int64_t> const lag = capture.lagNs(frame)) {
                lags.push_back(*lag);
            }
        }
    }
    summary.lag = spreadOf(std::move(lags));
    return summary;
}

bool ReplayResult::isClean() const {
    if (device) {
        return device->isSame() && failures.empty();
    }
    return summary.unanswered == 0 && ledger.balances() && failures.empty();
}

}  // namespace zebcam::tool::run
