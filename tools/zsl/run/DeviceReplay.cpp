#include "run/DeviceReplay.h"

#include <fmt/format.h>
#include <metadata/MetadataTags.h>

#include <algorithm>
#include <map>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

#include "base/Text.h"
#include "pipeline/MetadataAccess.h"
#include "pipeline/PipelineSetup.h"
#include "run/DeviceScript.h"

namespace zebcam::tool::run {

using NSCam::IMetadata;

namespace {

// A search that takes longer than a user waits is of no use: the first instants matter most.
constexpr size_t kMostReplays = 500;
constexpr size_t kMostCandidates = 16;

/// What an application result tells.
void describeApp(IMetadata const& app, recording::SensorFrame& frame) {
    auto const timeOf = [&app](uint32_t tag) {
        return std::clamp<int64_t>(pipeline::itemOf<int64_t>(app, tag).value_or(0), 0,
                                   3'600'000'000'000);
    };
    frame.exposureNs = std::max(frame.exposureNs, timeOf(NSCam::ANDROID_SENSOR_EXPOSURE_TIME));
    frame.durationNs = std::max(frame.durationNs, timeOf(NSCam::ANDROID_SENSOR_FRAME_DURATION));
    frame.readoutNs = std::max(frame.readoutNs, timeOf(NSCam::ANDROID_SENSOR_ROLLING_SHUTTER_SKEW));
    auto const fill = [&app](auto& value, uint32_t tag) {
        if (!value) {
            value = pipeline::itemOf<typename std::decay_t<decltype(value)>::value_type>(app, tag);
        }
    };
    fill(frame.iso, NSCam::ANDROID_SENSOR_SENSITIVITY);
    fill(frame.focusDistance, NSCam::ANDROID_LENS_FOCUS_DISTANCE);
    fill(frame.afMode, NSCam::ANDROID_CONTROL_AF_MODE);
    fill(frame.afState, NSCam::ANDROID_CONTROL_AF_STATE);
    fill(frame.lensState, NSCam::ANDROID_LENS_STATE);
}

void describeHal(IMetadata const& hal, recording::SensorFrame& frame) {
    auto const fill = [&hal](auto& value, uint32_t tag) {
        if (!value) {
            value = pipeline::itemOf<typename std::decay_t<decltype(value)>::value_type>(hal, tag);
        }
    };
    fill(frame.aeStable, NSCam::ZEB_3A_AE_SOFT_STABLE);
    fill(frame.frameSync, NSCam::ZEB_FRAME_SYNC_RESULT);
    fill(frame.sensorId, NSCam::ZEB_HAL_REQUEST_SENSOR_ID);
    fill(frame.sensorMode, NSCam::ZEB_P1NODE_SENSOR_MODE);
}

recording::SensorFrame sensorFrameOf(device::DeviceFrame const& content) {
    recording::SensorFrame frame;
    frame.frameNo = content.frameNo;
    frame.timestampNs = content.timestampNs;
    frame.hasError = std::any_of(content.images.begin(), content.images.end(),
                                 [](device::DeviceImage const& image) { return image.hasError; });
    for (device::DeviceMeta const& meta : content.appMetas) {
        describeApp(meta.metadata, frame);
    }
    for (device::DeviceMeta const& meta : content.halMetas) {
        describeHal(meta.metadata, frame);
    }
    return frame;
}

/// The sensor frames that the device's history offered, as far as their numbers and times ascend.
/// What their results do not tell is 0 or missing; durations are then the median interval.
recording::Recording sensorFramesOf(device::DeviceRecording const& recording) {
    recording::Recording frames;
    frames.path = recording.path;
    frames.notes = recording.notes;
    std::map<uint32_t, device::DeviceFrame const*> byNumber;
    for (device::DeviceFrame const& frame : recording.frames) {
        byNumber.emplace(frame.frameNo, &frame);
    }
    for (auto const& [frameNo, content] : byNumber) {
        if (frames.frames.empty() || content->timestampNs > frames.frames.back().timestampNs) {
            frames.frames.push_back(sensorFrameOf(*content));
        }
    }
    frames.medianIntervalNs = recording::medianIntervalNs(frames.frames);
    for (recording::SensorFrame& frame : frames.frames) {
        if (frame.durationNs == 0) {
            frame.durationNs = frames.medianIntervalNs;
        }
    }
    return frames;
}

/// The options that come nearest to what the device did: those of its first capture.
pipeline::ReplayOptions optionsOf(device::DeviceRecording const& recording) {
    pipeline::ReplayOptions options;
    options.captures = 0;
    options.history = 0;
    options.properties = recording.properties;
    device::SubmitCall const* first = nullptr;
    for (device::DeviceOperation const& operation : recording.operations) {
        if (auto const* const call = std::get_if<device::SubmitCall>(&operation.call)) {
            first = first != nullptr ? first : call;
            ++options.captures;
        }
        for (device::DeviceTry const& attempt : operation.tries) {
            options.history =
                std::max(options.history, attempt.frames ? attempt.frames->size() : 0);
        }
    }
    if (first == nullptr) {
        return options;
    }
    options.framesPerCapture = first->frames.size();
    options.frameSync = first->needsFrameSync;
    if (first->hasSelector) {
        options.policy = {pipeline::PolicyKind::Plugin,
                          first->selectorName.value_or("without a name")};
    } else if (first->policy && first->policy->policy == NSCam::ZslPolicy::POLICY_CONTINUOUS_SHOT) {
        options.policy.kind = pipeline::PolicyKind::CShot;
    } else if (first->policy &&
               (first->policy->policy & NSCam::ZslPolicy::POLICY_MULTIFRAME_BIT) != 0) {
        options.policy.kind = pipeline::PolicyKind::Multiframe;
        options.timeoutMs = first->policy->timeoutMs;
    }
    return options;
}

/// The properties that the processor reads, whatever else the file has.
std::vector<std::pair<std::string, std::string>> propertiesOf(
    device::DeviceRecording const& recording) {
    std::vector<std::pair<std::string, std::string>> known;
    for (auto const& property : recording.properties) {
        if (std::find(record::PROPERTIES.begin(), record::PROPERTIES.end(), property.first) !=
            record::PROPERTIES.end()) {
            known.push_back(property);
        }
    }
    return known;
}

/// A capture whose instant is not known well enough to tell on which side of it some frames lie:
/// the processor read the clock between two readings of the recorder's.
struct UncertainInstant {
    size_t capture = 0;    ///< position among the submissions
    size_t submitted = 0;  ///< operation
    size_t served = 0;     ///< operation, or SIZE_MAX
    uint32_t requestNo = 0;
    uint32_t frameNo = 0;  ///< the first of the frames
    int64_t widthNs = 0;
    /// Readings to try, one for each way in which the frames may lie.
    std::vector<record::ClockReading> candidates;

