#include "pipeline/CaptureBook.h"

#include <fmt/format.h>
#include <utils/Timers.h>

#include <algorithm>
#include <utility>

#include "pipeline/FrameFactory.h"
#include "pipeline/MetadataAccess.h"

namespace zebcam::tool::pipeline {

using NSCam::v3::pipeline::model::ZslFrameBuilders;

namespace {

constexpr int64_t kNsPerMs = 1'000'000;

int64_t nowNs() {
    return systemTime(SYSTEM_TIME_BOOTTIME);
}

}  // namespace

CaptureBook::CaptureBook(NSCam::v3::StreamId_T appResult, Tries kept)
    : mAppResult(appResult), mKept(kept) {
}

CaptureBook::Operation::Operation(CaptureBook& book) : mBook(book) {
    std::lock_guard lock(mBook.mLock);
    mBook.mOperations[std::this_thread::get_id()].clear();
}

CaptureBook::Operation::~Operation() {
    std::lock_guard lock(mBook.mLock);
    mBook.mOperations.erase(std::this_thread::get_id());
}

std::vector<BuiltFrame> CaptureBook::Operation::take(ZslFrameBuilders const& lists, bool isFlush,
                                                     std::vector<std::string>& problems) {
    std::lock_guard lock(mBook.mLock);
    std::vector<BuiltFrame> taken;
    for (auto const& list : lists) {
        for (size_t i = 0; i < list.size(); ++i) {
            std::string problem;
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

size_t CaptureBook::open(std::map<uint32_t, uint32_t> sensorModes, size_t frames) {
    std::lock_guard lock(mLock);
    size_t const position = mCaptures.size();
    Capture& capture = mCaptures.emplace_back();
    capture.record.requestNo = requestNoOf(position);
    capture.record.pressNs = nowNs();
    capture.record.sensorModes = std::move(sensorModes);
    capture.record.frames.resize(frames);
    capture.unfinished = frames;
    ++mTotals.captures;
    mTotals.frames += frames;
    mTotals.served[Served::Unanswered] += frames;
    return position;
}

void CaptureBook::setBuilders(size_t capture, Builders builders) {
    std::lock_guard lock(mLock);
    mCaptures.at(capture).builders = std::move(builders);
}

void CaptureBook::beginTry(size_t capture, int64_t ageMs, Offer offer) {
    std::lock_guard lock(mLock);
    Capture& tried = mCaptures.at(capture);
    TryRecord attempt;
    attempt.timeNs = nowNs();
    attempt.ageMs = ageMs;
    attempt.isRetry = tried.tries > 0;
    attempt.historyFrames = std::move(offer.history);
    attempt.inFlightFrames = std::move(offer.inFlight);
    attempt.lockedFrames = std::move(offer.locked);
    if (mKept == Tries::Newest) {
        tried.record.tries.clear();
    }
    tried.record.tries.push_back(std::move(attempt));
    mOperations[std::this_thread::get_id()][capture] = tried.tries++;
    mTried = capture;
}

void CaptureBook::endTry(size_t timedOut) {
    std::lock_guard lock(mLock);
    if (mTried) {
        mCaptures[*mTried].timedOutFrames += timedOut;
        mTried.reset();
    }
}

std::optional<BuiltFrame> CaptureBook::find(std::shared_ptr<host::FrameBuilder> const& builder,
                                            std::string& problem) const {
    size_t const position = builder != nullptr ? builder->requestNo() - 1 : mCaptures.size();
    if (position >= mCaptures.size()) {
        problem = "a frame came back that nobody asked for";
        return std::nullopt;
    }
    Capture const& capture = mCaptures[position];
    auto const found = std::find(capture.builders.begin(), capture.builders.end(), builder);
    auto const index = static_cast<size_t>(found - capture.builders.begin());
    if (found == capture.builders.end() ||
        capture.record.frames[index].served != Served::Unanswered) {
        problem = fmt::format("a frame of capture {} came back twice", builder->requestNo());
        return std::nullopt;
    }
    return BuiltFrame{position, index, builder};
}

/// `remaining`: frames of its list from this one on.
void CaptureBook::answer(BuiltFrame const& frame, bool isFlush, size_t remaining) {
    if (isFlush) {
        book(frame, Served::Flushed, std::nullopt);
        return;
    }
    Capture& capture = mCaptures[frame.capture];
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
        size_t const kept = std::min(*tryIndex, record.tries.size() - 1);
        record.tries[kept].builtFrames.push_back(frame.index);
    }
    identify(frame, outcome);
    --mTotals.served[Served::Unanswered];
    ++mTotals.served[served];
    mTotals.answeredCaptures += record.isAnswered() ? 1 : 0;
}

void CaptureBook::identify(BuiltFrame const& frame, FrameOutcome& outcome) const {
    if (frame.builder->builtFromHistory().value_or(false)) {
        auto const identity = readMetadata(frame.builder->appMeta(mAppResult), identityOf);
        outcome.historyFrame = identity.frameNo;
        outcome.timestampNs = identity.timestampNs;
    }
}

void CaptureBook::setEarlyShutter(uint32_t requestNo, std::optional<int64_t> timestampNs) {
    std::lock_guard lock(mLock);
    mCaptures.at(requestNo - 1).record.earlyShutterNs = timestampNs;
}

size_t CaptureBook::beginResult(BuiltFrame const& frame) {
    std::lock_guard lock(mLock);
    return --mCaptures.at(frame.capture).unfinished;
}

void CaptureBook::endResult(BuiltFrame const& frame, std::optional<int64_t> reportedNs) {
    std::lock_guard lock(mLock);
    Capture& capture = mCaptures.at(frame.capture);
    FrameOutcome& outcome = capture.record.frames[frame.index];
    outcome.resultNs = nowNs();
    outcome.reportedNs = reportedNs;
}

int64_t CaptureBook::ageMs(size_t capture) const {
    std::lock_guard lock(mLock);
    return (nowNs() - mCaptures.at(capture).record.pressNs) / kNsPerMs;
}

size_t CaptureBook::triesOf(size_t capture) const {
    std::lock_guard lock(mLock);
    return mCaptures.at(capture).tries;
}

std::vector<CaptureRecord> CaptureBook::records() const {
    std::lock_guard lock(mLock);
    std::vector<CaptureRecord> records;
    records.reserve(mCaptures.size());
    for (Capture const& capture : mCaptures) {
        records.push_back(capture.record);
    }
    return records;
}

CaptureTotals CaptureBook::totals() const {
    std::lock_guard lock(mLock);
    return mTotals;
}

}  // namespace zebcam::tool::pipeline
