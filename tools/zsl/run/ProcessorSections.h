#pragma once

#include <platform/Trace.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "base/Distribution.h"

namespace zebcam::tool::run {

/// A trace section that the processor opened and closed. Real times are of the steady clock.
struct ProcessorSection {
    std::string name;
    size_t thread = 0;       ///< number of the thread, from 0
    size_t depth = 0;        ///< sections of the thread that were open around it
    int64_t bootTimeNs = 0;  ///< when it began, by the platform's clock, which may be virtual
    int64_t realBeginNs = 0;
    int64_t realDurationNs = 0;
};

/// Records the camera's trace sections while it lives. It takes the place of a sink that is
/// attached already, so that there can be one at a time. Thread-safe.
class SectionRecorder final : public platform::ITraceSink {
public:
    SectionRecorder();
    ~SectionRecorder() override;
    SectionRecorder(SectionRecorder const&) = delete;
    SectionRecorder& operator=(SectionRecorder const&) = delete;

    void beginSection(char const* name) override;
    /// An end whose beginning was not heard counts for nothing.
    void endSection() override;

    /// Stops and gives what was heard, in the order of the beginnings. Sections that are open end
    /// now.
    std::vector<ProcessorSection> finish();

private:
    struct Thread {
        size_t number = 0;
        std::vector<size_t> open;  ///< positions in mSections, outermost first
    };

    void endInnermost(Thread& thread);

    std::mutex mLock;
    std::vector<ProcessorSection> mSections;
    std::map<std::thread::id, Thread> mThreads;
};

/// How long the processor's operations took.
struct OperationTimes {
    base::Distribution submission;  ///< of a capture, with the retry of those that waited
    base::Distribution retry;       ///< of those that waited, where there were any
    /// Each time that the processor's lock was held to try captures.
    base::Distribution lockHeld;
};

/**
 * Measures the processor from its own trace sections while it lives, so that nothing is built into
 * the library for the sake of the measurement. An operation's section begins before it takes the
 * lock and ends right after it lets go; the first selection in it begins right after it has got it.
 */
class TimingProbe final : public platform::ITraceSink {
public:
    TimingProbe();
    ~TimingProbe() override;
    TimingProbe(TimingProbe const&) = delete;
    TimingProbe& operator=(TimingProbe const&) = delete;

    void beginSection(char const* name) override;
    void endSection() override;

    OperationTimes times() const;

private:
    struct Section;

    /// The sections that the calling thread has open, outermost first.
    static std::vector<Section>& openSections();

    mutable std::mutex mLock;
    OperationTimes mTimes;
};

}  // namespace zebcam::tool::run
