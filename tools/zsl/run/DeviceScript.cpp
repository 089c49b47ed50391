#include "run/DeviceScript.h"

#include <utils/Printer.h>

#include <algorithm>
#include <numeric>
#include <stdexcept>

#include "pipeline/ObservedProvider.h"
#include "pipeline/PipelineSetup.h"

namespace zebcam::tool::run {

using NSCam::ZslPolicy::ISelector;
using record::ProviderCall;
namespace context = NSCam::v3::pipeline::NSPipelineContext;

record::ClockReading movedOn(record::ClockReading reading, int64_t ns) {
    constexpr int64_t kFarthestNs = (int64_t{1} << 62) - 1;
    // Both are brought into range before they are added, so that the sum cannot overflow.
    int64_t const by = std::clamp(ns, -kFarthestNs, kFarthestNs);
    for (int64_t* const clock : {&reading.bootNs, &reading.monotonicNs, &reading.wallNs}) {
        *clock = std::clamp(std::clamp(*clock, -kFarthestNs, kFarthestNs) + by, -kFarthestNs,
                            kFarthestNs);
    }
    return reading;
}

int64_t sensorClockNs(device::DeviceRecording const& recording,
                      record::ClockReading const& reading) {
    return recording.timestampSource.value_or(1) != 0 ? reading.bootNs : reading.monotonicNs;
}

bool isServable(device::RequestedFrame const& frame) {
    return frame.frameType && *frame.frameType != context::FRAME_TYPE_PREDUMMY &&
           *frame.frameType != context::FRAME_TYPE_POSTDUMMY;
}

DeviceSubmission submissionOf(device::DeviceRecording const& recording,
                              device::DeviceOperation const& submission, size_t servedIn) {
    DeviceSubmission known;
    known.requestNo = std::get<device::SubmitCall>(submission.call).requestNo;
    known.servedIn = servedIn;
    record::ClockReading const& a = known.earliest = submission.begun;
    record::ClockReading const& b = known.latest =
        submission.submissionRead  ? *submission.submissionRead
        : submission.tries.empty() ? submission.ended
                                   : submission.tries.front().offered;
    known.assumed = {std::midpoint(a.bootNs, b.bootNs), std::midpoint(a.monotonicNs, b.monotonicNs),
                     std::midpoint(a.wallNs, b.wallNs)};
    uint64_t const offsetNs = pipeline::offsetInForceNs();
    for (device::DeviceAnswer const& answer : submission.answers) {
        // A policy was told the instant, so that the clock is known.
        auto const clockNs = static_cast<int64_t>(static_cast<uint64_t>(answer.zsdNs) + offsetNs);
        if (answer.requestNo == known.requestNo && clockNs >= sensorClockNs(recording, a) &&
            clockNs <= sensorClockNs(recording, b)) {
            (recording.timestampSource.value_or(1) != 0 ? known.assumed.bootNs
                                                        : known.assumed.monotonicNs) = clockNs;
        }
    }
    return known;
}

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
            // The decoder lets no builder through that was not submitted before.
            if (built != nullptr && left[captureOf[built->builder]] > 0 &&
                --left[captureOf[built->builder]] == 0) {
                served[captureOf[built->builder]] = i;
            }
        }
    }
    return served;
}

void DeviceScript::begin(size_t operation) {
    mPosition = operation;
    bool const isRecorded = operation < mRecording.operations.size();
    mpOperation = isRecorded ? &mRecording.operations[operation] : &mNothing;
    mTriesDone.assign(mpOperation->tries.size(), false);
    mAnswersGiven.assign(mpOperation->answers.size(), false);
    mClones = 0;
    mCalls = {};
    if (isRecorded) {
        set(mpOperation->begun);
    }
}

void DeviceScript::set(record::ClockReading const& now) {
    mClock.set({.bootTimeNs = now.bootNs, .monotonicNs = now.monotonicNs, .wallNs = now.wallNs});
}

void DeviceScript::passOrFail(ProviderCall call) {
    // By their count: a call that the device did not make throws nothing.
    uint64_t const count = ++mCalls.at(static_cast<size_t>(call));
    for (device::DeviceFault const& fault : operation().faults) {
        if (fault.call == call && fault.count == count) {
            throw std::runtime_error(fault.text);
        }
    }
}

device::DeviceTry const* DeviceScript::nextTry(uint64_t provider) {
    auto const& tries = operation().tries;
    for (size_t i = 0; i < tries.size(); ++i) {
        if (!mTriesDone[i] && tries[i].provider == provider) {
            mTriesDone[i] = true;
            set(tries[i].offered);
            return &tries[i];
        }
    }
    return nullptr;
}

void DeviceScript::enterSelection(device::DeviceTry const& attempt,
                                  DeviceSubmission const& submission) {
    // Whether the capture had waited too long was decided between these two readings. If it had,
    // or if nothing was left to wait for, the latest possible age leads to the same end; if not,
    // the earliest does.
    record::ClockReading now = attempt.asked.value_or(attempt.offered);
    bool const isServed = submission.servedIn == mPosition;
    if (isServed) {
        now.wallNs = attempt.ended.value_or(operation().ended).wallNs;
    }
    int64_t const limit = isServed ? submission.earliest.wallNs : submission.latest.wallNs;
    now.wallNs = movedOn(now, submission.assumed.wallNs - limit).wallNs;
    set(now);
}

