#include "log/TryBuilder.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

#include "base/Text.h"

namespace zebcam::tool::log {

namespace {

using Kind = ProcessorLine::Kind;

std::vector<std::string> missingFrom(std::vector<std::string> const& found,
                                     std::vector<std::string> const& wanted) {
    std::vector<std::string> missing;
    std::copy_if(wanted.begin(), wanted.end(), std::back_inserter(missing), [&](auto const& id) {
        return std::find(found.begin(), found.end(), id) == found.end();
    });
    return missing;
}

}  // namespace

TryBuilder::TryBuilder(LogRecord const& record, ProcessorLine const& line)
    : mRequestNo(line.requestNo) {
    mTry.line = record.sourceLine;
    mTry.time = record.time;
    if (line.kind == Kind::TryBegin) {
        mTry.hasInput = true;
        mTry.ageMs = line.ageMs;
        mTry.zsdTimestampNs = line.zsdTimestampNs;
        mIsInputOpen = !line.isLast;
    }
}

void TryBuilder::cutInput() {
    mIsInputOpen = false;
    mTry.notes.emplace_back("the line that tells what is wanted is cut");
}

bool TryBuilder::canJudge(uint32_t frameNo) const {
    if (mTry.hasInput) {
        return true;
    }
    // Without its first line, a try of a capture that was retried looks like the one before it.
    bool const isNext = mTry.candidates.empty() || mTry.candidates.back().frameNo < frameNo;
    return isNext && !mTry.timedOut;
}

void TryBuilder::judge(Candidate frame, bool startsOver) {
    // Our policies fill the wanted frames in order, so that the number of taken ones tells which is
    // next.
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

void TryBuilder::add(ProcessorLine const& line) {
    switch (line.kind) {
        case Kind::Wanted:
            mTry.wanted.push_back({line.index, std::string(line.name), line.streams()});
            mIsInputOpen = !line.isLast;
            break;
        case Kind::BadStream:
            mBadStream = line.name;
            break;
        case Kind::PureRaw:
            // The line that says whether this set is bad comes next.
            mIsPureRaw = line.found == line.wanted;
            break;
        case Kind::BadSet:
            addBadSet(line.frameNo);
            break;
        case Kind::Selector:
            mTry.selector = line.selector;
            mTry.historySets = line.sets;
            mTry.lockedSets = line.lockedSets;
            break;
        case Kind::EmptyHistory:
            mTry.notes.emplace_back("the history is empty");
            [[fallthrough]];
        case Kind::PolicyEnd:
            mTry.ageMs = mTry.ageMs.value_or(line.ageMs);
            [[fallthrough]];
        case Kind::PolicyBegin:
        case Kind::Taken:
        case Kind::NotTaken:
        case Kind::Rejected:
        case Kind::StartsOver:
            // The line of the selector tells it better, if it is there.
            mTry.selector = mTry.selector.empty() ? line.selector : mTry.selector;
            break;
        case Kind::UsesLatest:
            mTry.notes.emplace_back("future ts, use latest");
            break;
        default:
            addChoice(line);
    }
}

void TryBuilder::addRejected(Candidate frame) {
    auto const earlier =
        std::find_if(mTry.candidates.begin(), mTry.candidates.end(), [&](Candidate const& each) {
            return each.frameNo == frame.frameNo && each.verdict == Verdict::Refused;
        });
    if (earlier != mTry.candidates.end()) {
        *earlier = std::move(frame);
    } else {
        mTry.candidates.push_back(std::move(frame));
    }
}

void TryBuilder::addBadSet(uint32_t frameNo) {
    Candidate& frame = mTry.candidates.emplace_back();
    frame.frameNo = frameNo;
    frame.criterion = std::exchange(mIsPureRaw, false) ? Criterion::PureRaw : Criterion::Image;
    frame.stream = std::exchange(mBadStream, {});
}

void TryBuilder::addChoice(ProcessorLine const& line) {
    switch (line.kind) {
        case Kind::Selected:
            mSelected = line.selection;
            break;
        case Kind::SelectorSkipped:
            // An empty choice, which is not the same as one that the log does not tell.
            mSelected.emplace();
            mTry.notes.emplace_back("all frames are chosen already, the selector was not asked");
            break;
        case Kind::EarlierSelection:
            mEarlier = line.selection;
            break;
        case Kind::OrderInFlight:
            mFates.push_back({line.order, Order::Fate::InFlight, line.frameNo});
            break;
        case Kind::OrderNotFound:
            mFates.push_back({line.order, Order::Fate::NotFound, line.frameNo});
            break;
        case Kind::LeftInFlight:
            mLeft = line.selection;
            break;
        case Kind::ProviderFlight:
            mTry.inFlight = line.frames();
            break;
        default:
            addOutcome(line);
    }
}

void TryBuilder::addOutcome(ProcessorLine const& line) {
    switch (line.kind) {
        case Kind::NotInHistory:
            // One set may be asked for twice, for two wanted frames; missing streams tell more.
            mLost.emplace(line.frameNo, false);
            break;
        case Kind::LacksStreams:
            mLost[line.frameNo] = true;
            break;
        case Kind::TimedOut:
            mTry.timedOut = true;
            break;
        case Kind::OutCount:
            mOutCount = line.sets;
            break;
        case Kind::OutFrame:
            mOut.emplace_back(line.frameNo);
            break;
        case Kind::OutNoHistory:
            mOut.emplace_back();
            break;
        case Kind::LockedOf:
            mLockedOf = line.selector;
            mTry.locked[*mLockedOf];
            break;
        case Kind::BufferSet:
            mSets[line.frameNo] = line.streams();
            if (mLockedOf) {
                mTry.locked[*mLockedOf].push_back(line.frameNo);
            }
            break;
        default:
            break;
    }
}

TryExplanation TryBuilder::finish(TryExplanation const* before, ProcessorLine const* result) {
    if (result != nullptr && result->kind == Kind::Waiting) {
        mTry.outcome = TryOutcome::Waiting;
        mTry.remaining = result->sets;
    } else if (result != nullptr || mTry.timedOut) {
        // A time-out serves whatever is left, so it needs no line on the result.
        mTry.outcome = TryOutcome::Served;
    }
    Selection const chosen = chosenSoFar(before);
    explainServed(chosen, before);
    explainCandidates();
    explainOrders(chosen);
    return std::move(mTry);
}

/// This try's choice together with what was chosen before and still in flight then.
Selection TryBuilder::chosenSoFar(TryExplanation const* before) const {
    Selection all = mSelected.value_or(Selection());
    Selection earlier = mEarlier.value_or(Selection());
    // The line is one of debugging; without it the try before tells the same.
    if (!mEarlier && before != nullptr) {
        earlier.frames.insert(before->parked.begin(), before->parked.end());
        for (Order const& order : before->orders) {
            if (order.fate == Order::Fate::InFlight) {
                earlier.orders.emplace(order.frameNo, order.kind);
            }
        }
    }
    // Of one index or frame the new choice holds: merge() keeps what is there.
    all.frames.merge(earlier.frames);
    all.orders.merge(earlier.orders);
    return all;
}

/// Indices of the wanted frames that were not built before.
std::set<uint64_t> TryBuilder::openIndices(TryExplanation const* before) const {
    std::set<uint64_t> indices;
    for (WantedFrame const& frame : mTry.wanted) {
        indices.insert(frame.index);
    }
    // What an earlier try chose is not wanted from the policy any more.
    if (before != nullptr) {
        for (auto const& [index, frameNo] : before->parked) {
            indices.insert(index);
        }
    }
    return indices;
}

void TryBuilder::explainServed(Selection const& chosen, TryExplanation const* before) {
    auto const isLeft = [this](uint64_t index) { return mLeft && mLeft->frames.contains(index); };
    std::set<uint64_t> rest = openIndices(before);
    for (auto const& [index, frameNo] : chosen.frames) {
        if (!isLeft(index)) {
            bool const isNew = mSelected && mSelected->frames.contains(index);
            mTry.served.push_back({index, frameNo, isNew ? Source::Chosen : Source::Arrived});
            rest.erase(index);
        }
    }
    // The order of what is built is that of the indices, so numbers can be put to them only when
    // all the lines are there.
    size_t const count = mOutCount.value_or(mOut.size());
    if (mOut.size() == count) {
        if (mTry.timedOut) {
            for (uint64_t const index : rest) {
                mTry.served.push_back({index, std::nullopt, Source::TimedOut});
            }
        }
        // More or less than is known to be chosen: the index of what is more cannot be told.
        mTry.served.resize(count);
        for (size_t i = 0; i < count; ++i) {
            mTry.served[i].frameNo = mOut[i];
        }
    } else {
        mTry.notes.push_back(
            fmt::format("{} of {} lines on built frames are there", mOut.size(), count));
        mTry.served.resize(std::min(mTry.served.size(), count));
    }
    // The time-out takes any frame for what is still in flight.
    if (mLeft && !mTry.timedOut) {
        for (auto const& [index, frameNo] : mLeft->frames) {
            mTry.parked.emplace(index, frameNo.value_or(0));
        }
    }
}

void TryBuilder::explainCandidates() {
    std::map<uint32_t, uint64_t> chosen;  // index by frame number
    if (mSelected) {
        for (auto const& [index, frameNo] : mSelected->frames) {
            if (frameNo) {
                chosen.emplace(*frameNo, index);
                addUnjudged(*frameNo, Verdict::Taken, index);
            }
        }
    }
    for (Candidate& frame : mTry.candidates) {
        if (auto const choice = chosen.find(frame.frameNo); choice != chosen.end()) {
            explainChoice(frame, choice->second);
        } else if (frame.verdict == Verdict::Taken && mSelected) {
            // The policy gives up a run that the history is too short for without a line on it.
            frame.verdict = Verdict::Refused;
            frame.criterion = Criterion::BrokenRun;
            frame.found = "the run was not completed";
        }
        if (frame.criterion == Criterion::Streams) {
            explainStreams(frame);
        }
    }
}

/// What became of a frame that the policy chose for the wanted frame `index`.
void TryBuilder::explainChoice(Candidate& frame, uint64_t index) const {
    frame.index = index;
    if (frame.verdict == Verdict::Refused) {
        // For one wanted frame, while it serves another.
        uint32_t const frameNo = frame.frameNo;
        frame = {};
        frame.frameNo = frameNo;
        frame.verdict = Verdict::Taken;
        frame.index = index;
    }
    auto const lost = mLost.find(frame.frameNo);
    // A frame that cannot be handed over for one wanted frame may be for another.
    bool const isServed =
        std::any_of(mTry.served.begin(), mTry.served.end(),
                    [&](auto const& served) { return served.frameNo == frame.frameNo; });
    if (mLeft && mLeft->frames.contains(index)) {
        frame.verdict = Verdict::Parked;
    } else if (lost != mLost.end() && !isServed) {
        frame.verdict = Verdict::Refused;
        frame.criterion = Criterion::Lost;
        frame.found = lost->second ? "streams are missing" : "not in the history";
    }
}

/// The lines do not tell which streams are missing; if a dump showed the set, it does.
void TryBuilder::explainStreams(Candidate& frame) const {
    auto const found =
        std::find_if(mTry.wanted.begin(), mTry.wanted.end(),
                     [&](auto const& candidate) { return candidate.index == frame.index; });
    if (found == mTry.wanted.end()) {
        return;
    }
    StreamList const& wanted = found->streams;
    frame.wanted = textOf(wanted);
    if (auto const set = mSets.find(frame.frameNo); set != mSets.end()) {
        StreamList const& has = set->second;
        frame.found = "no " + textOf({missingFrom(has.halImages, wanted.halImages),
                                      missingFrom(has.halMetas, wanted.halMetas),
                                      missingFrom(has.appMetas, wanted.appMetas)});
    }
}

void TryBuilder::explainOrders(Selection const& chosen) {
    for (auto const& [frameNo, kind] : chosen.orders) {
        Order order{kind, Order::Fate::Done, frameNo};
        // Only what does not go as ordered has a line.
        for (Order const& told : mFates) {
            if (told.frameNo == frameNo && told.kind == kind) {
                order.fate = told.fate;
            }
        }
        mTry.orders.push_back(order);
        if (kind == Order::Kind::Lock && order.fate != Order::Fate::NotFound) {
            addUnjudged(frameNo, Verdict::Locked, std::nullopt);
        }
    }
}

/// A policy may choose frames without a line on each; they are candidates all the same.
void TryBuilder::addUnjudged(uint32_t frameNo, Verdict verdict, std::optional<uint64_t> index) {
    if (std::none_of(mTry.candidates.begin(), mTry.candidates.end(),
                     [&](auto const& frame) { return frame.frameNo == frameNo; })) {
        Candidate& frame = mTry.candidates.emplace_back();
        frame.frameNo = frameNo;
        frame.verdict = verdict;
        frame.index = index;
    }
}

}  // namespace zebcam::tool::log
