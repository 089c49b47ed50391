#include "run/DeviceFacts.h"

#include <fmt/format.h>
#include <metadata/MetadataTags.h>

#include <algorithm>
#include <cstdlib>
#include <map>

#include "base/Duration.h"
#include "pipeline/AndroidTags.h"
#include "pipeline/MetadataAccess.h"
#include "recording/Recording.h"

namespace zebcam::tool::run {

using NSCam::IMetadata;

namespace {

/// What an application result tells.
void describeApp(IMetadata const& app, recording::SensorFrame& frame) {
    auto const timeOf = [&app](uint32_t tag) {
        return std::clamp<int64_t>(pipeline::itemOf<int64_t>(app, tag).value_or(0), 0,
                                   3'600'000'000'000);
    };
    frame.exposureNs = std::max(frame.exposureNs, timeOf(pipeline::tags::SENSOR_EXPOSURE_TIME));
    frame.durationNs = std::max(frame.durationNs, timeOf(pipeline::tags::SENSOR_FRAME_DURATION));
    frame.readoutNs =
        std::max(frame.readoutNs, timeOf(pipeline::tags::SENSOR_ROLLING_SHUTTER_SKEW));
    auto const fill = [&app](auto& value, uint32_t tag) {
        if (!value) {
            value = pipeline::itemOf<typename std::decay_t<decltype(value)>::value_type>(app, tag);
        }
    };
    fill(frame.iso, pipeline::tags::SENSOR_SENSITIVITY);
    fill(frame.focusDistance, pipeline::tags::LENS_FOCUS_DISTANCE);
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

}  // namespace

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

int64_t offsetMsOf(device::DeviceRecording const& recording) {
    uint64_t sum = 0;
    for (auto const& [key, value] : recording.properties) {
        if (key == record::PROPERTIES[0] || key == record::PROPERTIES[1] ||
            key == record::PROPERTIES[2]) {
            sum += static_cast<uint64_t>(std::strtoll(value.c_str(), nullptr, 0));
        }
    }
    return static_cast<int64_t>(sum);
}

int64_t sensorClockNs(device::DeviceRecording const& recording,
                      record::ClockReading const& reading) {
    return recording.timestampSource.value_or(1) != 0 ? reading.bootNs : reading.monotonicNs;
}

record::ClockReading latestSubmission(device::DeviceOperation const& operation) {
    if (operation.submissionRead) {
        return *operation.submissionRead;
    }
    return operation.tries.empty() ? operation.ended : operation.tries.front().offered;
}

}  // namespace zebcam::tool::run
