#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <variant>

#include "explain/TryLines.h"

/// The processor's log lines, taken apart.
namespace zebcam::tool::line {

struct EarlyShutter {
    uint32_t requestNo = 0;
    int64_t timestampNs = 0;
};
struct Result {
    uint32_t requestNo = 0;
    bool isServed = false;
    std::optional<size_t> remaining;
    std::optional<int64_t> earlyShutterNs;  ///< 0: none was sent
};
struct Flushed {
    uint32_t requestNo = 0;
};
struct FlushedLocked {
    std::string_view selector;
    size_t sets = 0;
};

struct Uninteresting {};  ///< known, but tells nothing of the choice
struct Cut {};            ///< begins like a known line and then ends
struct Unrecognised {};   ///< of no known form

using Any =
    std::variant<TryBegin, Wanted, BadStream, BadSet, Selector, SensorModes, MissingTag, TagValue,
                 FailedStream, FocusLetPass, Refusal, Judgement, PolicyEnd, PolicyNote, Selected,
                 SelectorSkipped, EarlierSelection, OrderFate, HandOverFailed, TimedOut, OutCount,
                 OutFrame, LeftInFlight, LockedOf, BufferSet, EarlyShutter, Result, Flushed,
                 FlushedLocked, Uninteresting, Cut, Unrecognised>;

/// `text` is one line; its error suffix is taken off.
Any parse(std::string_view text);

/// Without the ` (function){#line:path}` that error lines end with in the Android log.
std::string_view withoutSource(std::string_view text);

}  // namespace zebcam::tool::line
