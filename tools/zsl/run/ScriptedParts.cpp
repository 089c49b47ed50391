#include "run/ScriptedParts.h"

#include <fmt/format.h>
#include <metadata/MetadataTags.h>

#include <stdexcept>

#include "pipeline/MetadataAccess.h"

namespace zebcam::tool::run {

using NSCam::ZslPolicy::ISelector;
using record::ProviderCall;

void ScriptedProvider::dump(android::Printer& printer) const {
    printer.printFormatLine("history of the recording, provider %llu",
                            static_cast<unsigned long long>(mNumber));
}

std::optional<std::list<ScriptedProvider::HistoryBufferSet>>
ScriptedProvider::getHistoryBufferSets() {
    mScript.passOrFail(ProviderCall::GET_HISTORY);
    mTry = mScript.nextTry(mNumber);
    mObserver.begin(mTry);
    if (mTry == nullptr || !mTry->frames) {
        return std::nullopt;
    }
    std::list<HistoryBufferSet> sets;
    for (size_t const frame : *mTry->frames) {
        sets.push_back(mScript.buffers.handOut(frame, mSubmission.requestNo, false));
        mScript.handOuts.add(sets.back(), false);
    }
    return sets;
}

void ScriptedProvider::endSelect() {
    mScript.buffers.unlockAll();
    mObserver.end();
    mScript.passOrFail(ProviderCall::END_SELECT);
}

void ScriptedProvider::returnBufferSet(ReturnedBufferSet& returned) {
    device::ReturnStep step;
    step.provider = mNumber;
    step.isUnused = returned.isUnused;
    if (returned.pSet != nullptr) {
        step.frameNo = returned.pSet->frameNo;
        mScript.handOuts.takeBack(*returned.pSet);
        step.isClone = DeviceBuffers::takeBack(*returned.pSet, returned.isUnused);
    }
    mScript.did(step);
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
    std::optional<size_t> const frame = mScript.nextClone(mNumber);
    HistoryBufferSet clone;
    if (frame) {
        clone = mScript.buffers.handOut(*frame, mSubmission.requestNo, true);
        mScript.handOuts.add(clone, true);
    } else {
        clone.frameNo = original.frameNo;
    }
    return clone;
}

char const* ScriptedSelector::getName() const {
    if (mCall.selectorNameFailure) {
        throw std::runtime_error(*mCall.selectorNameFailure);
    }
    return mCall.selectorName ? mCall.selectorName->c_str() : nullptr;
}

ISelector::SelectOutputParams ScriptedSelector::select(SelectInputParams const& in) const {
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
        bool const isAsked = in.frameInfos.count(selected.first) != 0;
        if (!isAsked) {
            mScript.problem(
                fmt::format("the recorded answer for request {} names frame {}, which "
                            "the processor did not ask about",
                            in.requestNo, selected.first));
        }
        return !isAsked;
    });
    return given;
}

void ScriptedBuilder::setControl(android::sp<NSCam::v3::IMetaStreamBuffer> const& buffer,
                                 bool isHal) {
    NSCam::v3::StreamId_T const streamId = buffer->getStreamInfo()->getStreamId();
    if (isHal) {
        mFrame.setHalMetaStreamBuffer(streamId, buffer);
    } else {
        mFrame.setAppMetaStreamBuffer(streamId, buffer);
    }
}

void ScriptedBuilder::setHalImageStreamBuffer(
    NSCam::v3::StreamId_T streamId, android::sp<NSCam::v3::IImageStreamBuffer> const& buffer) {
    record::HandOuts::Set set;
    if (!mHistorySet && mScript.handOuts.take(buffer.get(), set)) {
        mHistorySet = std::move(set);
    }
    mFrame.setHalImageStreamBuffer(streamId, buffer);
}

void ScriptedBuilder::setAppMetaStreamBuffer(
    NSCam::v3::StreamId_T streamId, android::sp<NSCam::v3::IMetaStreamBuffer> const& buffer) {
    if (!mSensorTimestampNs) {
        mSensorTimestampNs = pipeline::readSensorTimestamp(buffer);
    }
    mFrame.setAppMetaStreamBuffer(streamId, buffer);
}

void ScriptedBuilder::setFrameTimestamp(int64_t ns) {
    mFrame.setFrameTimestamp(ns);
}

void ScriptedBuilder::setBuiltFromHistory(bool builtFromHistory) {
    mFrame.setBuiltFromHistory(builtFromHistory);
    device::BuiltStep step;
    step.builder = mNumber;
    step.isFromHistory = builtFromHistory;
    step.timestampNs = mFrame.timestamp().value_or(0);
    record::HandOuts::Set set;
    if (builtFromHistory && !mHistorySet &&
        mScript.handOuts.take(mSensorTimestampNs.value_or(step.timestampNs), set)) {
        mHistorySet = std::move(set);
    }
    if (mHistorySet) {
        step.frameNo = mHistorySet->frameNo;
        step.isClone = mHistorySet->isClone;
        mExposedNs = mHistorySet->timestamp;
    }
    mBuilt = step;
    mScript.did(step);
}

}  // namespace zebcam::tool::run
