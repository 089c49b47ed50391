#include "run/DeviceParams.h"

#include <host/MetaStreamBuffer.h>
#include <metadata/MetadataTags.h>

#include <array>
#include <numeric>
#include <utility>

#include "pipeline/MetadataAccess.h"
#include "run/DeviceFacts.h"

namespace zebcam::tool::run {

using NSCam::v3::pipeline::IPipelineBufferSetFrameControl;
using NSCam::v3::pipeline::policy::ParsedStreamInfo_P1;
using NSCam::v3::pipeline::policy::ParsedStreamInfoMap_P1;

namespace {

ParsedStreamInfo_P1 streamsOf(DeviceStreams const& streams, device::DeviceSensor const& sensor) {
    ParsedStreamInfo_P1 parsed;
    std::array const metas{&parsed.pHalMeta_Control, &parsed.pHalMeta_DynamicP1,
                           &parsed.pAppMeta_DynamicP1};
    std::array const images{&parsed.pHalImage_FullRaw,      &parsed.pHalImage_ResizedRaw,
                            &parsed.pHalImage_ScaledYuv,    &parsed.pHalImage_FaceYuv,
                            &parsed.pHalImage_ShadingStats, &parsed.pHalImage_MotionStats,
                            &parsed.pHalImage_DepthStats,   &parsed.pHalImage_FlickerStats};
    for (size_t i = 0; i < sensor.streams.size(); ++i) {
        if (!sensor.streams.at(i)) {
            continue;
        }
        if (i < metas.size()) {
            *metas.at(i) = streams.meta(*sensor.streams.at(i));
        } else {
            *images.at(i - metas.size()) = streams.image(*sensor.streams.at(i));
        }
    }
    return parsed;
}

record::ClockReading middleOf(record::ClockReading const& a, record::ClockReading const& b) {
    return {std::midpoint(a.bootNs, b.bootNs), std::midpoint(a.monotonicNs, b.monotonicNs),
            std::midpoint(a.wallNs, b.wallNs)};
}

/// A policy was told the instant, so that the clock is known.
void assumeInstant(device::DeviceRecording const& recording, int64_t zsdNs,
                   DeviceSubmission& submission) {
    constexpr uint64_t kNsPerMs = 1'000'000;
    auto const clockNs = static_cast<int64_t>(
        static_cast<uint64_t>(zsdNs) + static_cast<uint64_t>(offsetMsOf(recording)) * kNsPerMs);
    if (clockNs < sensorClockNs(recording, submission.earliest) ||
        clockNs > sensorClockNs(recording, submission.latest)) {
        return;
    }
    (recording.timestampSource.value_or(1) != 0 ? submission.assumed.bootNs
                                                : submission.assumed.monotonicNs) = clockNs;
}

}  // namespace

ParsedStreamInfoMap_P1 sensorsOf(DeviceStreams const& streams,
                                 std::vector<device::DeviceSensor> const& recorded) {
    ParsedStreamInfoMap_P1 sensors;
    for (auto sensor = recorded.rbegin(); sensor != recorded.rend(); ++sensor) {
        sensors.insert_or_assign(sensor->id, streamsOf(streams, *sensor));
    }
    if (!recorded.empty() && sensors.begin()->first != recorded.front().id) {
        sensors.clear();
        sensors.emplace(recorded.front().id, streamsOf(streams, recorded.front()));
    }
    return sensors;
}

DeviceSubmission submissionOf(device::DeviceRecording const& recording,
                              device::DeviceOperation const& submission, size_t servedIn) {
    DeviceSubmission known;
    known.requestNo = std::get<device::SubmitCall>(submission.call).requestNo;
    known.earliest = submission.begun;
    known.latest = latestSubmission(submission);
    known.assumed = middleOf(known.earliest, known.latest);
    known.servedIn = servedIn;
    for (device::DeviceAnswer const& answer : submission.answers) {
        if (answer.requestNo == known.requestNo) {
            assumeInstant(recording, answer.zsdNs, known);
        }
    }
    return known;
}

IPipelineBufferSetFrameControl::IAppCallback::Result resultOf(DeviceStreams const& streams,
                                                              device::ResultCall const& call) {
    IPipelineBufferSetFrameControl::IAppCallback::Result result;
    result.requestNo = call.resultRequestNo;
    result.nAppOutMetaLeft = call.appMetasLeft;
    result.nHalOutMetaLeft = call.halMetasLeft;
    result.isFrameEnd = call.isFrameEnd;
    for (device::ResultMeta const& meta : call.appMetas) {
        NSCam::IMetadata metadata;
        pipeline::put(metadata, NSCam::ZEB_SENSOR_TIMESTAMP, meta.timestampNs);
        result.outputAppMetas.push_back(new host::MetaStreamBuffer(
            meta.stream ? streams.meta(*meta.stream) : nullptr, std::move(metadata)));
    }
    return result;
}

}  // namespace zebcam::tool::run
