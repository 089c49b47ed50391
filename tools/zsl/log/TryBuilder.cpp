#include "log/TryBuilder.h"

#include <fmt/format.h>

#include <algorithm>

#include "log/Reasons.h"

namespace zebcam::tool::log {

TryBuilder::TryBuilder(LogRecord const& first, uint32_t requestNo) : mRequestNo(requestNo) {
    mTry.line = first.sourceLine;
    mTry.time = first.time;
}

TryBuilder::TryBuilder(LogRecord const& first, line::TryBegin const& begin)
    : TryBuilder(first, begin.requestNo) {
    mTry.hasInput = true;
    mTry.ageMs = begin.ageMs;
    mTry.zsdTimestampNs = begin.zsdTimestampNs;
    mIsInputOpen = !begin.isLast;
}

void TryBuilder::cutInput() {
    mIsInputOpen = false;
    mTry.notes.emplace_back("the line that tells what is wanted is cut");
}

bool TryBuilder::canJudge(uint32_t frameNo) const {
    if (mTry.hasInput) {
        return true;
    }
    bool const isNext = mTry.candidates.empty() || mTry.candidates.back().frameNo < frameNo;
    return isNext && !mTry.timedOut;
}

void TryBuilder::judge(Candidate frame, bool startsOver) {
    if (mTaken < mTry.wanted.size()) {
        frame.index = mTry.wanted[mTaken].index;
    }
    if (frame.verdict == Verdict::Taken) {
        ++mTaken;
    }
    if (startsOver) {
        for (Candidate& earlier : mTry.candidates) {
            if (earlier.verdict == Verdict::Taken) {
                earlier.verdict = Verdict::Refused;
                earlier.criterion = Criterion::BrokenRun;
                earlier.found = fmt::format("F{} refused", frame.frameNo);
            }
        }
        mTaken = 0;
    }
    mTry.candidates.push_back(std::move(frame));
}

void TryBuilder::add(line::Wanted const& wanted) {
    mTry.wanted.push_back(wanted.frame);
    mIsInputOpen = mIsInputOpen && !wanted.isLast;
}

void TryBuilder::add(line::BadStream const& stream) {
    mBadStream = stream.name;
}

void TryBuilder::add(line::BadSet const& set) {
    Candidate frame;
    frame.frameNo = set.frameNo;
    frame.criterion = mIsPureRaw ? Criterion::PureRaw : Criterion::Image;
    frame.stream = std::exchange(mBadStream, {});
    mIsPureRaw = false;
    mTry.candidates.push_back(std::move(frame));
}

void TryBuilder::add(line::TagValue const& pureRaw) {
    mIsPureRaw = pureRaw.value == pureRaw.target;
}

void TryBuilder::add(line::Selector const& selector) {
    mTry.selector = selector.name;
    mTry.historySets = selector.historySets;
    mTry.lockedSets = selector.lockedSets;
}

void TryBuilder::add(line::PolicyEnd const& end) {
    if (mTry.selector.empty()) {
        mTry.selector = end.selector;
    }
    if (!mTry.ageMs) {
        mTry.ageMs = end.ageMs;
    }
    if (end.lacksHistory) {
        mTry.notes.emplace_back("the history is empty");
    }
}

void TryBuilder::add(line::PolicyNote const& note) {
    mTry.notes.emplace_back(note.text);
}

void TryBuilder::add(line::Selected const& selected) {
    mSelected = selected.selection;
}

void TryBuilder::add(line::SelectorSkipped const&) {
    mSelected.emplace();
    mTry.notes.emplace_back("all frames are chosen already, the selector was not asked");
}

void TryBuilder::add(line::EarlierSelection const& earlier) {
    mEarlier = earlier.selection;
}

void TryBuilder::add(line::OrderFate const& order) {
    mFates.push_back(order);
}

void TryBuilder::add(line::HandOverFailed const& failure) {
    bool& lacksStreams = mLost[failure.frameNo];
    lacksStreams = lacksStreams || failure.lacksStreams;
}

void TryBuilder::add(line::TimedOut const&) {
    mTry.timedOut = true;
}

void TryBuilder::add(line::OutCount const& count) {
    mOutCount = count.frames;
}

void TryBuilder::add(line::OutFrame const& frame) {
    mOut.push_back(frame.set ? std::optional(frame.set->frameNo) : std::nullopt);
}

void TryBuilder::add(line::LeftInFlight const& left) {
    mLeft = left.selection;
}

void TryBuilder::add(line::LockedOf const& selector) {
    mLockedOf = selector.selector;
    mTry.locked[*mLockedOf];
}

void TryBuilder::add(line::BufferSet const& set) {
    mSets[set.frameNo] = set.streams;
    if (mLockedOf) {
        mTry.locked[*mLockedOf].push_back(set.frameNo);
    }
}

void TryBuilder::addError(std::string text) {
    mTry.errors.push_back(std::move(text));
}

TryExplanation TryBuilder::finish(TryExplanation const* before, line::Result const* result) {
    if (result != nullptr) {
        mTry.outcome = result->isServed ? TryOutcome::Served : TryOutcome::Waiting;
        mTry.remaining = result->remaining;
    } else if (mTry.timedOut) {
        mTry.outcome = TryOutcome::Served;
    }
    explainServed(before);
    explainCandidates();
    explainOrders(before);
    return std::move(mTry);
}

/// This try's choice together with what was chosen before and still in flight then.
line::Selection TryBuilder::merged(TryExplanation const* before) const {
    line::Selection all = mSelected.value_or(line::Selection());
    line::Selection earlier;
    if (mEarlier) {
        earlier = *mEarlier;
    } else if (before != nullptr) {
        earlier.frames.insert(before->parked.begin(), before->parked.end());
        for (Order const& order : before->orders) {
            if (order.fate == Order::Fate::InFlight) {
                earlier.orders.emplace(order.frameNo, order.kind);
            }
        }
    }
    all.frames.merge(earlier.frames);
    all.orders.merge(earlier.orders);
    return all;
}

/// The frames that choices are carried out for, now that their sets are here.
std::vector<ServedFrame> TryBuilder::chosenFrames(TryExplanation const* before) const {
    std::vector<ServedFrame> frames;
    for (auto const& [index, frameNo] : merged(before).frames) {
        if (!mLeft || mLeft->frames.count(index) == 0) {
            bool const isNew = mSelected && mSelected->frames.count(index) != 0;
            frames.push_back({index, frameNo, isNew ? Source::Chosen : Source::Arrived});
        }
    }
    return frames;
}

/// The frames that are left to the time-out.
std::set<uint64_t> TryBuilder::frameIndicesBut(std::vector<ServedFrame> const& chosen,
                                               TryExplanation const* before) const {
    std::set<uint64_t> indices;
    for (WantedFrame const& frame : mTry.wanted) {
        indices.insert(frame.index);
    }
    if (before != nullptr) {
        for (auto const& [index, frameNo] : before->parked) {
            indices.insert(index);
        }
    }
    for (ServedFrame const& frame : chosen) {
        indices.erase(*frame.index);
    }
    return indices;
}

/// The built frames come in the order of their indices: first those that were chosen, then those
/// that the time-out served.
void TryBuilder::explainServed(TryExplanation const* before) {
    std::vector<ServedFrame> frames = chosenFrames(before);
    size_t const count = mOutCount.value_or(mOut.size());
    if (mOut.size() == count) {
        if (mTry.timedOut) {
            for (uint64_t const index : frameIndicesBut(frames, before)) {
                frames.push_back({index, std::nullopt, Source::TimedOut});
            }
        }
        frames.resize(count);
        for (size_t i = 0; i < count; ++i) {
            frames[i].frameNo = mOut[i];
        }
    } else {
        mTry.notes.push_back(
            fmt::format("{} of {} lines on built frames are there", mOut.size(), count));
        frames.resize(std::min(frames.size(), count));
    }
    mTry.served = std::move(frames);
    if (mLeft && !mTry.timedOut) {
        for (auto const& [index, frameNo] : mLeft->frames) {
            mTry.parked.emplace(index, frameNo.value_or(0));
        }
    }
}

Candidate* TryBuilder::find(uint32_t frameNo) {
    auto const found = std::find_if(mTry.candidates.begin(), mTry.candidates.end(),
                                    [&](auto const& frame) { return frame.frameNo == frameNo; });
    return found != mTry.candidates.end() ? &*found : nullptr;
}

void TryBuilder::addMissing(uint32_t frameNo, Verdict verdict, std::optional<uint64_t> index) {
    if (find(frameNo) == nullptr) {
        Candidate frame;
        frame.frameNo = frameNo;
        frame.verdict = verdict;
        frame.index = index;
        mTry.candidates.push_back(std::move(frame));
    }
}

void TryBuilder::explainStreams(Candidate& frame) const {
    auto const wanted =
        std::find_if(mTry.wanted.begin(), mTry.wanted.end(),
                     [&](auto const& candidate) { return candidate.index == frame.index; });
    if (wanted == mTry.wanted.end()) {
        return;
    }
    frame.wanted = textOf(wanted->streams);
    if (auto const set = mSets.find(frame.frameNo); set != mSets.end()) {
        frame.found = "no " + textOf(missingFrom(set->second, wanted->streams));
    }
}

void TryBuilder::explainCandidates() {
    std::map<uint32_t, uint64_t> chosen;  // index by frame number
    if (mSelected) {
        for (auto const& [index, frameNo] : mSelected->frames) {
            if (frameNo) {
                chosen.emplace(*frameNo, index);
                addMissing(*frameNo, Verdict::Taken, index);
            }
        }
    }
    for (Candidate& frame : mTry.candidates) {
        auto const choice = chosen.find(frame.frameNo);
        bool const isServed =
            std::any_of(mTry.served.begin(), mTry.served.end(),
                        [&](auto const& served) { return served.frameNo == frame.frameNo; });
        if (choice != chosen.end()) {
            frame.index = choice->second;
            auto const lost = mLost.find(frame.frameNo);
            if (mLeft && mLeft->frames.count(choice->second) != 0) {
                frame.verdict = Verdict::Parked;
            } else if (lost != mLost.end() && !isServed) {
                frame.verdict = Verdict::Refused;
                frame.criterion = Criterion::Lost;
                frame.found = lost->second ? "streams are missing" : "not in the history";
            }
        } else if (frame.verdict == Verdict::Taken && mSelected) {
            frame.verdict = Verdict::Refused;
            frame.criterion = Criterion::BrokenRun;
            frame.found = "the run was not completed";
        }
        if (frame.criterion == Criterion::Streams) {
            explainStreams(frame);
        }
    }
}

void TryBuilder::explainOrders(TryExplanation const* before) {
    for (auto const& [frameNo, kind] : merged(before).orders) {
        Order order{kind, Order::Fate::Done, frameNo};
        for (line::OrderFate const& told : mFates) {
            if (told.frameNo == frameNo && told.kind == kind) {
                order.fate = told.fate;
            }
        }
        mTry.orders.push_back(order);
        if (kind == Order::Kind::Lock && order.fate != Order::Fate::NotFound) {
            addMissing(frameNo, Verdict::Locked, std::nullopt);
        }
    }
}

}  // namespace zebcam::tool::log
