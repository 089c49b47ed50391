#include "RecordingProxies.h"

namespace NSCam::v3::pipeline::model::record {

namespace {

using ZslPolicy::ISelector;

void putAnswer(RecordingSession& session, ISelector::SelectOutputParams const& answer) {
    Encoder& out = session.out();
    out.number(answer.selected.size());
    for (auto const& [index, result] : answer.selected) {
        out.number(index);
        out.number(result.frameNo);
        out.flag(result.needClone);
        out.number(result.additionalMetas.size());
        for (auto const& [streamId, additional] : result.additionalMetas) {
            out.signedNumber(streamId);
            out.flag(additional != nullptr);
            // A null is a policy's mistake, which the processor meets in its own way.
            if (additional != nullptr) {
                session.buffers().metadata(out, *additional);
            }
        }
    }
    out.number(answer.ops.size());
    for (auto const& [frameNo, op] : answer.ops) {
        out.number(frameNo);
        out.number(op);
    }
}

}  // namespace

/// Makes a call of the caller's provider; an exception is recorded on its way.
template <typename Call>
auto RecordingProvider::forward(ProviderCall which, Call call) const {
    // Which of its kind failed tells the replay where to fail: the calls themselves are not items.
    uint64_t count = 0;
    mSession->note([&](RecordingSession& session) { count = session.countCall(which); });
    try {
        return call();
    } catch (...) {
        mSession->note([&](RecordingSession& session) {
            session.item(Item::FAULT);
            session.out().tag(which);
            session.out().number(count);
            session.out().text(currentExceptionText());
        });
        throw;
    }
}

void RecordingProvider::beginSelect() {
    forward(ProviderCall::BEGIN_SELECT, [this] { mProvider->beginSelect(); });
}

std::optional<std::list<HistoryBufferSet>> RecordingProvider::getHistoryBufferSets() {
    // For its instant the processor reads the clock before it asks for a history.
    mSession->note([](RecordingSession& session) { session.submissionClock(); });
    auto sets =
        forward(ProviderCall::GET_HISTORY, [this] { return mProvider->getHistoryBufferSets(); });
    mSession->note([&](RecordingSession& session) {
        session.item(Item::OFFER);
        session.clock();
        session.out().number(mNumber);
        session.out().number(sets ? sets->size() + 1 : 0);
        if (sets) {
            session.buffers().beginHistory();
            for (HistoryBufferSet const& set : *sets) {
                session.buffers().historyFrame(session.out(), set);
                session.handOuts().add(set, false);
            }
        }
        // A selection ends when the provider is told so, twice as a rule; the first time counts.
        session.awaitSelectionEnd();
    });
    return sets;
}

void RecordingProvider::endSelect() {
    mSession->note([](RecordingSession& session) { session.selectionEnd(); });
    forward(ProviderCall::END_SELECT, [this] { mProvider->endSelect(); });
}

void RecordingProvider::returnBufferSet(ReturnedBufferSet& returned) {
    // Before the provider has it: what goes back is moved out of the set.
    mSession->note([&](RecordingSession& session) {
        bool const isClone =
            returned.pSet != nullptr && session.handOuts().takeBack(*returned.pSet);
        session.item(Item::RETURN);
        session.out().number(mNumber);
        session.out().number((returned.isUnused ? flag::IS_UNUSED : 0) |
                             (isClone ? flag::IS_CLONE : 0));
        session.out().number(returned.pSet != nullptr ? returned.pSet->frameNo : 0);
    });
    forward(ProviderCall::RETURN, [&] { mProvider->returnBufferSet(returned); });
}

std::vector<ZslPolicy::InFlightInfo> RecordingProvider::getInFlightInfos() const {
    auto infos =
        forward(ProviderCall::GET_IN_FLIGHT, [this] { return mProvider->getInFlightInfos(); });
    mSession->note([&](RecordingSession& session) {
        session.item(Item::IN_FLIGHT);
        session.clock();
        session.out().number(mNumber);
        session.out().number(infos.size());
        // In their order, which need not ascend: steps are signed.
        int64_t last = 0;
        for (auto const& info : infos) {
            session.out().step(info.frameNo, last);
        }
    });
    return infos;
}

HistoryBufferSet RecordingProvider::cloneBufferSet(HistoryBufferSet const& original) {
    auto clone = forward(ProviderCall::CLONE, [&] { return mProvider->cloneBufferSet(original); });
    mSession->note([&](RecordingSession& session) {
        session.item(Item::CLONE);
        session.out().number(mNumber);
        session.out().number(original.frameNo);
        session.buffers().looseFrame(session.out(), clone);
        session.handOuts().add(clone, true);
    });
    return clone;
}

ISelector::SelectOutputParams RecordingSelector::select(SelectInputParams const& in) const {
    auto const begin = [&in](RecordingSession& session, uint64_t flags) {
        session.item(Item::SELECT);
        session.out().number(flags);
        session.out().number(in.requestNo);
        session.out().signedNumber(in.zsdTs);
        session.out().signedNumber(in.durationMs);
    };
    try {
        SelectOutputParams answer = mSelector->select(in);
        mSession->note([&](RecordingSession& session) {
            begin(session, 0);
            putAnswer(session, answer);
        });
        return answer;
    } catch (...) {
        // Here and nowhere else: the processor lets none out of its operation.
        mSession->note([&](RecordingSession& session) {
            begin(session, flag::HAS_THROWN);
            session.out().text(currentExceptionText());
        });
        throw;
    }
}

uint32_t RecordingBuilder::getFrameType() const {
    // Asked for while a submission's frames are made ready: its instant is taken by then.
    mSession->note([](RecordingSession& session) { session.submissionClock(); });
    return mBuilder->getFrameType();
}

void RecordingBuilder::setHalImageStreamBuffer(StreamId_T streamId,
                                               android::sp<IImageStreamBuffer> const& buffer) {
    mSession->note([&](RecordingSession& session) {
        // The first image decides: all of a frame come from one set.
        HandOuts::Set set;
        if (!mHistorySet && session.handOuts().take(buffer.get(), set)) {
            mHistorySet = std::move(set);
        }
    });
    mBuilder->setHalImageStreamBuffer(streamId, buffer);
}

void RecordingBuilder::setAppMetaStreamBuffer(StreamId_T streamId,
                                              android::sp<IMetaStreamBuffer> const& buffer) {
    mSession->note([&](RecordingSession&) {
        int64_t ns = 0;
        if (!mSensorTimestamp && readSensorTimestamp(buffer, ns)) {
            mSensorTimestamp = ns;
        }
    });
    mBuilder->setAppMetaStreamBuffer(streamId, buffer);
}

void RecordingBuilder::setFrameTimestamp(int64_t ns) {
    mTimestamp = ns;
    mBuilder->setFrameTimestamp(ns);
}

void RecordingBuilder::setBuiltFromHistory(bool builtFromHistory) {
    mSession->note([&](RecordingSession& session) {
        // Without images the time is the last trace of the frame: the one in the result, for the
        // frame's own may be an earlier shutter.
        HandOuts::Set set;
        if (builtFromHistory && !mHistorySet &&
            session.handOuts().take(mSensorTimestamp.value_or(mTimestamp), set)) {
            mHistorySet = std::move(set);
        }
        session.item(Item::BUILT);
        session.out().number(mNumber);
        session.out().number((builtFromHistory ? flag::IS_FROM_HISTORY : 0) |
                             (mHistorySet ? flag::HAS_HISTORY_FRAME : 0) |
                             (mHistorySet && mHistorySet->isClone ? flag::IS_CLONE : 0));
        session.out().signedNumber(mTimestamp);
        if (mHistorySet) {
            session.out().number(mHistorySet->frameNo);
        }
    });
    mBuilder->setBuiltFromHistory(builtFromHistory);
}

void RecordingCallback::updateFrame(Result const& result) {
    // Gone since the submission began: then nobody hears of the shutter, as without a recorder.
    auto const callback = mCallback.promote();
    if (callback == nullptr) {
        return;
    }
    try {
        callback->updateFrame(result);
    } catch (...) {
        // Here and nowhere else: the processor lets none out of its operation.
        mSession->note([](RecordingSession& session) {
            session.item(Item::CALLBACK_FAILED);
            session.out().text(currentExceptionText());
        });
        throw;
    }
}

}  // namespace NSCam::v3::pipeline::model::record
