#include "run/ReplayResult.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <utility>

#include "base/Text.h"
#include "recording/FrameStates.h"

namespace zebcam::tool::run {

namespace {

void count(pipeline::Served served, ReplaySummary& summary) {
    switch (served) {
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
}

template <auto Member>
base::Spread spreadOf(std::vector<FrameNumbers> const& frames) {
    std::vector<int64_t> values;
    for (FrameNumbers const& frame : frames) {
        if (frame.*Member) {
            values.push_back(*(frame.*Member));
        }
    }
    return base::spreadOf(std::move(values));
}

template <auto Member>
Share shareOf(std::vector<FrameNumbers> const& frames) {
    Share share;
    for (FrameNumbers const& frame : frames) {
        share.told += frame.*Member ? 1 : 0;
        share.count += (frame.*Member).value_or(false) ? 1 : 0;
    }
    return share;
}

template <auto Member>
std::vector<double> sorted(std::vector<FrameNumbers> const& frames) {
    std::vector<double> values;
    for (FrameNumbers const& frame : frames) {
        if (frame.*Member) {
            values.push_back(*(frame.*Member));
        }
    }
    std::sort(values.begin(), values.end());
    return values;
}

double medianOf(std::vector<double> const& values) {
    return (values[(values.size() - 1) / 2] + values[values.size() / 2]) / 2;
}

PictureSummary picturesOf(std::vector<FrameNumbers> const& frames) {
    std::vector<double> const shares = sorted<&FrameNumbers::sharpnessShare>(frames);
    PictureSummary summary;
    if (shares.empty()) {
        return summary;
    }
    constexpr size_t kTwentieth = 20;
    summary.count = shares.size();
    summary.medianSharpness = medianOf(sorted<&FrameNumbers::sharpness>(frames));
    summary.medianShare = medianOf(shares);
    summary.p5Share = shares[(shares.size() + kTwentieth - 1) / kTwentieth - 1];
    summary.belowHalf =
        static_cast<size_t>(std::lower_bound(shares.begin(), shares.end(), 0.5) - shares.begin());
    return summary;
}

// Saturating: the offset is a property, which may hold any number.
int64_t distanceNs(int64_t lagNs, int64_t offsetMs) {
    int64_t distance = 0;
    if (__builtin_mul_overflow(offsetMs, base::NS_PER_MS, &distance) ||
        __builtin_add_overflow(distance, lagNs, &distance) ||
        distance == std::numeric_limits<int64_t>::min()) {
        return std::numeric_limits<int64_t>::max();
    }
    return std::abs(distance);
}

}  // namespace

std::vector<FrameNumbers> measure(std::vector<pipeline::CaptureRecord> const& captures,
                                  int64_t offsetMs) {
    std::vector<FrameNumbers> numbers;
    for (pipeline::CaptureRecord const& capture : captures) {
        for (pipeline::FrameOutcome const& frame : capture.frames) {
            FrameNumbers& measured = numbers.emplace_back();
            measured.served = frame.served;
            measured.hasHistory = frame.historyFrame.has_value();
            measured.lagNs = capture.lagNs(frame);
            measured.waitNs = capture.waitNs(frame);
            if (measured.lagNs) {
                measured.distanceNs = distanceNs(*measured.lagNs, offsetMs);
            }
            if (frame.chosen) {
                measured.exposureNs = recording::exposureNs(*frame.chosen);
                measured.iso = frame.chosen->iso;
                measured.isFocusSettled = recording::isFocusSettled(*frame.chosen);
                measured.isExposureSettled = recording::isExposureSettled(*frame.chosen);
                if (frame.chosen->picture) {
                    measured.sharpness = frame.chosen->picture->sharpness;
                }
                measured.sharpnessShare = frame.sharpnessShare;
            }
        }
    }
    return numbers;
}

ReplaySummary summarize(std::vector<FrameNumbers> const& frames) {
    ReplaySummary summary;
    summary.frames = frames.size();
    for (FrameNumbers const& frame : frames) {
        count(frame.served, summary);
        // Of a frame that never came back nobody can say what it would have been.
        bool const isAnswered = frame.served != pipeline::Served::Unanswered;
        summary.withoutHistory += isAnswered && !frame.hasHistory ? 1 : 0;
    }
    summary.lag = spreadOf<&FrameNumbers::lagNs>(frames);
    summary.wait = spreadOf<&FrameNumbers::waitNs>(frames);
    summary.distance = spreadOf<&FrameNumbers::distanceNs>(frames);
    summary.focusSettled = shareOf<&FrameNumbers::isFocusSettled>(frames);
    summary.exposureSettled = shareOf<&FrameNumbers::isExposureSettled>(frames);
    summary.exposure = spreadOf<&FrameNumbers::exposureNs>(frames);
    summary.iso = spreadOf<&FrameNumbers::iso>(frames);
    summary.pictures = picturesOf(frames);
    return summary;
}

ReplaySummary summarize(std::vector<pipeline::CaptureRecord> const& captures, int64_t offsetMs) {
    ReplaySummary summary = summarize(measure(captures, offsetMs));
    summary.captures = captures.size();
    summary.answeredCaptures = static_cast<size_t>(
        std::count_if(captures.begin(), captures.end(),
                      [](pipeline::CaptureRecord const& capture) { return capture.isAnswered(); }));
    return summary;
}

namespace {

using FindFrame = std::function<recording::SensorFrame const*(uint32_t)>;

/// How sharp the picture of a chosen frame is by the sharpest that was to be had; where all are of
/// one colour it is the best.
std::optional<double> sharpnessShare(pipeline::CaptureRecord const& capture,
                                     pipeline::FrameOutcome const& frame, FindFrame const& find) {
    if (!frame.chosen->picture) {
        return std::nullopt;
    }
    float const sharpness = frame.chosen->picture->sharpness;
    float best = sharpness;
    if (frame.tryIndex) {
        pipeline::TryRecord const& attempt = capture.tries[*frame.tryIndex];
        // What a policy has kept it could have taken as well.
        for (auto const* const frames : {&attempt.historyFrames, &attempt.lockedFrames}) {
            for (uint32_t const frameNo : *frames) {
                recording::SensorFrame const* const other = find(frameNo);
                if (other != nullptr && other->picture) {
                    best = std::max(best, other->picture->sharpness);
                }
            }
        }
    }
    return best > 0 ? static_cast<double>(sharpness) / static_cast<double>(best) : 1.0;
}

}  // namespace

void addChosenFrames(std::vector<pipeline::CaptureRecord>& captures, FindFrame const& find) {
    for (pipeline::CaptureRecord& capture : captures) {
        for (pipeline::FrameOutcome& frame : capture.frames) {
            recording::SensorFrame const* const sensor =
                frame.historyFrame ? find(*frame.historyFrame) : nullptr;
            if (sensor != nullptr) {
                frame.chosen = *sensor;
                frame.sharpnessShare = sharpnessShare(capture, frame, find);
            }
        }
    }
}

pipeline::FaultSet ReplayResult::faultsOf(uint32_t frameNo) const {
    auto const found = std::lower_bound(reported.begin(), reported.end(), frameNo,
                                        [](pipeline::ReportedFrame const& frame, uint32_t number) {
                                            return frame.frame.frameNo < number;
                                        });
    bool const isThere = found != reported.end() && found->frame.frameNo == frameNo;
    return isThere ? found->faults.kinds : pipeline::FaultSet{};
}

std::string LimitCheck::text() const {
    // The shortest text that reads back as this number.
    return fmt::format("{} {} (--fail-if {})", field,
                       found ? fmt::format("is {}", *found) : "has no value", limit);
}

bool ReplayResult::mayDefaultDoBetter() const {
    return options.policy.kind != pipeline::PolicyKind::Default &&
           std::ranges::any_of(captures, [](pipeline::CaptureRecord const& capture) {
               return !std::ranges::all_of(capture.frames, &pipeline::FrameOutcome::isChosen);
           });
}

bool ReplayResult::isClean() const {
    if (std::ranges::any_of(limits, &LimitCheck::isBroken)) {
        return false;
    }
    if (device) {
        return device->isSame() && failures.empty();
    }
    return summary.unanswered == 0 && ledger.balances() && failures.empty();
}

}  // namespace zebcam::tool::run
