#pragma once

#include <platform/Trace.h>

#include <mutex>
#include <vector>

#include "live/Distribution.h"

namespace zebcam::tool {

/// How long the processor's operations took.
struct OperationTimes {
    Distribution submission;  ///< of a capture, with the retry of those that waited
    Distribution retry;       ///< of those that waited, where there were any
    /// Each time that the processor's lock was held to try captures.
    Distribution lockHeld;
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

}  // namespace zebcam::tool
