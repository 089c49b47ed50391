#include <algorithm>
#include <set>
#include <utility>

#include "Version.h"
#include "report/JsonParts.h"
#include "report/Reports.h"
#include "report/TraceTracks.h"

namespace zebcam::tool::report {

namespace {

/// A log has no recording; marks are as wide as at the usual rate.
constexpr int64_t kUsualIntervalNs = 33'333'333;

size_t framesOf(log::CaptureExplanation const& capture) {
    uint64_t frames = 0;
    for (log::TryExplanation const& attempt : capture.tries) {
        for (log::WantedFrame const& frame : attempt.wanted) {
            frames = std::max(frames, frame.index + 1);
        }
        for (log::ServedFrame const& frame : attempt.served) {
            frames = std::max(frames, frame.index.value_or(0) + 1);
        }
    }
    // A damaged line may have any index.
    constexpr uint64_t kMost = 1'000;
    return std::min(frames, kMost);
}

pipeline::Served servedOf(log::ServedFrame const& frame, bool isRetry) {
    if (frame.source == log::Source::TimedOut) {
        return pipeline::Served::TimedOut;
    }
    return isRetry ? pipeline::Served::Waited : pipeline::Served::AtOnce;
}

/// The frames that came back, in the order of a try's lines.
void addServed(log::TryExplanation const& told, size_t tryIndex, pipeline::CaptureRecord& capture) {
    pipeline::TryRecord& attempt = capture.tries[tryIndex];
    for (log::ServedFrame const& frame : told.served) {
        if (!frame.index || *frame.index >= capture.frames.size()) {
            continue;
        }
        pipeline::FrameOutcome& outcome = capture.frames[*frame.index];
        outcome.served = servedOf(frame, attempt.isRetry);
        outcome.tryIndex = tryIndex;
        outcome.answeredNs = attempt.timeNs;
        outcome.historyFrame = frame.frameNo;
        attempt.builtFrames.push_back(*frame.index);
    }
}

pipeline::TryRecord tryOf(log::TryExplanation const& told, int64_t pressNs, bool isRetry) {
    pipeline::TryRecord attempt;
    attempt.ageMs = std::max<int64_t>(told.ageMs.value_or(0), 0);
    attempt.timeNs = pressNs + nsOfMs(attempt.ageMs);
    attempt.isRetry = isRetry;
    std::set<uint32_t> seen;
    for (log::Candidate const& frame : told.candidates) {
        seen.insert(frame.frameNo);
    }
    attempt.historyFrames.assign(seen.begin(), seen.end());
    attempt.inFlightFrames = told.inFlight;
    return attempt;
}

/// A capture whose instant some try tells; the log does not always tell the offset from there to
/// the press.
std::optional<pipeline::CaptureRecord> captureOf(log::CaptureExplanation const& told) {
    auto const input = std::find_if(told.tries.begin(), told.tries.end(), [](auto const& attempt) {
        return attempt.zsdTimestampNs && *attempt.zsdTimestampNs >= 0;
    });
    // Half of the range, so that no sum of times overflows.
    if (input == told.tries.end() || *input->zsdTimestampNs > INT64_MAX / 4 ||
        told.waitedMs.value_or(0) > INT64_MAX / 4'000'000) {
        return std::nullopt;
    }
    pipeline::CaptureRecord capture;
    capture.requestNo = told.requestNo;
    capture.pressNs = *input->zsdTimestampNs;
    capture.earlyShutterNs = told.earlyShutterNs;
    capture.frames.resize(framesOf(told));
    for (size_t i = 0; i < told.tries.size(); ++i) {
        capture.tries.push_back(tryOf(told.tries[i], capture.pressNs, i > 0));
        addServed(told.tries[i], i, capture);
    }
    for (pipeline::FrameOutcome& frame : capture.frames) {
        if (told.outcome == log::CaptureOutcome::Flushed &&
            frame.served == pipeline::Served::Unanswered) {
            frame.served = pipeline::Served::Flushed;
            frame.answeredNs = capture.tries.back().timeNs;  // or later: the line tells no time
        }
    }
    return capture;
}

}  // namespace

void writeTrace(log::Explanation const& explanation, std::string const& path, std::ostream& out) {
    std::vector<std::pair<pipeline::CaptureRecord, log::CaptureExplanation const*>> told;
    for (log::CaptureExplanation const& capture : explanation.captures) {
        if (auto record = captureOf(capture)) {
            told.emplace_back(std::move(*record), &capture);
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
