#include "trace/SectionRecorder.h"

#include <cutils/trace.h>
#include <utils/Timers.h>

#include <chrono>
#include <utility>

namespace zebcam::tool {
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

}  // namespace zebcam::tool
