#include "RecordedSelector.h"

namespace NSCam::v3::pipeline::model::record {

namespace {

using ZslPolicy::ISelector;

void putAnswer(Tape& tape, ISelector::SelectOutputParams const& answer) {
    Encoder& out = tape.out();
    out.number(answer.selected.size());
    for (auto const& [index, result] : answer.selected) {
        out.number(index);
        out.number(result.frameNo);
        out.byte(result.needClone ? 1 : 0);
        out.number(result.additionalMetas.size());
        for (auto const& [streamId, additional] : result.additionalMetas) {
            out.signedNumber(streamId);
            out.byte(additional != nullptr ? 1 : 0);
            if (additional != nullptr) {
                tape.describer().metadata(out, *additional);
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

ISelector::SelectOutputParams RecordedSelector::select(SelectInputParams const& in) const {
    auto const begin = [&in](Tape& tape, uint64_t flags) {
        tape.item(Item::SELECT);
        tape.out().number(flags);
        tape.out().number(in.requestNo);
        tape.out().signedNumber(in.zsdTs);
        tape.out().signedNumber(in.durationMs);
    };
    try {
        SelectOutputParams answer = mSelector->select(in);
        mTape->note([&](Tape& tape) {
            begin(tape, 0);
            putAnswer(tape, answer);
        });
        return answer;
    } catch (...) {
        mTape->note([&](Tape& tape) {
            begin(tape, flag::HAS_THROWN);
            tape.out().text(currentExceptionText());
        });
        throw;
    }
}

}  // namespace NSCam::v3::pipeline::model::record
