#include "device/DeviceScript.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

namespace zebcam::tool {

void DeviceScript::begin(size_t operation) {
    mPosition = operation;
    bool const isRecorded = operation < mRecording.operations.size();
    mpOperation = isRecorded ? &mRecording.operations[operation] : &mNothing;
    mTriesDone.assign(this->operation().tries.size(), false);
    mAnswersGiven.assign(this->operation().answers.size(), false);
    mClones = 0;
    mCalls = {};
    mSteps.clear();
    mProblems.clear();
    if (isRecorded) {
        set(mpOperation->begun);
    }
}

void DeviceScript::set(record::ClockReading const& now) {
    mClock.set({.bootTimeNs = now.bootNs, .monotonicNs = now.monotonicNs, .wallNs = now.wallNs});
}

void DeviceScript::passOrFail(record::ProviderCall call) {
    uint64_t const count = ++mCalls.at(static_cast<size_t>(call));
    for (DeviceFault const& fault : operation().faults) {
        if (fault.call == call && fault.count == count) {
            throw std::runtime_error(fault.text);
        }
    }
}

DeviceTry const* DeviceScript::nextTry(uint64_t provider) {
    auto const& tries = operation().tries;
    for (size_t i = 0; i < tries.size(); ++i) {
        if (!mTriesDone[i] && tries[i].provider == provider) {
            mTriesDone[i] = true;
            set(tries[i].offered);
            return &tries[i];
        }
    }
    problem("the processor asked for the history, which it did not on the device");
    return nullptr;
}

void DeviceScript::enterSelection(DeviceTry const& attempt, DeviceSubmission const& submission) {
    // Whether the capture had waited too long was decided between these two readings. If it had,
    // or if nothing was left to wait for, the latest possible age leads to the same end; if not,
    // the earliest does.
    record::ClockReading now = attempt.asked.value_or(attempt.offered);
    bool const isServed = submission.servedIn == mPosition;
    if (isServed) {
        now.wallNs = attempt.ended.value_or(operation().ended).wallNs;
    }
    int64_t const limit = isServed ? submission.earliest.wallNs : submission.latest.wallNs;
    now.wallNs += submission.assumed.wallNs - limit;
    set(now);
}

std::optional<size_t> DeviceScript::nextClone(uint64_t provider) {
    auto const& clones = operation().clones;
    while (mClones < clones.size()) {
        DeviceClone const& clone = clones[mClones++];
        if (clone.provider == provider) {
            return clone.frame;
        }
    }
    problem("the processor cloned a set, which it did not on the device");
    return std::nullopt;
}

DeviceAnswer const* DeviceScript::nextAnswer(uint32_t requestNo) {
    auto const& answers = operation().answers;
    for (size_t i = 0; i < answers.size(); ++i) {
        if (!mAnswersGiven[i] && answers[i].requestNo == requestNo) {
            mAnswersGiven[i] = true;
            return &answers[i];
        }
    }
    problem(fmt::format("the policy of request {} was asked, which it was not on the device",
                        requestNo));
    return nullptr;
}

size_t DeviceScript::leftTries() const {
    return static_cast<size_t>(std::count(mTriesDone.begin(), mTriesDone.end(), false));
}

}  // namespace zebcam::tool
