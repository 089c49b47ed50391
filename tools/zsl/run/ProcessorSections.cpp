#include "run/ProcessorSections.h"

#include <cutils/trace.h>
#include <utils/Timers.h>

#include <chrono>
#include <cstring>
#include <optional>
#include <utility>
#include <vector>

namespace zebcam::tool::run {

namespace {

int64_t realNowNs() {
    return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace

SectionRecorder::SectionRecorder() {
    platform::setTraceSink(this, ATRACE_TAG_CAMERA);
}

SectionRecorder::~SectionRecorder() {
    platform::setTraceSink(nullptr, 0);
}

void SectionRecorder::beginSection(char const* name) {
    std::lock_guard lock(mLock);
    Thread& thread =
        mThreads.try_emplace(std::this_thread::get_id(), Thread{mThreads.size(), {}}).first->second;
    thread.open.push_back(mSections.size());
    mSections.push_back({name, thread.number, thread.open.size() - 1,
                         systemTime(SYSTEM_TIME_BOOTTIME), realNowNs(), 0});
}

void SectionRecorder::endSection() {
    std::lock_guard lock(mLock);
    auto const thread = mThreads.find(std::this_thread::get_id());
    if (thread != mThreads.end() && !thread->second.open.empty()) {
        endInnermost(thread->second);
    }
}

std::vector<ProcessorSection> SectionRecorder::finish() {
    platform::setTraceSink(nullptr, 0);
    std::lock_guard lock(mLock);
    for (auto& [id, thread] : mThreads) {
        while (!thread.open.empty()) {
            endInnermost(thread);
        }
    }
    return std::exchange(mSections, {});
}

void SectionRecorder::endInnermost(Thread& thread) {
    ProcessorSection& section = mSections[thread.open.back()];
    thread.open.pop_back();
    section.realDurationNs = realNowNs() - section.realBeginNs;
}

namespace {

enum class Kind { Submission, Retry, Selection, Other };

Kind kindOf(char const* name) {
    if (std::strcmp(name, "submitZslRequest") == 0) {
        return Kind::Submission;
    }
    if (std::strcmp(name, "processZslPendingRequest") == 0) {
        return Kind::Retry;
    }
    return std::strcmp(name, "selectBuf_Locked") == 0 ? Kind::Selection : Kind::Other;
}

int64_t nowNs() {
    return systemTime(SYSTEM_TIME_MONOTONIC);
}

}  // namespace

struct TimingProbe::Section {
    Kind kind = Kind::Other;
    int64_t beganNs = 0;
    std::optional<int64_t> lockedNs;  ///< when an operation got the lock, once that shows
};

TimingProbe::TimingProbe() {
    platform::setTraceSink(this, ATRACE_TAG_CAMERA);
}

TimingProbe::~TimingProbe() {
    platform::setTraceSink(nullptr, 0);
}

std::vector<TimingProbe::Section>& TimingProbe::openSections() {
    thread_local std::vector<Section> sections;
    return sections;
}

void TimingProbe::beginSection(char const* name) {
    auto& sections = openSections();
    Section const section{kindOf(name), nowNs(), {}};
    if (section.kind == Kind::Selection && !sections.empty() && !sections.back().lockedNs) {
        sections.back().lockedNs = section.beganNs;
    }
    sections.push_back(section);
}

void TimingProbe::endSection() {
    auto& sections = openSections();
    if (sections.empty()) {
        return;  // it began before the probe
    }
    Section const section = sections.back();
    sections.pop_back();
    if (section.kind != Kind::Submission && section.kind != Kind::Retry) {
        return;
    }
    int64_t const now = nowNs();
    std::lock_guard lock(mLock);
    if (section.lockedNs) {
        mTimes.lockHeld.add(now - *section.lockedNs);
    }
    if (section.kind == Kind::Submission) {
        mTimes.submission.add(now - section.beganNs);
    } else if (sections.empty() && section.lockedNs) {
        mTimes.retry.add(now - section.beganNs);
    }
}

OperationTimes TimingProbe::times() const {
    std::lock_guard lock(mLock);
    return mTimes;
}

}  // namespace zebcam::tool::run
