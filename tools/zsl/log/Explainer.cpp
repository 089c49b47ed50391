#include "log/Explainer.h"

#include <algorithm>
#include <utility>

#include "base/Text.h"

namespace zebcam::tool::log {

namespace {

using Kind = ProcessorLine::Kind;

constexpr std::string_view TAG = "ZebCam/ZslProc";

/// The processor's lines are cut to so many bytes; a line of this length lacks its end.
constexpr size_t LONGEST_LINE = 1023;

bool isError(LogRecord const& record) {
    return record.priority == 'E' || record.priority == 'F' || record.priority == 'A';
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
    // Served tries may leave no line below the level that was logged, so this is not waiting.
    return CaptureOutcome::Unknown;
}

}  // namespace

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
    // Formats without threads give one for each process: the best that can be done with them.
    ThreadId const id{record.pid, record.tid};
    countPlace(record, id);
    Thread& thread = mThreads[id];
    // First of all, so that whatever is told of the line can be printed.
    std::string const clean = base::printable(withoutSource(text));
    ProcessorLine const line = parseProcessorLine(clean);
    bool isCut = line.kind == Kind::Cut;
    if (thread.attempt && thread.attempt->isInputOpen() && line.kind != Kind::Wanted) {
        thread.attempt->cutInput();
        isCut = true;
    }
    // The lines on the input are one line of the log, of which only the end may be missing.
    bool const isOfInput = line.kind == Kind::TryBegin || line.kind == Kind::Wanted;
    isCut = isCut || (clean.size() >= LONGEST_LINE && !isOfInput);
    counts.cut += isCut && !record.isCut ? 1 : 0;
    if (isError(record)) {
        ++counts.errors;
        // A missing tag is told where it matters.
        bool const isOnTag = line.kind == Kind::MissingTag || line.kind == Kind::AssumedGood ||
                             line.kind == Kind::NotRaw;
        if (!isOnTag) {
            if (thread.attempt) {
                thread.attempt->addError(clean);
            } else {
                mExplanation.errors.push_back({record.sourceLine, clean});
            }
        }
    }
    take(thread, record, line);
}

void Explainer::countPlace(LogRecord const& record, ThreadId const& id) {
    // Against the newest so far: one late line must not make all that follow look late.
    if (record.time) {
        mExplanation.counts.outOfOrder += mNewestNs && record.time->ns < *mNewestNs ? 1 : 0;
        mNewestNs = std::max(mNewestNs.value_or(record.time->ns), record.time->ns);
    }
    if (mLastThread && *mLastThread != id && mThreads[*mLastThread].attempt) {
        ++mExplanation.counts.interleaved;
    }
    mLastThread = id;
}

void Explainer::take(Thread& thread, LogRecord const& record, ProcessorLine const& line) {
    auto const capture = [&](uint32_t requestNo) -> CaptureExplanation& {
        return mExplanation.captures[captureOf(record.pid, requestNo)];
    };
    switch (line.kind) {
        case Kind::TryBegin:
            return begin(thread, record, line);
        case Kind::Taken:
        case Kind::NotTaken:
        case Kind::Rejected:
        case Kind::StartsOver:
            return takeVerdict(thread, record, line);
        case Kind::PolicyBegin:
        case Kind::PolicyEnd:
        case Kind::EmptyHistory:
        case Kind::UsesLatest:
            return takeOfPolicy(thread, record, line);
        case Kind::EarlyShutter:
            capture(line.requestNo).earlyShutterNs = line.timestampNs;
            return;
        case Kind::Served:
        case Kind::Waiting:
            return takeResult(thread, record, line);
        case Kind::Flushed:
            end(thread, nullptr);
            capture(line.requestNo).outcome = CaptureOutcome::Flushed;
            // Its number does not find it any more.
            return tellIfOver(mExplanation.captures[mCaptures[{record.pid, line.requestNo}]]);
        case Kind::FlushReturn:
            if (line.sets > 0) {
                mExplanation.flushReturns.push_back(
                    {record.sourceLine, std::string(line.selector), line.sets});
            }
            return;
        case Kind::StreamName:
            mExplanation.streamNames.emplace(line.halImages, line.name);
            return;
        case Kind::ProviderFlight:
            // It is printed in a try, and again when the capture goes to wait.
            if (thread.attempt) {
                thread.attempt->add(line);
            }
            [[fallthrough]];
        case Kind::ProviderDump:
            ++mExplanation.counts.dump;
            return;
        case Kind::Unrecognised:
            ++mExplanation.counts.unrecognised;
            return;
        case Kind::NotRaw:
        case Kind::Uninteresting:
        case Kind::Cut:
            return;
        default:
            addToTry(thread, line);
    }
}

void Explainer::takeOfPolicy(Thread& thread, LogRecord const& record, ProcessorLine const& line) {
    if (line.kind != Kind::UsesLatest) {
        if (!thread.attempt || thread.attempt->requestNo() != line.requestNo) {
            beginWithoutInput(thread, record, line);
        }
        thread.attempt->add(line);
    } else if (thread.attempt && thread.attempt->hasInput()) {
        thread.attempt->add(line);
    } else {
        // It names no capture and is a policy's first line: of a try whose input is not in the log.
        end(thread, nullptr);
        thread.usesLatest = true;
    }
}

