#include "RecordedProvider.h"

namespace NSCam::v3::pipeline::model::record {

/// Makes a call of the other provider; an exception is recorded on its way.
template <typename Call>
auto RecordedProvider::forward(ProviderCall which, Call call) const {
    uint64_t count = 0;
    mTape->note([&](Tape& tape) { count = tape.countCall(which); });
    try {
        return call();
    } catch (...) {
        mTape->note([&](Tape& tape) {
            tape.item(Item::FAULT);
            tape.out().byte(static_cast<uint8_t>(which));
            tape.out().number(count);
            tape.out().text(currentExceptionText());
        });
        throw;
    }
}

void RecordedProvider::beginSelect() {
    forward(ProviderCall::BEGIN_SELECT, [this] { mProvider->beginSelect(); });
}

std::optional<std::list<HistoryBufferSet>> RecordedProvider::getHistoryBufferSets() {
    mTape->note([](Tape& tape) { tape.submissionClock(); });
    auto sets =
        forward(ProviderCall::GET_HISTORY, [this] { return mProvider->getHistoryBufferSets(); });
    mTape->note([&](Tape& tape) {
        tape.item(Item::OFFER);
        tape.clock();
        tape.out().number(mNumber);
        tape.out().number(sets ? sets->size() + 1 : 0);
        if (sets) {
            tape.describer().beginHistory();
            for (HistoryBufferSet const& set : *sets) {
                tape.describer().historyFrame(tape.out(), set);
                tape.outSets().add(set, false);
            }
        }
        tape.awaitSelectionEnd();
    });
    return sets;
}

void RecordedProvider::endSelect() {
    mTape->note([](Tape& tape) { tape.selectionEnd(); });
    forward(ProviderCall::END_SELECT, [this] { mProvider->endSelect(); });
}

void RecordedProvider::returnBufferSet(ReturnedBufferSet& returned) {
    mTape->note([&](Tape& tape) {
        bool const isClone = returned.pSet != nullptr && tape.outSets().takeBack(*returned.pSet);
        tape.item(Item::RETURN);
        tape.out().number(mNumber);
        tape.out().number((returned.isUnused ? flag::IS_UNUSED : 0) |
                          (isClone ? flag::IS_CLONE : 0));
        tape.out().number(returned.pSet != nullptr ? returned.pSet->frameNo : 0);
    });
    forward(ProviderCall::RETURN, [&] { mProvider->returnBufferSet(returned); });
}

std::vector<ZslPolicy::InFlightInfo> RecordedProvider::getInFlightInfos() const {
    auto infos =
        forward(ProviderCall::GET_IN_FLIGHT, [this] { return mProvider->getInFlightInfos(); });
    mTape->note([&](Tape& tape) {
        tape.item(Item::IN_FLIGHT);
        tape.clock();
        tape.out().number(mNumber);
        tape.out().number(infos.size());
        int64_t last = 0;
        for (auto const& info : infos) {
            tape.out().step(info.frameNo, last);
        }
    });
    return infos;
}

HistoryBufferSet RecordedProvider::cloneBufferSet(HistoryBufferSet const& original) {
    auto clone = forward(ProviderCall::CLONE, [&] { return mProvider->cloneBufferSet(original); });
    mTape->note([&](Tape& tape) {
        tape.item(Item::CLONE);
        tape.out().number(mNumber);
        tape.out().number(original.frameNo);
        tape.describer().looseFrame(tape.out(), clone);
        tape.outSets().add(clone, true);
    });
    return clone;
}

}  // namespace NSCam::v3::pipeline::model::record
