#include "log/Explainer.h"

#include <algorithm>
#include <concepts>

#include "base/Text.h"

namespace zebcam::tool::log {

namespace {

constexpr std::string_view TAG = "ZebCam/ZslProc";

/// Looks at every set before the policy does.
constexpr std::string_view PURE_RAW_CHECK = "isPDPureRaw";

/// The processor's lines are cut to so many bytes; a line of this length lacks its end.
constexpr size_t LONGEST_LINE = 1023;

bool isError(LogRecord const& record) {
    return record.priority == 'E' || record.priority == 'F' || record.priority == 'A';
}

bool isOver(CaptureOutcome outcome) {
    return outcome == CaptureOutcome::Served || outcome == CaptureOutcome::TimedOut ||
           outcome == CaptureOutcome::Flushed;
}

CaptureOutcome outcomeAfter(TryExplanation const& attempt) {
    switch (attempt.outcome) {
        case TryOutcome::Served:
            return attempt.timedOut ? CaptureOutcome::TimedOut : CaptureOutcome::Served;
        case TryOutcome::Waiting:
            return CaptureOutcome::Pending;
        case TryOutcome::Unknown:
            break;
    }
    return CaptureOutcome::Unknown;
}

bool isInputLine(line::Any const& event) {
    return std::holds_alternative<line::Wanted>(event) ||
           std::holds_alternative<line::TryBegin>(event);
}

}  // namespace

/// Takes a line to where it belongs.
class Explainer::Visitor {
public:
    Visitor(Explainer& explainer, Thread& thread, LogRecord const& record)
        : mExplainer(explainer), mThread(thread), mRecord(record) {}

    void operator()(line::TryBegin const& begin) { mExplainer.begin(mThread, mRecord, begin); }

    template <typename Line>
    requires requires(Reasons& reasons, Line const& line) { reasons.add(line); }
    void operator()(Line const& line) { mThread.reasons.add(line); }

    void operator()(line::TagValue const& value) {
        if (value.criterion != PURE_RAW_CHECK) {
            mThread.reasons.add(value);
        } else if (mThread.attempt) {
            mThread.attempt->add(value);
        }
    }

    // Most sets lack the tag, and it says nothing of their verdicts.
    void operator()(line::MissingTag const& missing) {
        if (missing.criterion != PURE_RAW_CHECK) {
            mThread.reasons.add(missing);
        }
    }

    void operator()(line::Judgement const& judgement) {
        bool const isOfAttempt = mThread.attempt &&
                                 mThread.attempt->requestNo() == judgement.requestNo &&
                                 mThread.attempt->canJudge(judgement.frameNo);
        if (!isOfAttempt) {
            mExplainer.beginWithoutInput(mThread, mRecord, judgement.requestNo);
            mThread.attempt->add(
                line::PolicyEnd{judgement.requestNo, judgement.selector, {}, false});
        }
        Candidate frame = mThread.reasons.take(judgement.frameNo, judgement.isTaken);
        for (Candidate& skipped : mThread.reasons.takeRest()) {
            mThread.attempt->judge(std::move(skipped), false);
        }
        mThread.attempt->judge(std::move(frame), judgement.startsOver);
    }

    void operator()(line::PolicyEnd const& end) {
        if (!mThread.attempt || mThread.attempt->requestNo() != end.requestNo) {
            mExplainer.beginWithoutInput(mThread, mRecord, end.requestNo);
        }
        mThread.attempt->add(end);
    }

    void operator()(line::PolicyNote const& note) {
        if (mThread.attempt && mThread.attempt->hasInput()) {
            mThread.attempt->add(note);
        } else {
            mExplainer.end(mThread, nullptr);
            mThread.note = note.text;
        }
    }

    template <typename Line>
    requires requires(TryBuilder& builder, Line const& line) { builder.add(line); }
    void operator()(Line const& line) {
        if (mThread.attempt) {
            mThread.attempt->add(line);
        } else {
            ++mExplainer.mExplanation.counts.unassigned;
        }
    }

    // A provider may print its sets at any time.
    void operator()(line::BufferSet const& set) {
        if (mThread.attempt) {
            mThread.attempt->add(set);
        }
    }

    void operator()(line::EarlyShutter const& shutter) {
        capture(shutter.requestNo).earlyShutterNs = shutter.timestampNs;
    }

    // A try that is open is this result's, whatever number stands in the line: that of a served
    // capture may be its neighbour's in the queue.
    void operator()(line::Result const& result) {
        if (!mThread.attempt) {
            mExplainer.beginWithoutInput(mThread, mRecord, result.requestNo);
        }
        if (result.earlyShutterNs && *result.earlyShutterNs != 0) {
            capture(mThread.attempt->requestNo()).earlyShutterNs = result.earlyShutterNs;
        }
        mExplainer.end(mThread, &result);
    }

    void operator()(line::Flushed const& flushed) {
        mExplainer.end(mThread, nullptr);
        capture(flushed.requestNo).outcome = CaptureOutcome::Flushed;
    }

    void operator()(line::FlushedLocked const& locked) {
        if (locked.sets > 0) {
            mExplainer.mExplanation.flushReturns.push_back(
                {mRecord.sourceLine, std::string(locked.selector), locked.sets});
        }
    }

    void operator()(line::Unrecognised const&) { ++mExplainer.mExplanation.counts.unrecognised; }
    void operator()(line::Uninteresting const&) {}
    void operator()(line::Cut const&) {}

private:
    CaptureExplanation& capture(uint32_t requestNo) {
        return mExplainer.mExplanation.captures[mExplainer.captureOf(mRecord.pid, requestNo)];
    }

