#include "run/Verdict.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <tuple>
#include <utility>

#include "base/Text.h"

namespace zebcam::tool::run {

using base::counted;

namespace {

/// Later than this nobody takes a picture for that of the press.
constexpr int64_t kLongLagNs = base::NS_PER_SECOND;
/// No history and no time-out reaches so far: two clocks of different bases do.
constexpr int64_t kOtherClockNs = 60 * base::NS_PER_SECOND;

/// Good when it strikes none of `total`, bad when it strikes half of them or more.
Level levelOf(uint64_t count, uint64_t total) {
    return count == 0 ? Level::Good : 2 * count >= total ? Level::Bad : Level::Doubtful;
}

/// `11.2 h`, `1.5 min` or `2.5 s`.
std::string longTime(int64_t ns) {
    double const s = std::abs(static_cast<double>(ns)) / base::NS_PER_SECOND;
    constexpr double kMinute = 60, kHour = 3600;
    return s >= kHour     ? fmt::format("{:.1f} h", s / kHour)
           : s >= kMinute ? fmt::format("{:.1f} min", s / kMinute)
                          : fmt::format("{:.1f} s", s);
}

/// `38 of 40 frames`.
std::string share(uint64_t count, uint64_t total, char const* what) {
    return fmt::format("{} of {} {}", count, total, what);
}

/// Each text once, in the order of their first places; of many only the first.
std::vector<std::string> firstKinds(std::vector<std::string> const& texts) {
    constexpr size_t kMost = 20;
    std::vector<std::string> kinds;
    for (std::string const& text : texts) {
        if (kinds.size() < kMost && std::find(kinds.begin(), kinds.end(), text) == kinds.end()) {
            kinds.push_back(text);
        }
    }
    return kinds;
}

class Judge {
public:
    void judgeDevice(DeviceVerdict const& device) {
        if (device.isSame()) {
            add({Level::Good,
                 "sameDecisions",
                 device.sameFrames,
                 device.builtFrames,
                 fmt::format("decided as the device did in {}: {} the same",
                             counted(device.operations, "operation", "operations"),
                             share(device.sameFrames, device.builtFrames, "frames")),
                 {}});
            return;
        }
        add({Level::Bad, "otherDecisions", device.operationsThatDiffer, device.operations,
             fmt::format("decided otherwise than the device in {}: {} the same",
                         share(device.operationsThatDiffer, device.operations, "operations"),
                         share(device.sameFrames, device.builtFrames, "frames")),
             device.differences});
    }

    void judgeFailures(std::vector<std::string> const& failures) {
        if (!failures.empty()) {
            add({Level::Bad, "failures", failures.size(), failures.size(),
                 counted(failures.size(), "kind of failure", "kinds of failures"), failures});
        }
    }

    /// `open`: what it means that something is not settled. A device's recording may end anywhere.
    void judgeAnswers(ReplaySummary const& summary, host::BufferLedger::Totals const& ledger,
                      Level open) {
        if (summary.unanswered > 0) {
            add({open,
                 "unanswered",
                 summary.unanswered,
                 summary.frames,
                 share(summary.unanswered, summary.frames, "frames were never answered"),
                 {}});
        }
        if (!ledger.balances()) {
            uint64_t const out = ledger.withProcessor + ledger.withFrameBuilder;
            add({ledger.lost > 0 ? Level::Bad : open,
                 "unbalancedLedger",
                 out + ledger.lost,
                 ledger.handedOut,
                 fmt::format("the buffer ledger does not balance: {} still out, {} lost",
                             counted(out, "set", "sets"), ledger.lost),
                 {}});
        }
        if (summary.captures == 0) {
            add({Level::Doubtful, "noCaptures", 0, 0, "there was no capture", {}});
        } else if (summary.unanswered == 0 && ledger.balances()) {
            add({Level::Good,
                 "answered",
                 summary.answeredCaptures,
                 summary.captures,
                 "every capture was answered and the buffer ledger balances",
                 {}});
        }
    }

