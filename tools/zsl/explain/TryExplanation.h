#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "explain/LogRecord.h"

/// What a log tells of one try. What it does not tell is empty; all texts are printable.
namespace zebcam::tool {

enum class Verdict { Taken, Parked, Locked, Refused };

/// What a history frame was refused for.
enum class Criterion {
    None,
    Time,        ///< exposed before the instant that the capture stands for
    Streams,     ///< a required stream is missing
    SensorMode,  ///< another mode, or another sensor
    Focus,       ///< the focus tags are missing
    Exposure,
    FrameSync,
    Image,      ///< an image that reports an error, or pure raw
    PureRaw,    ///< the capture refuses pure raw
    BrokenRun,  ///< good itself, but the run of frames that it began was not completed
    Lost,       ///< chosen, but could not be handed over
    Unknown,    ///< the line that gives the reason is not there
};

struct StreamList {
    std::vector<std::string> halImages, halMetas, appMetas;  ///< ids in hex
};

/// A frame that the capture asks for.
struct WantedFrame {
    uint64_t index = 0;
    std::string type;
    StreamList streams;
};

/// A history frame that was looked at, and what was decided.
struct Candidate {
    uint32_t frameNo = 0;
    Verdict verdict = Verdict::Refused;
    std::optional<uint64_t> index;  ///< the wanted frame that it was judged for
    Criterion criterion = Criterion::None;
    std::string stream;  ///< in which the value was found
    std::string wanted;
    std::string found;
    std::vector<std::string> notes;  ///< what was let pass
};

enum class Source { Chosen, Arrived, TimedOut };

/// A wanted frame that was built.
struct ServedFrame {
    std::optional<uint64_t> index;
    std::optional<uint32_t> frameNo;  ///< none: without a history frame
    Source source = Source::Chosen;
};

/// A policy's order on a history frame.
struct Order {
    enum class Kind { Lock, Unlock, Release } kind = Kind::Lock;
    enum class Fate { Done, InFlight, NotFound } fate = Fate::Done;
    uint32_t frameNo = 0;
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
};

char const* toString(Verdict verdict);
char const* toString(Criterion criterion);
char const* toString(Source source);
char const* toString(Order::Kind kind);
char const* toString(Order::Fate fate);
char const* toString(TryOutcome outcome);

}  // namespace zebcam::tool
