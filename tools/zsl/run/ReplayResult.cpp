#include "run/ReplayResult.h"

#include <utility>

namespace zebcam::tool::run {

ReplaySummary summarize(std::vector<pipeline::CaptureRecord> const& captures) {
    ReplaySummary summary;
    std::vector<int64_t> lags;
    std::vector<int64_t> waits;
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
            // Of a frame that never came back nobody can say what it would have been.
            bool const isAnswered = frame.served != pipeline::Served::Unanswered;
            summary.withoutHistory += isAnswered && !frame.historyFrame ? 1 : 0;
            if (std::optional<int64_t> const lag = capture.lagNs(frame)) {
                lags.push_back(*lag);
            }
            if (std::optional<int64_t> const wait = capture.waitNs(frame)) {
                waits.push_back(*wait);
            }
        }
    }
    summary.lag = base::spreadOf(std::move(lags));
    summary.wait = base::spreadOf(std::move(waits));
    return summary;
}

bool ReplayResult::isClean() const {
    if (device) {
        return device->isSame() && failures.empty();
    }
    return summary.unanswered == 0 && ledger.balances() && failures.empty();
}

}  // namespace zebcam::tool::run
