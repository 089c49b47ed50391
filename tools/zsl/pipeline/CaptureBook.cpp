#include "pipeline/CaptureBook.h"

#include <fmt/format.h>
#include <host/BufferLedger.h>
#include <utils/Timers.h>

#include <algorithm>
#include <cstddef>
#include <utility>

namespace zebcam::tool::pipeline {

using NSCam::v3::pipeline::model::ZslFrameBuilders;

namespace {

/// Frames that are told of for a try.
size_t framesOf(CaptureRecord const& capture, TryRecord const& attempt) {
    return 1 + capture.frames.size() + attempt.historyFrames.size();
}

/// Whether but for what was in flight they were offered the same.
bool foundTheSame(TryRecord const& a, TryRecord const& b) {
    return a.historyFrames == b.historyFrames && a.lockedFrames == b.lockedFrames &&
           a.faults == b.faults;
}

}  // namespace

CaptureBook::Operation::Operation(CaptureBook& book) : mBook(book) {
    LockGuard const lock(mBook.mLock);
    mBook.mOperations[std::this_thread::get_id()].clear();
}

CaptureBook::Operation::~Operation() {
    LockGuard const lock(mBook.mLock);
    mBook.mOperations.erase(std::this_thread::get_id());
}

std::vector<BuiltFrame> CaptureBook::Operation::take(ZslFrameBuilders const& lists, bool isFlush,
                                                     std::vector<std::string>& problems) {
    LockGuard const lock(mBook.mLock);
    std::vector<BuiltFrame> taken;
    for (auto const& list : lists) {
        for (size_t i = 0; i < list.size(); ++i) {
            std::string problem;
            // What is no builder of ours becomes null, which no capture asked for.
            auto const frame =
                mBook.find(std::dynamic_pointer_cast<host::FrameBuilder>(list[i]), problem);
            if (frame) {
                mBook.answer(*frame, isFlush, list.size() - i);
                taken.push_back(*frame);
            } else {
                problems.push_back(std::move(problem));
            }
        }
    }
    return taken;
}

size_t CaptureBook::open(std::map<uint32_t, uint32_t> sensorModes, size_t frames,
                         std::optional<uint32_t> requestNo) {
    LockGuard const lock(mLock);
    size_t const position = mCaptures.size();
    Capture& capture = mCaptures.emplace_back();
    capture.record.requestNo = requestNo.value_or(static_cast<uint32_t>(position + 1));
    capture.record.pressNs = nowNs();
    capture.pressWallNs = systemTime(SYSTEM_TIME_REALTIME);
    capture.record.sensorModes = std::move(sensorModes);
    capture.record.frames.resize(frames);
    capture.unfinished = frames;
    mNewest[capture.record.requestNo] = position;
    ++mTotals.captures;
    mTotals.frames += frames;
    mTotals.served[Served::Unanswered] += frames;
    return position;
}

void CaptureBook::setBuilders(size_t capture, Builders const& builders) {
    LockGuard const lock(mLock);
    for (size_t i = 0; i < builders.size(); ++i) {
        mBuilders.emplace(builders[i], std::pair(capture, i));
    }
}

void CaptureBook::addFault(size_t capture, FaultKind kind) {
    LockGuard const lock(mLock);
    add(mCaptures.at(capture).record.faults, kind);
}

void CaptureBook::beginTry(size_t capture, TryRecord offer) {
    LockGuard const lock(mLock);
    Capture& tried = mCaptures.at(capture);
    offer.timeNs = nowNs();
    offer.isRetry = tried.tries > 0;
    tried.record.faults |= offer.faults;
    if (mKept == Tries::Newest) {
        tried.record.tries.clear();
    }
    // The first is the first, whatever is kept of the others.
    size_t const position = mKept == Tries::All ? tried.record.tries.size() : tried.tries;
    tried.inFlight = offer.inFlightFrames;
    mKeptFrames += mKept == Tries::All ? framesOf(tried.record, offer) : 0;
    tried.record.tries.push_back(std::move(offer));
    mOperations[std::this_thread::get_id()][capture] = position;
    ++tried.tries;
    mTried = capture;
}

void CaptureBook::endTry(size_t timedOut) {
    LockGuard const lock(mLock);
    if (mTried) {
        mCaptures[*mTried].timedOutFrames += timedOut;
        mTried.reset();
    }
}

CaptureBook::Repeat CaptureBook::repeatOf(size_t capture) const {
    LockGuard const lock(mLock);
    std::vector<TryRecord> const& tries = mCaptures.at(capture).record.tries;
    if (mKept != Tries::All || tries.size() < 2) {
        return Repeat::None;
    }
    TryRecord const& newest = tries.back();
    TryRecord const& before = tries[tries.size() - 2];
    // The first try is the submission's.
    if (!before.isRetry || !newest.builtFrames.empty() || !before.builtFrames.empty()) {
        return Repeat::None;
    }
    return foundTheSame(newest, before) ? Repeat::Alike
           : mKeptFrames > MOST_FRAMES  ? Repeat::Unlike
                                        : Repeat::None;
}

void CaptureBook::foldRepeat(size_t capture, Repeat repeat) {
    LockGuard const lock(mLock);
    CaptureRecord& record = mCaptures.at(capture).record;
    std::vector<TryRecord>& tries = record.tries;
    int64_t const timeNs = tries.back().timeNs;
    mKeptFrames -= framesOf(record, tries.back());
    mUnlikeRepeats += repeat == Repeat::Unlike ? 1 : 0;
    tries.pop_back();
    ++tries.back().repeats;
    tries.back().lastRepeatNs = timeNs;
}

/// It is offered all that the newest try was, which built nothing.
bool CaptureBook::wouldRepeat(Capture const& capture, TryRecord const& offer) const {
    std::vector<TryRecord> const& tries = capture.record.tries;
    return mKept == Tries::All && !tries.empty() && tries.back().isRetry &&
           tries.back().builtFrames.empty() && foundTheSame(tries.back(), offer) &&
           capture.inFlight == offer.inFlightFrames;
}

bool CaptureBook::addRepeat(size_t capture, TryRecord const& offer) {
    LockGuard const lock(mLock);
    Capture& tried = mCaptures.at(capture);
    if (!wouldRepeat(tried, offer)) {
        return false;
    }
    std::vector<TryRecord>& tries = tried.record.tries;
    ++tries.back().repeats;
    tries.back().lastRepeatNs = nowNs();
    mOperations[std::this_thread::get_id()][capture] = tries.size() - 1;
    ++tried.tries;
    mTried = capture;
    return true;
}

bool CaptureBook::isNextRepeat(size_t capture, TryRecord const& offer) const {
    LockGuard const lock(mLock);
    // They are tried in the order of their submission.
    auto const next =
        std::find_if(mCaptures.begin() + static_cast<std::ptrdiff_t>(capture) + 1, mCaptures.end(),
                     [](Capture const& behind) { return !behind.record.isAnswered(); });
    return next != mCaptures.end() && wouldRepeat(*next, offer);
}

size_t CaptureBook::unlikeRepeats() const {
    LockGuard const lock(mLock);
    return mUnlikeRepeats;
}

std::optional<BuiltFrame> CaptureBook::find(std::shared_ptr<host::FrameBuilder> const& builder,
                                            std::string& problem) const {
    auto const found = mBuilders.find(builder);
    if (found == mBuilders.end()) {
        problem = "a frame came back that nobody asked for";
        return std::nullopt;
    }
    auto const [capture, index] = found->second;
    if (mCaptures[capture].record.frames[index].served != Served::Unanswered) {
        problem = fmt::format("a frame of capture {} came back twice",
                              mCaptures[capture].record.requestNo);
        return std::nullopt;
    }
    return BuiltFrame{capture, index, builder};
}

/// `remaining`: frames of its list from this one on.
void CaptureBook::answer(BuiltFrame const& frame, bool isFlush, size_t remaining) {
    if (isFlush) {
        book(frame, Served::Flushed, std::nullopt);
        return;
    }
    Capture& capture = mCaptures[frame.capture];
    // Of this call only: what other threads try meanwhile comes back from their calls.
    OperationTries const& tries = mOperations[std::this_thread::get_id()];
    auto const tried = tries.find(frame.capture);
    std::optional<size_t> const tryIndex =
        tried != tries.end() ? std::optional(tried->second) : std::nullopt;
    // The frames that the time-out served come last.
    if (capture.timedOutFrames > 0 && remaining <= capture.timedOutFrames) {
        --capture.timedOutFrames;
        book(frame, Served::TimedOut, tryIndex);
    } else {
        book(frame, tryIndex.value_or(0) > 0 ? Served::Waited : Served::AtOnce, tryIndex);
    }
}

void CaptureBook::book(BuiltFrame const& frame, Served served, std::optional<size_t> tryIndex) {
    CaptureRecord& record = mCaptures[frame.capture].record;
    FrameOutcome& outcome = record.frames[frame.index];
    outcome.served = served;
    outcome.answeredNs = nowNs();
    outcome.tryIndex = tryIndex;
    if (tryIndex && !record.tries.empty()) {
        record.tries[keptTry(record, *tryIndex)].builtFrames.push_back(frame.index);
    }
    // One that was built from metadata alone has no buffer of the hand-out any more.
    if (auto const entry = frame.builder->historyEntry()) {
        outcome.historyFrame = entry->frameNo();
        outcome.timestampNs = entry->exposedNs();
    }
    if (auto const lagNs = record.lagNs(outcome)) {
        mTotals.lag.add(*lagNs);
    }
    mTotals.wait.add(*outcome.answeredNs - record.pressNs);
    mTotals.withoutHistory += outcome.historyFrame ? 0 : 1;
    --mTotals.served[Served::Unanswered];
    ++mTotals.served[served];
    // A frame is booked once, so that a capture is whole with its last one and only then.
    mTotals.answeredCaptures += record.isAnswered() ? 1 : 0;
}

/// Where only the newest try is kept, it is the last one.
size_t CaptureBook::keptTry(CaptureRecord const& record, size_t tryIndex) {
    return std::min(tryIndex, record.tries.size() - 1);
}

void CaptureBook::setEarlyShutter(uint32_t requestNo, std::optional<int64_t> timestampNs) {
    LockGuard const lock(mLock);
    if (auto const newest = mNewest.find(requestNo); newest != mNewest.end()) {
        mCaptures[newest->second].record.earlyShutterNs = timestampNs;
    }
}

size_t CaptureBook::beginResult(BuiltFrame const& frame) {
    LockGuard const lock(mLock);
    return --mCaptures.at(frame.capture).unfinished;
}

void CaptureBook::endResult(BuiltFrame const& frame, std::optional<int64_t> reportedNs) {
    LockGuard const lock(mLock);
    Capture& capture = mCaptures.at(frame.capture);
    FrameOutcome& outcome = capture.record.frames[frame.index];
    outcome.resultNs = nowNs();
    outcome.reportedNs = reportedNs;
}

CaptureRecord CaptureBook::recordOf(BuiltFrame const& frame) const {
    LockGuard const lock(mLock);
    // Not copied whole: a capture that waited has many tries.
    CaptureRecord const& record = mCaptures.at(frame.capture).record;
    CaptureRecord known;
    known.requestNo = record.requestNo;
    known.pressNs = record.pressNs;
    known.frames = record.frames;
    auto const tryIndex = record.frames.at(frame.index).tryIndex;
    if (tryIndex && !record.tries.empty()) {
        known.tries.push_back(record.tries[keptTry(record, *tryIndex)]);
    }
    return known;
}

uint32_t CaptureBook::requestNoOf(size_t capture) const {
    LockGuard const lock(mLock);
    return mCaptures.at(capture).record.requestNo;
}

int64_t CaptureBook::ageMs(size_t capture) const {
    LockGuard const lock(mLock);
    return pipeline::ageMs(mCaptures.at(capture).pressWallNs, systemTime(SYSTEM_TIME_REALTIME));
}

size_t CaptureBook::triesOf(size_t capture) const {
    LockGuard const lock(mLock);
    return mCaptures.at(capture).tries;
}

std::vector<CaptureRecord> CaptureBook::records() const {
    LockGuard const lock(mLock);
    std::vector<CaptureRecord> records;
    records.reserve(mCaptures.size());
    for (Capture const& capture : mCaptures) {
        records.push_back(capture.record);
    }
    return records;
}

CaptureTotals CaptureBook::totals() const {
    LockGuard const lock(mLock);
    return mTotals;
}

}  // namespace zebcam::tool::pipeline