    Explainer& mExplainer;
    Thread& mThread;
    LogRecord const& mRecord;
};

void Explainer::feed(LogRecord const& record) {
    mExplanation.counts.cut += record.isCut ? 1 : 0;
    std::string_view rest = record.message;
    while (!rest.empty()) {
        size_t const end = std::min(rest.find('\n'), rest.size());
        feedLine(record, rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
}

void Explainer::feedLine(LogRecord const& record, std::string_view text) {
    LineCounts& counts = mExplanation.counts;
    ++counts.lines;
    if (record.tag != TAG) {
        ++counts.foreign;
        return;
    }
    ++counts.processor;
    ThreadId const id{record.pid, record.tid};
    countPlace(record, id);
    Thread& thread = mThreads[id];
    std::string const clean = base::printable(line::withoutSource(text));
    line::Any const event = line::parse(clean);
    if (thread.attempt && thread.attempt->isInputOpen() &&
        !std::holds_alternative<line::Wanted>(event)) {
        thread.attempt->cutInput();
        counts.cut += std::holds_alternative<line::Cut>(event) ? 0 : 1;
    }
    bool const isTooLong = clean.size() >= LONGEST_LINE && !isInputLine(event);
    if (!record.isCut && (isTooLong || std::holds_alternative<line::Cut>(event))) {
        ++counts.cut;
    }
    if (isError(record)) {
        ++counts.errors;
        if (!std::holds_alternative<line::MissingTag>(event)) {
            if (thread.attempt) {
                thread.attempt->addError(clean);
            } else {
                mExplanation.errors.push_back({record.sourceLine, clean});
            }
        }
    }
    std::visit(Visitor(*this, thread, record), event);
}

void Explainer::countPlace(LogRecord const& record, ThreadId const& id) {
    if (record.time) {
        mExplanation.counts.outOfOrder += mNewestNs && record.time->ns < *mNewestNs ? 1 : 0;
        mNewestNs = std::max(mNewestNs.value_or(record.time->ns), record.time->ns);
    }
    if (mLastThread && *mLastThread != id && mThreads[*mLastThread].attempt) {
        ++mExplanation.counts.interleaved;
    }
    mLastThread = id;
}

void Explainer::begin(Thread& thread, LogRecord const& record, line::TryBegin const& begin) {
    end(thread, nullptr);
    size_t capture = captureOf(record.pid, begin.requestNo);
    // Numbers start again with a new session; a capture does not get younger.
    if (begin.ageMs < mExplanation.captures[capture].waitedMs.value_or(begin.ageMs)) {
        capture = addCapture(record.pid, begin.requestNo);
    }
    thread.capture = capture;
    thread.attempt.emplace(record, begin);
}

void Explainer::beginWithoutInput(Thread& thread, LogRecord const& record, uint32_t requestNo) {
    Reasons reasons = std::exchange(thread.reasons, {});
    std::string const note = std::exchange(thread.note, {});
    end(thread, nullptr);
    thread.reasons = std::move(reasons);
    thread.capture = captureOf(record.pid, requestNo);
    thread.attempt.emplace(record, requestNo);
    if (!note.empty()) {
        thread.attempt->add(line::PolicyNote{note});
    }
}

void Explainer::end(Thread& thread, line::Result const* result) {
    std::vector<Candidate> rest = thread.reasons.takeRest();
    if (!thread.attempt) {
        mExplanation.counts.unassigned += rest.size();
        return;
    }
    for (Candidate& frame : rest) {
        thread.attempt->judge(std::move(frame), false);
    }
    CaptureExplanation& capture = mExplanation.captures[thread.capture];
    TryExplanation const* const before = capture.tries.empty() ? nullptr : &capture.tries.back();
    capture.tries.push_back(thread.attempt->finish(before, result));
    thread.attempt.reset();
    TryExplanation const& attempt = capture.tries.back();
    capture.outcome = outcomeAfter(attempt);
    if (attempt.ageMs) {
        capture.waitedMs = std::max(capture.waitedMs.value_or(*attempt.ageMs), *attempt.ageMs);
    }
    if (mOnTry) {
        mOnTry(capture, attempt);
    }
}

/// The capture that a line on `requestNo` tells of: the newest of that number, if it is not over.
size_t Explainer::captureOf(std::optional<uint32_t> pid, uint32_t requestNo) {
    auto const found = mCaptures.find({pid, requestNo});
    if (found != mCaptures.end() && !isOver(mExplanation.captures[found->second].outcome)) {
        return found->second;
    }
    return addCapture(pid, requestNo);
}

size_t Explainer::addCapture(std::optional<uint32_t> pid, uint32_t requestNo) {
    size_t const index = mExplanation.captures.size();
    CaptureExplanation& capture = mExplanation.captures.emplace_back();
    capture.requestNo = requestNo;
    capture.pid = pid;
    mCaptures[{pid, requestNo}] = index;
    return index;
}

Explanation Explainer::finish() {
    for (auto& [id, thread] : mThreads) {
        if (thread.attempt && thread.attempt->isInputOpen()) {
            thread.attempt->cutInput();
            ++mExplanation.counts.cut;
        }
        end(thread, nullptr);
    }
    return std::move(mExplanation);
}

}  // namespace zebcam::tool::log