    std::string note() const {
        return fmt::format(
            "the instant of request {} is known within {} ms only, and F{} began in that time: it "
            "may be taken for too old or not",
            requestNo, base::formatMs(widthNs), frameNo);
    }
};

/// One reading before the first of `borders`, one between each two, and one after the last; all
/// lie between `earliest` and `latestNs` on the sensor's clock.
std::vector<record::ClockReading> candidatesOf(record::ClockReading const& earliest,
                                               int64_t earliestNs, int64_t latestNs,
                                               std::vector<int64_t> borders) {
    std::vector<record::ClockReading> candidates;
    borders.push_back(latestNs);
    int64_t from = earliestNs;
    for (int64_t const border : borders) {
        candidates.push_back(movedOn(earliest, std::midpoint(from, border) - earliestNs));
        from = border;
        // More are more replays than anybody waits for; the earliest borders are as likely as
        // others.
        if (candidates.size() == kMostCandidates) {
            break;
        }
    }
    return candidates;
}

/// In the order of the submissions.
std::vector<UncertainInstant> uncertainInstants(device::DeviceRecording const& recording) {
    std::map<int64_t, uint32_t> frames;  // by the clock's reading for which they are the instant
    uint64_t const offset = pipeline::offsetInForceNs();
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
        DeviceSubmission const known = submissionOf(recording, operation, serving.at(capture));
        int64_t const earliestNs = sensorClockNs(recording, known.earliest);
        int64_t const latestNs = sensorClockNs(recording, known.latest);
        auto const first = frames.lower_bound(earliestNs);
        std::vector<int64_t> borders;
        // Only a frame that begins between the two readings can lie on either side.
        for (auto frame = first; frame != frames.end() && frame->first < latestNs; ++frame) {
            borders.push_back(frame->first);
        }
        if (!borders.empty()) {
            uncertain.push_back({.capture = capture,
                                 .submitted = i,
                                 .served = known.servedIn,
                                 .requestNo = call->requestNo,
                                 .frameNo = first->second,
                                 .widthNs = latestNs - earliestNs,
                                 .candidates = candidatesOf(known.earliest, earliestNs, latestNs,
                                                            std::move(borders))});
        }
        ++capture;
    }
    return uncertain;
}

/// Instants with which the replay does what the device did, or, where there are none, does so
/// longest, as far as a bounded number of replays tells. Those that need no other are left out.
AssumedInstants findInstants(device::DeviceRecording const& recording,
                             std::vector<UncertainInstant> const& uncertain) {
    AssumedInstants found;
    if (uncertain.empty()) {
        return found;
    }
    size_t const all = recording.operations.size();
    size_t replays = 0;
    auto const agreementWith = [&](AssumedInstants const& instants, size_t operations) {
        ++replays;
        DeviceRunResult const run = runDevice(recording, instants, operations, 0, {});
        return compareDecisions(recording, run.replayed, operations).agreement;
    };
    auto best = agreementWith(found, all);
    // What differs was decided for a capture that was under way; the youngest comes first, since
    // the older ones have agreed longer.
    auto const improves = [&](UncertainInstant const& instant) {
        if (instant.submitted > best.first || instant.served < best.first) {
            return false;
        }
        for (record::ClockReading const& candidate : instant.candidates) {
            if (replays >= kMostReplays) {
                return false;
            }
            AssumedInstants tried = found;
            tried.insert_or_assign(instant.capture, candidate);
            // The operation that differs tells; only what mends it is worth the rest.
            if (agreementWith(tried, best.first + 1) > best) {
                best = agreementWith(tried, all);
                found = std::move(tried);
                return true;
            }
        }
        return false;
    };
    while (best.first < all && std::any_of(uncertain.rbegin(), uncertain.rend(), improves)) {
    }
    return found;
}

}  // namespace

