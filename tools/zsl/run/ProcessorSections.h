#pragma once

#include <platform/Trace.h>
#include <zebcam/ThreadSafety.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
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

/// How long the processor's operations took.
struct OperationTimes {
    base::Distribution submission;  ///< of a capture, with the retry of those that waited
    base::Distribution retry;       ///< of those that waited, where there were any
    /// Each time that the processor's lock was held to try captures.
    base::Distribution lockHeld;
    /// Of them each try of a capture until its frames are chosen: the history is shown to the
    /// policy, the policy decides, its orders are carried out.
    base::Distribution selection;
    /// Of them what the policy took itself. A built-in one's shows nowhere.
    base::Distribution policy;
};

/**
 * Listens to the camera's trace sections while it lives, so that nothing is built into the
 * processor for the sake of a measurement. It takes the place of a sink that is attached already,
 * so that there can be one at a time. Thread-safe.
 */
class SectionRecorder final : public platform::ITraceSink {
public:
    enum class Kept {
        Sections,  ///< all of them, for a trace
        Times,     ///< only what comes of them, for a run without end
    };

    explicit SectionRecorder(Kept kept = Kept::Sections);
    ~SectionRecorder() override;
    SectionRecorder(SectionRecorder const&) = delete;
    SectionRecorder& operator=(SectionRecorder const&) = delete;

    void beginSection(char const* name) override;
    /// An end whose beginning was not heard counts for nothing.
    void endSection() override;

    /// Stops and gives the sections that were kept, in the order of the beginnings. Those that are
    /// open end now.
    std::vector<ProcessorSection> finish();

    /// Of the operations that have ended, in real time.
    OperationTimes times() const;

private:
    struct OpenSection {
        ProcessorSection section;
        size_t position = 0;              ///< in mSections, if they are kept
        std::optional<int64_t> lockedNs;  ///< when an operation got the lock, once that shows
    };
    struct Thread {
        size_t number = 0;
        std::vector<OpenSection> open;  ///< outermost first
    };

    void endInnermost(Thread& thread) REQUIRES(mLock);
    void addTimes(OpenSection const& ended, bool isOutermost) REQUIRES(mLock);

    Kept const mKept;
    mutable Mutex mLock;
    std::vector<ProcessorSection> mSections GUARDED_BY(mLock);
    std::map<std::thread::id, Thread> mThreads GUARDED_BY(mLock);
    OperationTimes mTimes GUARDED_BY(mLock);
};

}  // namespace zebcam::tool::run
