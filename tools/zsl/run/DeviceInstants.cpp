#include "run/DeviceInstants.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <numeric>
#include <utility>

#include "base/Duration.h"
#include "run/DeviceCaptures.h"
#include "run/DeviceFacts.h"

namespace zebcam::tool::run {

namespace {

constexpr uint64_t kNsPerMs = 1'000'000;
constexpr size_t kMostReplays = 500;
constexpr size_t kMostCandidates = 16;

record::ClockReading shifted(record::ClockReading reading, int64_t ns) {
    reading.bootNs += ns;
    reading.monotonicNs += ns;
    reading.wallNs += ns;
    return reading;
}

/// One reading before the first of `borders`, one between each two, and one after the last; all
/// lie between `earliest` and `latest` on the sensor's clock.
std::vector<record::ClockReading> candidatesOf(record::ClockReading const& earliest,
                                               int64_t earliestNs, int64_t latestNs,
                                               std::vector<int64_t> borders) {
    std::vector<record::ClockReading> candidates;
    borders.push_back(latestNs);
    int64_t from = earliestNs;
    for (int64_t const border : borders) {
        candidates.push_back(shifted(earliest, std::midpoint(from, border) - earliestNs));
        from = border;
        if (candidates.size() == kMostCandidates) {
            break;
        }
    }
    return candidates;
}

}  // namespace

std::string UncertainInstant::note() const {
    return fmt::format(
        "the instant of request {} is known within {} ms only, and F{} began in that time: it may "
        "be taken for too old or not",
        requestNo, base::formatMs(widthNs), frameNo);
}

std::vector<UncertainInstant> uncertainInstants(device::DeviceRecording const& recording) {
    std::map<int64_t, uint32_t> frames;  // by the clock's reading for which they are the instant
    uint64_t const offset = static_cast<uint64_t>(offsetMsOf(recording)) * kNsPerMs;
    for (device::DeviceFrame const& frame : recording.frames) {
        frames.emplace(static_cast<int64_t>(static_cast<uint64_t>(frame.timestampNs) + offset),
                       frame.frameNo);
    }
    auto const serving = servingOperations(recording);
    std::vector<UncertainInstant> uncertain;
    size_t capture = 0;
    for (size_t i = 0; i < recording.operations.size(); ++i) {
        device::DeviceOperation const& operation = recording.operations[i];
        auto const* const call = std::get_if<device::SubmitCall>(&operation.call);
        if (call == nullptr) {
            continue;
        }
        int64_t const earliestNs = sensorClockNs(recording, operation.begun);
        int64_t const latestNs = sensorClockNs(recording, latestSubmission(operation));
        auto frame = frames.lower_bound(earliestNs);
        if (frame != frames.end() && frame->first < latestNs) {
            uint32_t const frameNo = frame->second;
            std::vector<int64_t> borders;
            for (; frame != frames.end() && frame->first < latestNs; ++frame) {
                borders.push_back(frame->first);
            }
            uncertain.push_back({.capture = capture,
                                 .submitted = i,
                                 .served = serving.at(capture),
                                 .requestNo = call->requestNo,
                                 .frameNo = frameNo,
                                 .widthNs = latestNs - earliestNs,
                                 .candidates = candidatesOf(operation.begun, earliestNs, latestNs,
                                                            std::move(borders))});
        }
        ++capture;
    }
    return uncertain;
}

AssumedInstants findInstants(device::DeviceRecording const& recording,
                             std::vector<UncertainInstant> const& uncertain) {
    AssumedInstants found;
    if (uncertain.empty()) {
        return found;
    }
    DeviceAgreement best = agreementOf(recording, found);
    size_t replays = 1;
    // What differs was decided for a capture that was under way; the youngest comes first, since
    // the older ones have agreed longer.
    auto const improves = [&](UncertainInstant const& instant) {
        if (instant.submitted > best.operations || instant.served < best.operations) {
            return false;
        }
        for (record::ClockReading const& candidate : instant.candidates) {
            if (replays++ >= kMostReplays) {
                return false;
            }
            AssumedInstants tried = found;
            tried.insert_or_assign(instant.capture, candidate);
            if (DeviceAgreement const agreement = agreementOf(recording, tried); agreement > best) {
                best = agreement;
                found = std::move(tried);
                return true;
            }
        }
        return false;
    };
    while (best.operations < recording.operations.size() &&
           std::any_of(uncertain.rbegin(), uncertain.rend(), improves)) {
    }
    return found;
}

}  // namespace zebcam::tool::run