    /// What was answered, but not with what the press was for.
    void judgeTimeouts(ReplaySummary const& summary) {
        addShare("timedOut", summary.timedOut, summary.frames,
                 "frames timed out and got whatever was there");
    }
    void judgeFlushes(ReplaySummary const& summary) {
        addShare("flushed", summary.flushed, summary.frames,
                 "frames were flushed and became ordinary captures");
    }

    void judgeLags(std::vector<pipeline::CaptureRecord> const& captures, base::Spread const& lag) {
        if (lag.count > 0 && std::abs(lag.median) >= kOtherClockNs) {
            add({Level::Bad,
                 "wrongClock",
                 lag.count,
                 lag.count,
                 fmt::format("presses and sensor are {} apart: are both boot time?",
                             longTime(lag.median)),
                 {}});
            return;  // the lags say nothing more
        }
        uint64_t late = 0;
        int64_t longestNs = 0;
        for (pipeline::CaptureRecord const& capture : captures) {
            for (pipeline::FrameOutcome const& frame : capture.frames) {
                int64_t const lagNs = capture.lagNs(frame).value_or(0);
                late += std::abs(lagNs) > kLongLagNs ? 1 : 0;
                longestNs = std::max(longestNs, std::abs(lagNs));
            }
        }
        addShare("longLag", late, lag.count,
                 fmt::format("frames were exposed more than a second from their press, at most {}",
                             longTime(longestNs))
                     .c_str());
    }

    void judgeFaults(std::optional<pipeline::FaultTally> const& faults) {
        if (faults) {
            uint64_t strikes = 0;
            for (auto const& [kind, count] : faults->strikes) {
                strikes += count;
            }
            // Good: whoever asks for faults wants to see the others hold.
            add({Level::Good,
                 "injectedFaults",
                 strikes,
                 strikes,
                 "faults were injected: " + faults->text(),
                 {}});
        }
    }

    void judgeLimits(std::vector<LimitCheck> const& limits) {
        std::vector<std::string> broken;
        for (LimitCheck const& limit : limits) {
            if (limit.isBroken) {
                broken.push_back(limit.text());
            }
        }
        if (!limits.empty()) {
            bool const isGood = broken.empty();
            add({isGood ? Level::Good : Level::Bad, isGood ? "limitsKept" : "limitsBroken",
                 isGood ? limits.size() : broken.size(), limits.size(),
                 isGood ? "within " + counted(limits.size(), "limit", "limits")
                        : share(broken.size(), limits.size(), "limits are broken"),
                 std::move(broken)});
        }
    }

    void judgeRecorder(std::optional<NSCam::v3::pipeline::model::ZslRecorderStatus> const& status) {
        if (status && status->end != NSCam::v3::pipeline::model::ZslRecordingEnd::FINISHED) {
            add({Level::Bad,
                 "recordingEndedEarly",
                 status->unrecorded,
                 status->operations + status->unrecorded,
                 fmt::format("the recording ended early: {}", toString(status->end)),
                 {}});
        }
    }

    void judgeCamera(std::optional<picture::CameraFacts> const& camera) {
        if (camera && camera->hasBrokenOff) {
            add({Level::Bad,
                 "cameraBrokeOff",
                 camera->broken,
                 camera->pictures + camera->broken,
                 fmt::format("the camera broke off: {}", camera->end),
                 {}});
        }
    }