void Explainer::takeVerdict(Thread& thread, LogRecord const& record, ProcessorLine const& line) {
    // Only our policies judge in the order of the numbers.
    bool const isRejected = line.kind == Kind::Rejected;
    bool const isOfAttempt = thread.attempt && thread.attempt->requestNo() == line.requestNo &&
                             (isRejected || thread.attempt->canJudge(line.frameNo));
    if (!isOfAttempt) {
        beginWithoutInput(thread, record, line);
        thread.attempt->add(line);
    }
    if (isRejected) {
        return thread.attempt->addRejected(candidateOf(line));
    }
    Candidate frame = thread.reasons.take(line.frameNo, line.kind == Kind::Taken);
    // Frames come in ascending order, so that the verdicts on these were before this one.
    for (Candidate& skipped : thread.reasons.takeRest()) {
        thread.attempt->judge(std::move(skipped), false);
    }
    thread.attempt->judge(std::move(frame), line.kind == Kind::StartsOver);
}

/// A try that is open is this result's, whatever number stands in the line: that of a served
/// capture may be its neighbour's in the queue.
void Explainer::takeResult(Thread& thread, LogRecord const& record, ProcessorLine const& line) {
    if (!thread.attempt) {
        beginWithoutInput(thread, record, line);
    }
    if (line.kind == Kind::Waiting && line.timestampNs != 0) {
        CaptureExplanation& capture = mExplanation.captures[thread.capture];
        capture.earlyShutterNs = line.timestampNs;
    }
    end(thread, &line);
}

void Explainer::addToTry(Thread& thread, ProcessorLine const& line) {
    // Reasons count without a try too: the verdict that follows them may be its first line.
    if (thread.reasons.add(line)) {
        return;
    }
    if (thread.attempt) {
        thread.attempt->add(line);
    } else if (line.kind != Kind::BufferSet) {
        // A provider may print its sets at any time.
        ++mExplanation.counts.unassigned;
    }
}

void Explainer::begin(Thread& thread, LogRecord const& record, ProcessorLine const& line) {
    end(thread, nullptr);
    size_t capture = captureOf(record.pid, line.requestNo);
    // Numbers start again with a new session; a capture does not get younger.
    if (line.ageMs < mExplanation.captures[capture].waitedMs.value_or(line.ageMs)) {
        capture = addCapture(record.pid, line.requestNo);
    }
    thread.capture = capture;
    thread.attempt.emplace(record, line);
}

void Explainer::beginWithoutInput(Thread& thread, LogRecord const& record,
                                  ProcessorLine const& line) {
    // What came last belongs to the try that begins.
    Reasons reasons = std::exchange(thread.reasons, {});
    end(thread, nullptr);
    thread.reasons = std::move(reasons);
    thread.capture = captureOf(record.pid, line.requestNo);
    thread.attempt.emplace(record, line);
    if (std::exchange(thread.usesLatest, false)) {
        ProcessorLine note;
        note.kind = Kind::UsesLatest;
        thread.attempt->add(note);
    }
}

void Explainer::end(Thread& thread, ProcessorLine const* result) {
    std::vector<Candidate> rest = thread.reasons.takeRest();
    if (!thread.attempt) {
        mExplanation.counts.unassigned += rest.size();
        return;
    }
    // Their verdicts are not in the log; the refusals alone say as much.
    for (Candidate& frame : rest) {
        thread.attempt->judge(std::move(frame), false);
    }
    CaptureExplanation& capture = mExplanation.captures[thread.capture];
    TryExplanation const* const before = capture.tries.empty() ? nullptr : &capture.tries.back();
    capture.tries.push_back(thread.attempt->finish(before, result));
    thread.attempt.reset();
    TryExplanation const& attempt = capture.tries.back();
    capture.outcome = outcomeAfter(attempt);
    // A try that lacks its first lines may have no age, and a log may be out of order.
    if (attempt.ageMs) {
        capture.waitedMs = std::max(capture.waitedMs.value_or(*attempt.ageMs), *attempt.ageMs);
    }
    tellIfOver(capture);
}

void Explainer::tellIfOver(CaptureExplanation const& capture) const {
    if (mOnOver && isOver(capture.outcome)) {
        mOnOver(capture);
    }
}

/// Of the process that was heard last; null: there is none of this number.
CaptureExplanation* Explainer::newestOf(uint32_t requestNo) {
    auto const found =
        mCaptures.find({mLastThread ? mLastThread->first : std::optional<uint32_t>(), requestNo});
    return found != mCaptures.end() ? &mExplanation.captures[found->second] : nullptr;
}

bool Explainer::foldRepeat(uint32_t requestNo, bool evenIfUnlike) {
    CaptureExplanation* const capture = newestOf(requestNo);
    if (capture == nullptr || capture->tries.size() < 2) {
        return false;
    }
    std::vector<TryExplanation>& tries = capture->tries;
    TryExplanation& before = tries[tries.size() - 2];
    if (!evenIfUnlike && !before.tellsAs(tries.back())) {
        return false;
    }
    ++before.repeats;
    tries.pop_back();
    return true;
}

void Explainer::skipRepeat(uint32_t requestNo, int64_t ageMs) {
    CaptureExplanation* const capture = newestOf(requestNo);
    if (capture == nullptr || capture->tries.empty()) {
        return;
    }
    Thread& thread = mThreads[*mLastThread];
    if (thread.attempt && thread.attempt->requestNo() == requestNo) {
        thread.attempt.reset();
    }
    capture->waitedMs = std::max(capture->waitedMs.value_or(ageMs), ageMs);
    ++capture->tries.back().repeats;
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
    // The older capture of this number stays in the explanation; no line can mean it any more.
    mCaptures[{pid, requestNo}] = index;
    return index;
}

Explanation Explainer::finish() {
    for (auto& [id, thread] : mThreads) {
        // The log ends within the line on what is wanted.
        if (thread.attempt && thread.attempt->isInputOpen()) {
            thread.attempt->cutInput();
            ++mExplanation.counts.cut;
        }
        end(thread, nullptr);
    }
    return std::move(mExplanation);
}

}  // namespace zebcam::tool::log
