#pragma once

#include <host/LogCapture.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>

namespace zebcam::tool::pipeline {

/// How severe a line is on the ULog::LogLevel scale, whichever output it went to.
uint32_t logLevelOf(host::LogLine const& line);

/// Listens to the processor's log: passes on what is to be shown and counts what the results need.
/// Thread-safe. At most one at a time.
class ProcessorLog {
public:
    using Sink = std::function<void(host::LogLine const&)>;

    /// `shown` gets the lines up to `shownLevel` on the ULog::LogLevel scale; 0: none.
    ProcessorLog(uint32_t shownLevel, Sink shown);
    ~ProcessorLog();

    /// Whether the processor's next lines may tell of frames that are served because of the
    /// time-out. They are debug lines, which cost time, so that they are asked for only then.
    void watchTimeout(bool watch);

    /// How long the lines that follow tell nothing new. Errors are counted all the same.
    enum class Quiet {
        Off,
        ThisTry,  ///< up to the line that says that the capture keeps waiting
        On,
    };
    void setQuiet(Quiet quiet);

    /// Frames that were served because of the time-out, since the last call.
    size_t takeTimedOutFrames();

    uint64_t errorLines() const { return mErrorLines; }

private:
    void onLine(host::LogLine const& line);

    uint32_t const mShownLevel;
    Sink const mShown;
    std::atomic<Quiet> mQuiet = Quiet::Off;
    std::atomic<size_t> mTimedOutFrames = 0;
    std::atomic<uint64_t> mErrorLines = 0;
    std::optional<host::LogCapture> mCapture;
};

}  // namespace zebcam::tool::pipeline