std::optional<size_t> DeviceScript::nextClone(uint64_t provider) {
    auto const& clones = operation().clones;
    while (mClones < clones.size()) {
        auto const& [cloner, frame] = clones[mClones++];
        if (cloner == provider) {
            return frame;
        }
    }
    return std::nullopt;
}

device::DeviceAnswer const* DeviceScript::nextAnswer(uint32_t requestNo) {
    auto const& answers = operation().answers;
    for (size_t i = 0; i < answers.size(); ++i) {
        if (!mAnswersGiven[i] && answers[i].requestNo == requestNo) {
            mAnswersGiven[i] = true;
            return &answers[i];
        }
    }
    return nullptr;
}

void ScriptedProvider::dump(android::Printer& printer) const {
    printer.printFormatLine("history of the recording, provider %llu",
                            static_cast<unsigned long long>(mNumber));
}

std::optional<std::list<ScriptedProvider::HistoryBufferSet>>
ScriptedProvider::getHistoryBufferSets() {
    mScript.passOrFail(ProviderCall::GET_HISTORY);
    mTry = mScript.nextTry(mNumber);
    record::ClockReading const& now = mTry != nullptr ? mTry->offered : mScript.operation().begun;
    std::vector<size_t> const none;
    auto const& frames = mTry != nullptr && mTry->frames ? *mTry->frames : none;
    pipeline::TryRecord offer;
    offer.ageMs = pipeline::ageMs(mSubmission.assumed.wallNs, now.wallNs);
    offer.lockedFrames = pipeline::lockedFrames(mScript.buffers.ledger());
    for (size_t const frame : frames) {
        offer.historyFrames.push_back(mScript.recording().frames.at(frame).frameNo);
    }
    if (mTry != nullptr) {
        offer.inFlightFrames = mTry->inFlight;
    }
    mOnBegin(std::move(offer));
    if (mTry == nullptr || !mTry->frames) {
        return std::nullopt;
    }
    return mScript.buffers.offer(frames, mSubmission.requestNo);
}

void ScriptedProvider::endSelect() {
    mScript.buffers.unlockAll();
    mOnEnd();
    mScript.passOrFail(ProviderCall::END_SELECT);
}

void ScriptedProvider::returnBufferSet(ReturnedBufferSet& returned) {
    if (returned.pSet != nullptr) {
        mScript.buffers.takeBack(*returned.pSet, returned.isUnused);
    }
    mScript.passOrFail(ProviderCall::RETURN);
}

std::vector<NSCam::ZslPolicy::InFlightInfo> ScriptedProvider::getInFlightInfos() const {
    mScript.passOrFail(ProviderCall::GET_IN_FLIGHT);
    std::vector<NSCam::ZslPolicy::InFlightInfo> infos;
    if (mTry != nullptr) {
        mScript.enterSelection(*mTry, mSubmission);
        for (uint32_t const frameNo : mTry->inFlight) {
            infos.push_back({frameNo, nullptr});
        }
    }
    return infos;
}

ScriptedProvider::HistoryBufferSet ScriptedProvider::cloneBufferSet(
    HistoryBufferSet const& original) {
    mScript.passOrFail(ProviderCall::CLONE);
    if (std::optional<size_t> const frame = mScript.nextClone(mNumber)) {
        return mScript.buffers.clone(*frame, mSubmission.requestNo);
    }
    HistoryBufferSet empty;
    empty.frameNo = original.frameNo;
    return empty;
}

namespace {

class ScriptedSelector final : public ISelector {
public:
    ScriptedSelector(DeviceScript& script, device::SubmitCall const& call)
        : mScript(script), mCall(call) {}

    char const* getName() const override {
        if (mCall.selectorNameFailure) {
            throw std::runtime_error(*mCall.selectorNameFailure);
        }
        return mCall.selectorName ? mCall.selectorName->c_str() : nullptr;
    }

    SelectOutputParams select(SelectInputParams const& in) const override {
        device::DeviceAnswer const* const answer = mScript.nextAnswer(in.requestNo);
        if (answer == nullptr) {
            return {};
        }
        if (answer->failure) {
            throw std::runtime_error(*answer->failure);
        }
        SelectOutputParams given = answer->answer;
        // The processor takes an index that it did not ask about for the end of the world.
        std::erase_if(given.selected, [&](auto const& selected) {
            return in.frameInfos.count(selected.first) == 0;
        });
        return given;
    }

private:
    DeviceScript& mScript;
    device::SubmitCall const& mCall;
};

}  // namespace

std::shared_ptr<ISelector> makeScriptedSelector(DeviceScript& script,
                                                device::SubmitCall const& call) {
    return std::make_shared<ScriptedSelector>(script, call);
}

}  // namespace zebcam::tool::run
