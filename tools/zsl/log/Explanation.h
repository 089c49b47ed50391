#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "log/Logcat.h"

namespace zebcam::tool::log {

/// What a log tells of one try. What it does not tell is empty; all texts are printable.

enum class Verdict { Taken, Parked, Locked, Refused };

/// What a history frame was refused for.
enum class Criterion {
    None,  ///< for nothing: it was not refused
    Time,
    Streams,
    SensorMode,
    Focus,
    Exposure,
    FrameSync,
    Image,
    PureRaw,
    BrokenRun,
    Lost,
    Unknown,  ///< the last: the log gives no reason, or one of another processor
};

inline constexpr size_t CRITERIA = static_cast<size_t>(Criterion::Unknown) + 1;

/// All that the tool says of a criterion, in text, JSON, CSV, limits and help.
struct CriterionInfo {
    char const* name = nullptr;
    char const* function = nullptr;  ///< name in the lines of refusals; null: they do not name it
    char const* wanted = nullptr;    ///< the good value; null: it differs from try to try
    char const* meaning = nullptr;
};

CriterionInfo infoOf(Criterion criterion);

struct StreamList {
    std::vector<std::string> halImages, halMetas, appMetas;  ///< ids in hex

    bool operator==(StreamList const&) const = default;
};

/// Names of streams by their ids in hex.
using StreamNames = std::map<std::string, std::string>;

/// `streams` as `image FullRaw, HAL 0x60000, app 0x50000`, by their names where `names` has some.
std::string textOf(StreamList const& streams, StreamNames const& names = {});

/// A frame that the capture asks for.
struct WantedFrame {
    uint64_t index = 0;
    std::string type;
    StreamList streams;

    bool operator==(WantedFrame const&) const = default;
};

/// A history frame that was looked at, and what was decided.
struct Candidate {
    uint32_t frameNo = 0;
    Verdict verdict = Verdict::Refused;
    std::optional<uint64_t> index;  ///< the wanted frame that it was judged for
    Criterion criterion = Criterion::None;
    std::string unknownCriterion;  ///< as the log names it, for Criterion::Unknown; empty: nowhere
    std::string stream;            ///< in which the value was found
    std::string wanted;
    std::string found;
    /// The same where the criterion compares numbers: boot times in ns for Time.
    std::optional<int64_t> wantedNumber, foundNumber;
    std::vector<std::string> notes;  ///< what was let pass

    /// For people and for JSON.
    std::string criterionName() const;

    bool operator==(Candidate const&) const = default;
};

enum class Source { Chosen, Arrived, TimedOut };

/// A wanted frame that was built.
struct ServedFrame {
    std::optional<uint64_t> index;
    std::optional<uint32_t> frameNo;  ///< none: without a history frame
    Source source = Source::Chosen;

    bool operator==(ServedFrame const&) const = default;
};

/// A policy's order on a history frame.
struct Order {
    enum class Kind { Lock, Unlock, Release } kind = Kind::Lock;
    enum class Fate { Done, InFlight, NotFound } fate = Fate::Done;
    uint32_t frameNo = 0;

    bool operator==(Order const&) const = default;
};

enum class TryOutcome { Unknown, Served, Waiting };

/// One attempt to serve a capture.
struct TryExplanation {
    size_t line = 0;  ///< its first line in the log; 0: none
    std::optional<LogTime> time;
    bool hasInput = false;  ///< the line that tells what was asked for is there
    std::optional<int64_t> ageMs;
    std::optional<int64_t> zsdTimestampNs;  ///< the instant that the capture stands for
    std::string selector;
    std::optional<size_t> historySets, lockedSets;  ///< how many were there to be looked at
    std::vector<uint32_t> inFlight;                 ///< as the provider's dump has them
    std::vector<WantedFrame> wanted;
    std::vector<Candidate> candidates;
    std::vector<ServedFrame> served;
    std::map<uint64_t, uint32_t> parked;  ///< chosen but in flight: frame number by index
    std::vector<Order> orders;
    std::map<std::string, std::vector<uint32_t>> locked;  ///< afterwards, by selector
    bool timedOut = false;
    TryOutcome outcome = TryOutcome::Unknown;
    std::optional<size_t> remaining;  ///< wanted frames that nothing is chosen for
    std::vector<std::string> notes;
    std::vector<std::string> errors;
    size_t repeats = 0;  ///< tries right after it that tell the same

    /// Whether it tells the same as another try, at whatever place and age.
    bool tellsAs(TryExplanation const& other) const {
        auto const told = [](TryExplanation const& t) {
            return std::tie(t.hasInput, t.zsdTimestampNs, t.selector, t.historySets, t.lockedSets,
                            t.wanted, t.candidates, t.served, t.parked, t.orders, t.locked,
                            t.timedOut, t.outcome, t.remaining, t.notes, t.errors);
        };
        return told(*this) == told(other);
    }
};

char const* toString(Verdict verdict);
char const* toString(Source source);
char const* toString(Order::Kind kind);
char const* toString(Order::Fate fate);
char const* toString(TryOutcome outcome);

/// What a log tells of the captures. What it does not tell is empty; all texts are printable.

enum class CaptureOutcome { Unknown, Served, TimedOut, Flushed, Pending };

struct CaptureExplanation {
    uint32_t requestNo = 0;
    std::optional<uint32_t> pid;
    CaptureOutcome outcome = CaptureOutcome::Unknown;
    std::optional<int64_t> waitedMs;  ///< its age at the last try
    std::optional<int64_t> earlyShutterNs;
    std::vector<TryExplanation> tries;

    /// Repeats, too.
    size_t tryCount() const;
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
    size_t dump = 0;          ///< of what the provider printed of its history
    size_t unrecognised = 0;  ///< the processor's, but of no known form
    size_t errors = 0;
};

struct Explanation {
    std::vector<CaptureExplanation> captures;  ///< in the order of their first lines
    std::vector<FlushReturn> flushReturns;
    std::vector<LogError> errors;  ///< outside the tries
    LineCounts counts;
    StreamNames streamNames;  ///< as far as lines name streams
};

/// Whether no line can change it any more.
bool isOver(CaptureOutcome outcome);

char const* toString(CaptureOutcome outcome);

}  // namespace zebcam::tool::log
