#include "Given.h"

#include <algorithm>

namespace zebcam::test {
namespace {

constexpr uint32_t UNKNOWN_FRAME = 900'000;

bool isInFlight(uint32_t frameNo, ISelector::SelectInputParams const& in) {
    return std::any_of(in.inflightInfos.begin(), in.inflightInfos.end(),
                       [&](auto const& info) { return info.frameNo == frameNo; });
}

/// The frame that a pick names; none when there is nothing to pick from.
std::optional<uint32_t> frameOf(Pick const& pick, ISelector::SelectInputParams const& in) {
    if (pick.from == From::History && !in.historyFrames.empty()) {
        return std::next(in.historyFrames.begin(), pick.n % in.historyFrames.size())->first;
    }
    if (pick.from == From::InFlight && !in.inflightInfos.empty()) {
        return in.inflightInfos[pick.n % in.inflightInfos.size()].frameNo;
    }
    if (pick.from == From::None) {
        return NO_FRAME;
    }
    return pick.from == From::Unknown ? std::optional(UNKNOWN_FRAME + pick.n) : std::nullopt;
}

}  // namespace

World::Given::Given(World& world, Press& press, Faults faults)
    : mWorld(world),
      mPress(press),
      mFaults(std::move(faults)),
      mName(1, static_cast<char>('A' + press.spec.name)) {
}

char const* World::Given::getName() const {
    if (has(mFaults, Fault::NameThrows)) {
        fail();
    }
    return mName.c_str();
}

Answer World::Given::select(SelectInputParams const& in) const {
    mWorld.watch([&] { mWorld.checkInput(mPress, in); });
    ++mCalls;
    if (has(mFaults, Fault::Throws) || (mCalls == 1 && has(mFaults, Fault::ThrowsOnce))) {
        fail();
    }
    Answer answer;
    choose(in, answer);
    order(in, answer);
    return answer;
}

void World::Given::fail() const {
    ++mWorld.mThrown;
    throw PluginFailure();
}

void World::Given::choose(SelectInputParams const& in, Answer& answer) const {
    auto const& picks = mPress.spec.picks;
    std::set<uint32_t> chosen;
    size_t i = 0;
    for (auto const& [index, info] : in.frameInfos) {
        if (i == picks.size()) {
            return;
        }
        Pick const& pick = picks[i++];
        auto const frameNo = frameOf(pick, in);
        if (!frameNo) {
            continue;
        }
        answer.selected[index] = {*frameNo, pick.clone, metasOf(pick)};
        mWorld.mMayRelease = mWorld.mMayRelease || pick.clone;
        if (pick.from == From::Unknown) {
            mWorld.mTried.fault(Fault::UnknownFrame);
        } else if (!chosen.insert(*frameNo).second) {
            mWorld.mTried.fault(Fault::SameFrameTwice);
        }
    }
}

void World::Given::order(SelectInputParams const& in, Answer& answer) const {
    for (Order const& order : mPress.spec.orders) {
        auto const frameNo = frameOf(order.target, in);
        auto const op = static_cast<Answer::OpT>(order.op);
        if (frameNo && answer.ops.emplace(*frameNo, op).second) {
            noteOrder(op, *frameNo, in);
        }
    }
}

void World::Given::noteOrder(Answer::OpT op, uint32_t frameNo, SelectInputParams const& in) const {
    auto const frame = in.historyFrames.find(frameNo);
    if (frame == in.historyFrames.end() && !isInFlight(frameNo, in)) {
        mWorld.mTried.fault(Fault::OrderWithoutFrame);
    } else if (op == Answer::LOCK) {
        mWorld.mOrderedLocks.insert(frameNo);
    }
    if (op == Answer::LOCK && isInFlight(frameNo, in)) {
        mWorld.mLocksInFlight.insert(frameNo);
    }
    mWorld.mMayRelease = mWorld.mMayRelease || op == Answer::RELEASE;
    bool const endsLock = op != Answer::LOCK && frame != in.historyFrames.end() &&
                          frame->second.isLocked && !has(mFaults, Fault::NoProvider) &&
                          mWorld.mLocksInFlight.count(frameNo) == 0;
    if (endsLock) {
        mWorld.mOrderedLocks.erase(frameNo);
    }
}

ISelector::AdditionalMetas World::Given::metasOf(Pick const& pick) const {
    constexpr uint32_t TAG = 0xc0ff0002;
    constexpr StreamId_T UNKNOWN_STREAM = 0x7777;
    if (pick.meta == 0) {
        return {};
    }
    auto const metadata = std::make_shared<IMetadata>();
    put<int32_t>(*metadata, TAG, 1);
    if (pick.meta == 1) {
        return {{APP, metadata}, {HAL, metadata}, {STREAM_ID_HAL_META_CONTROL_1, metadata}};
    }
    mWorld.mTried.fault(Fault::UnknownStream);
    return {{UNKNOWN_STREAM, metadata}, {HAL, pick.meta == 3 ? nullptr : metadata}};
}

}  // namespace zebcam::test
