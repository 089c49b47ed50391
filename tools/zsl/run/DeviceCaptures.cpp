#include "run/DeviceCaptures.h"

#include <algorithm>
#include <utility>

namespace zebcam::tool::run {

using NSCam::v3::pipeline::NSPipelineContext::IFrameBuilder;
namespace context = NSCam::v3::pipeline::NSPipelineContext;

namespace {

constexpr int64_t kFixedTimeoutMs = 3000;
constexpr int64_t kNsPerMs = 1'000'000;

/// Whether the processor answers a frame at some time: it has a builder and is no dummy.
bool isServable(device::RequestedFrame const& frame) {
    return frame.frameType && *frame.frameType != context::FRAME_TYPE_PREDUMMY &&
           *frame.frameType != context::FRAME_TYPE_POSTDUMMY;
}

}  // namespace

std::vector<size_t> servingOperations(device::DeviceRecording const& recording) {
    std::vector<size_t> served;
    std::vector<size_t> left;       // frames to build, by capture
    std::vector<size_t> captureOf;  // by builder
    for (size_t i = 0; i < recording.operations.size(); ++i) {
        device::DeviceOperation const& operation = recording.operations[i];
        if (auto const* const call = std::get_if<device::SubmitCall>(&operation.call)) {
            captureOf.insert(captureOf.end(), call->frames.size(), served.size());
            left.push_back(static_cast<size_t>(
                std::count_if(call->frames.begin(), call->frames.end(), isServable)));
            served.push_back(SIZE_MAX);
        }
        for (device::DeviceStep const& step : operation.steps) {
            auto const* const built = std::get_if<device::BuiltStep>(&step);
            if (built != nullptr && left[captureOf[built->builder]] > 0 &&
                --left[captureOf[built->builder]] == 0) {
                served[captureOf[built->builder]] = i;
            }
        }
    }
    return served;
}

DeviceCaptures::DeviceCaptures(device::DeviceRecording const& recording) {
    mPlaces.reserve(recording.builders);
}

size_t DeviceCaptures::open(DeviceScript& script, device::SubmitCall const& call,
                            DeviceSubmission submission) {
    size_t const position = mCaptures.size();
    Capture& capture = mCaptures.emplace_back();
    capture.call = &call;
    capture.submission = submission;
    capture.record.requestNo = call.requestNo;
    capture.record.pressNs = submission.assumed.bootNs;
    for (auto const& [sensor, mode] : call.sensorModes) {
        if (std::find(call.requiredSensors.begin(), call.requiredSensors.end(), sensor) !=
            call.requiredSensors.end()) {
            capture.record.sensorModes.emplace(sensor, mode);
        }
    }
    for (size_t i = 0; i < call.frames.size(); ++i) {
        device::RequestedFrame const& frame = call.frames[i];
        Place place{position, std::nullopt};
        std::shared_ptr<ScriptedBuilder> builder;
        if (frame.frameType) {
            builder = std::make_shared<ScriptedBuilder>(script, call.firstBuilder + i,
                                                        call.requestNo, *frame.frameType);
            for (auto const& buffer : script.buffers.metas(frame.appControls)) {
                builder->setControl(buffer, false);
            }
            for (auto const& buffer : script.buffers.metas(frame.halControls)) {
                builder->setControl(buffer, true);
            }
        }
        if (isServable(frame)) {
            place.frame = capture.record.frames.size();
            capture.record.frames.emplace_back();
        }
        mPlaces.push_back(place);
        capture.builders.push_back(std::move(builder));
    }
    return position;
}

int64_t DeviceCaptures::timeoutMs(size_t capture) const {
    device::SubmitCall const& call = *mCaptures.at(capture).call;
    bool const isMultiframe = !call.hasSelector && call.policy &&
                              call.policy->policy != NSCam::ZslPolicy::POLICY_CONTINUOUS_SHOT &&
                              (call.policy->policy & NSCam::ZslPolicy::POLICY_MULTIFRAME_BIT) != 0;
    return isMultiframe ? call.policy->timeoutMs : kFixedTimeoutMs;
}

int64_t DeviceCaptures::ageMs(size_t capture, record::ClockReading const& now) const {
    return (now.wallNs - mCaptures.at(capture).submission.assumed.wallNs) / kNsPerMs;
}

void DeviceCaptures::beginTry(size_t capture, pipeline::TryRecord attempt) {
    auto& tries = mCaptures.at(capture).record.tries;
    attempt.isRetry = !tries.empty();
    tries.push_back(std::move(attempt));
    mTried = capture;
}

void DeviceCaptures::endTry(size_t timedOutFrames) {
    if (mTried) {
        mCaptures[*mTried].timedOutFrames += timedOutFrames;
        mTried.reset();
    }
}

void DeviceCaptures::answer(NSCam::v3::pipeline::model::ZslFrameBuilders const& lists, bool isFlush,
                            int64_t nowNs) {
    for (auto const& list : lists) {
        answerList(list, isFlush, nowNs);
    }
}

/// From the end, for the frames that the time-out served come last.
void DeviceCaptures::answerList(std::vector<std::shared_ptr<IFrameBuilder>> const& list,
                                bool isFlush, int64_t nowNs) {
    for (auto builder = list.rbegin(); builder != list.rend(); ++builder) {
        auto const* const frame = dynamic_cast<ScriptedBuilder const*>(builder->get());
        if (frame == nullptr || !mPlaces.at(frame->number()).frame) {
            continue;
        }
        Place const place = mPlaces[frame->number()];
        Capture& capture = mCaptures[place.capture];
        pipeline::FrameOutcome& outcome = capture.record.frames[*place.frame];
        outcome.answeredNs = nowNs;
        outcome.timestampNs = frame->exposedNs();
        if (frame->built()) {
            outcome.historyFrame = frame->built()->frameNo;
        }
        if (isFlush) {
            outcome.served = pipeline::Served::Flushed;
            continue;
        }
        if (capture.timedOutFrames > 0) {
            --capture.timedOutFrames;
            outcome.served = pipeline::Served::TimedOut;
        } else {
            outcome.served = capture.record.tries.size() > 1 ? pipeline::Served::Waited
                                                             : pipeline::Served::AtOnce;
        }
        if (!capture.record.tries.empty()) {
            outcome.tryIndex = capture.record.tries.size() - 1;
            auto& built = capture.record.tries.back().builtFrames;
            built.insert(built.begin(), *place.frame);
        }
    }
}

DeviceCaptures::Capture* DeviceCaptures::find(uint32_t requestNo) {
    // Request numbers may come again; the newest capture of a number is meant.
    auto const found = std::find_if(
        mCaptures.rbegin(), mCaptures.rend(),
        [requestNo](Capture const& capture) { return capture.record.requestNo == requestNo; });
    return found != mCaptures.rend() ? &*found : nullptr;
}

void DeviceCaptures::setEarlyShutter(uint32_t requestNo, std::optional<int64_t> timestampNs) {
    if (Capture* const capture = find(requestNo)) {
        capture->record.earlyShutterNs = timestampNs;
    }
}

void DeviceCaptures::setResult(device::ResultCall const& call, int64_t nowNs,
                               std::optional<int64_t> reportedNs) {
    Capture* const capture = find(call.requestNo);
    if (capture == nullptr) {
        return;
    }
    auto const next = std::find_if(
        capture->record.frames.begin(), capture->record.frames.end(),
        [](pipeline::FrameOutcome const& frame) { return frame.answeredNs && !frame.resultNs; });
    if (next != capture->record.frames.end()) {
        next->resultNs = nowNs;
        next->reportedNs = reportedNs;
    }
    if (call.isFrameEnd) {
        for (auto const& builder : capture->builders) {
            if (builder != nullptr && builder->built()) {
                builder->finish();
            }
        }
    }
}

std::vector<pipeline::CaptureRecord> DeviceCaptures::records() const {
    std::vector<pipeline::CaptureRecord> records;
    records.reserve(mCaptures.size());
    for (Capture const& capture : mCaptures) {
        records.push_back(capture.record);
    }
    return records;
}

void DeviceCaptures::finishFrames() {
    for (Capture const& capture : mCaptures) {
        for (auto const& builder : capture.builders) {
            if (builder != nullptr) {
                builder->finish();
            }
        }
    }
}

}  // namespace zebcam::tool::run
