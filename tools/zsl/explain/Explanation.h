#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "explain/TryExplanation.h"

/// What a log tells of the captures. What it does not tell is empty; all texts are printable.
namespace zebcam::tool {

enum class CaptureOutcome { Unknown, Served, TimedOut, Flushed, Pending };

struct CaptureExplanation {
    uint32_t requestNo = 0;
    std::optional<uint32_t> pid;
    CaptureOutcome outcome = CaptureOutcome::Unknown;
    std::optional<int64_t> waitedMs;  ///< its age at the last try
    std::optional<int64_t> earlyShutterNs;
    std::vector<TryExplanation> tries;

    /// Lines that tell of success are there; without them a pending capture may have been served.
    bool isCertain() const;
};

/// History that a flush gave back.
struct FlushReturn {
    size_t line = 0;
    std::string selector;
    size_t sets = 0;
};

struct LogError {
    size_t line = 0;
    std::string text;
};

/// How the lines of the log were taken. Each is foreign or the processor's.
struct LineCounts {
    size_t lines = 0;
    size_t processor = 0;
    size_t foreign = 0;
    size_t cut = 0;           ///< the end is missing
    size_t outOfOrder = 0;    ///< older than a line before
    size_t interleaved = 0;   ///< inside another thread's try
    size_t unassigned = 0;    ///< tells of a try whose capture is not known
    size_t unrecognised = 0;  ///< the processor's, but of no known form; dumps for instance
    size_t errors = 0;
};

struct Explanation {
    std::vector<CaptureExplanation> captures;  ///< in the order of their first lines
    std::vector<FlushReturn> flushReturns;
    std::vector<LogError> errors;  ///< outside the tries
    LineCounts counts;
};

char const* toString(CaptureOutcome outcome);

}  // namespace zebcam::tool
