#include "run/ProcessorSections.h"

#include <cutils/trace.h>
#include <utils/Timers.h>

#include <chrono>
#include <utility>

#include "pipeline/PolicyWatch.h"

namespace zebcam::tool::run {

namespace {

// Never the platform's clock, which stands still while a replay computes.
int64_t realNowNs() {
    return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace

SectionRecorder::SectionRecorder(Kept kept) : mKept(kept) {
    platform::setTraceSink(this, ATRACE_TAG_CAMERA);
}

SectionRecorder::~SectionRecorder() {
    platform::setTraceSink(nullptr, 0);
}

void SectionRecorder::beginSection(char const* name) {
    LockGuard const lock(mLock);
    // A number is taken from how many there are before the new one is in.
    Thread& thread =
        mThreads.try_emplace(std::this_thread::get_id(), Thread{mThreads.size(), {}}).first->second;
    ProcessorSection const section{
        name, thread.number, thread.open.size(), systemTime(SYSTEM_TIME_BOOTTIME), realNowNs(), 0};
    // An operation's section begins before it takes the processor's lock; the first selection in
    // it begins right after it has got it.
    if (section.name == "selectBuf_Locked" && !thread.open.empty() &&
        !thread.open.back().lockedNs) {
        thread.open.back().lockedNs = section.realBeginNs;
    }
    thread.open.push_back({section, mSections.size(), {}});
    if (mKept == Kept::Sections) {
        mSections.push_back(section);
    }
}

void SectionRecorder::endSection() {
    LockGuard const lock(mLock);
    auto const thread = mThreads.find(std::this_thread::get_id());
    if (thread != mThreads.end() && !thread->second.open.empty()) {
        endInnermost(thread->second);
    }
}

std::vector<ProcessorSection> SectionRecorder::finish() {
    // Before the lock is taken: it waits for whoever is inside a call, which may want the lock.
    platform::setTraceSink(nullptr, 0);
    LockGuard const lock(mLock);
    for (auto& [id, thread] : mThreads) {
        while (!thread.open.empty()) {
            endInnermost(thread);
        }
    }
    return std::exchange(mSections, {});
}

OperationTimes SectionRecorder::times() const {
    LockGuard const lock(mLock);
    return mTimes;
}

void SectionRecorder::endInnermost(Thread& thread) {
    OpenSection ended = std::move(thread.open.back());
    thread.open.pop_back();
    ended.section.realDurationNs = realNowNs() - ended.section.realBeginNs;
    if (mKept == Kept::Sections) {
        mSections[ended.position].realDurationNs = ended.section.realDurationNs;
    }
    addTimes(ended, thread.open.empty());
}

void SectionRecorder::addTimes(OpenSection const& ended, bool isOutermost) {
    ProcessorSection const& section = ended.section;
    if (section.name == "selectBuf_Locked") {
        mTimes.selection.add(section.realDurationNs);
    } else if (section.name == pipeline::kPolicySection && !isOutermost) {
        // Outside an operation it is loaded, which holds no lock.
        mTimes.policy.add(section.realDurationNs);
    }
    bool const isSubmission = section.name == "submitZslRequest";
    if (!isSubmission && section.name != "processZslPendingRequest") {
        return;
    }
    // It ends right after the operation lets go of the lock.
    if (ended.lockedNs) {
        mTimes.lockHeld.add(section.realBeginNs + section.realDurationNs - *ended.lockedNs);
    }
    if (isSubmission) {
        mTimes.submission.add(section.realDurationNs);
    } else if (isOutermost && ended.lockedNs) {
        // A submission retries what waits too, and counts it; without a selection nothing waited.
        mTimes.retry.add(section.realDurationNs);
    }
}

}  // namespace zebcam::tool::run