    void judgeLog(log::Explanation const& explanation) {
        uint64_t const captures = explanation.captures.size();
        std::map<log::CaptureOutcome, uint64_t> counts;
        std::vector<std::string> errors;
        for (log::LogError const& error : explanation.errors) {
            errors.push_back(error.text);
        }
        for (log::CaptureExplanation const& capture : explanation.captures) {
            // Warnings alone tell of waiting and not of success.
            bool const isOpen = capture.outcome == log::CaptureOutcome::Pending;
            ++counts[isOpen && !capture.isCertain() ? log::CaptureOutcome::Unknown
                                                    : capture.outcome];
            for (log::TryExplanation const& attempt : capture.tries) {
                errors.insert(errors.end(), attempt.errors.begin(), attempt.errors.end());
            }
        }
        if (captures == 0) {
            add({Level::Doubtful, "noCaptures", 0, 0, "the log tells of no capture", {}});
        }
        addShare("timedOut", counts[log::CaptureOutcome::TimedOut], captures,
                 "captures timed out and got whatever was there");
        addShare("flushed", counts[log::CaptureOutcome::Flushed], captures,
                 "captures were flushed and became ordinary ones");
        for (auto const& [word, outcome, what] :
             {std::tuple{"unanswered", log::CaptureOutcome::Pending,
                         "captures were still waiting when the log ended"},
              {"notTold", log::CaptureOutcome::Unknown,
               "captures may have been served or not: the log does not tell"}}) {
            if (uint64_t const count = counts[outcome]; count > 0) {
                add({Level::Doubtful, word, count, captures, share(count, captures, what), {}});
            }
        }
        if (uint64_t const served = counts[log::CaptureOutcome::Served]; served > 0) {
            add({Level::Good,
                 "answered",
                 served,
                 captures,
                 share(served, captures, "captures were served"),
                 {}});
        }
        if (!errors.empty()) {
            add({Level::Doubtful, "errors", errors.size(), explanation.counts.processor,
                 "the processor logged " + counted(errors.size(), "error", "errors"),
                 firstKinds(errors)});
        }
    }

    Verdict verdict() && {
        std::stable_sort(
            mVerdict.reasons.begin(), mVerdict.reasons.end(),
            [](VerdictReason const& a, VerdictReason const& b) { return a.level > b.level; });
        return std::move(mVerdict);
    }

private:
    void add(VerdictReason reason) { mVerdict.reasons.push_back(std::move(reason)); }

    void addShare(char const* word, uint64_t count, uint64_t total, char const* what) {
        if (count > 0) {
            add({levelOf(count, total), word, count, total, share(count, total, what), {}});
        }
    }

    Verdict mVerdict;
};

}  // namespace

char const* toString(Level level) {
    switch (level) {
        case Level::Good:
            return "good";
        case Level::Doubtful:
            return "doubtful";
        case Level::Bad:
            break;
    }
    return "bad";
}

Verdict verdictOf(ReplayResult const& result) {
    Judge judge;
    if (result.device) {
        judge.judgeDevice(*result.device);
    }
    judge.judgeLimits(result.limits);
    judge.judgeFailures(result.failures);
    judge.judgeAnswers(result.summary, result.ledger, result.device ? Level::Doubtful : Level::Bad);
    judge.judgeLags(result.captures, result.summary.lag);
    judge.judgeTimeouts(result.summary);
    judge.judgeFlushes(result.summary);
    judge.judgeFaults(result.faults);
    return std::move(judge).verdict();
}

Verdict verdictOf(LiveResult const& result) {
    Judge judge;
    judge.judgeFailures(result.failures);
    judge.judgeRecorder(result.recorder);
    judge.judgeCamera(result.camera);
    ReplaySummary const summary = result.summary();
    judge.judgeAnswers(summary, result.status.ledger, Level::Bad);
    judge.judgeTimeouts(summary);
    // The presses go on to the end, which flushes what waits then.
    if (levelOf(summary.flushed, summary.frames) == Level::Bad) {
        judge.judgeFlushes(summary);
    }
    judge.judgeFaults(result.faults);
    return std::move(judge).verdict();
}

Verdict verdictOf(log::Explanation const& explanation) {
    Judge judge;
    judge.judgeLog(explanation);
    return std::move(judge).verdict();
}

}  // namespace zebcam::tool::run