DeviceReplayResult replayDevice(device::DeviceRecording const& recording, uint32_t logLevel,
                                ReplayListener const& listener) {
    pipeline::PropertyScope const properties(propertiesOf(recording));
    DeviceReplayResult result;
    result.frames = sensorFramesOf(recording);
    int64_t const startNs = result.frames.frames.empty() ? recording.begun.bootNs
                                                         : result.frames.frames.front().timestampNs;
    ReplayListener heard = listener;
    if (listener.log) {
        heard.log = [&](int64_t timeNs, host::LogLine const& line) {
            listener.log(timeNs - startNs, line);
        };
    }
    auto const uncertain = uncertainInstants(recording);
    DeviceRunResult run = runDevice(recording, findInstants(recording, uncertain),
                                    recording.operations.size(), logLevel, heard);
    ReplayResult& replay = result.replay = std::move(run.replay);
    replay.device = compareDecisions(recording, run.replayed, recording.operations.size()).verdict;
    replay.path = recording.path;
    replay.notes = recording.notes;
    replay.notes.emplace_back(
        "the frames are those that the history offered when captures were tried: a gap may be a "
        "time without captures");
    replay.facts = recording::computeFacts(result.frames);
    replay.firstTimestampNs = startNs;
    replay.options = optionsOf(recording);
    replay.offsetMs = pipeline::offsetInForceMs();
    addChosenFrames(replay.captures, [&frames = result.frames.frames](uint32_t frameNo) {
        auto const found =
            std::ranges::lower_bound(frames, frameNo, {}, &recording::SensorFrame::frameNo);
        return found != frames.end() && found->frameNo == frameNo ? &*found : nullptr;
    });
    replay.summary = summarize(replay.captures, replay.offsetMs);
    if (!replay.device->isSame()) {
        for (UncertainInstant const& instant : uncertain) {
            replay.notes.push_back(instant.note());
        }
    }
    return result;
}

}  // namespace zebcam::tool::run
