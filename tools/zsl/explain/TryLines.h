#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string_view>

#include "explain/TryExplanation.h"

/// The processor's lines on a try, taken apart, in the order in which they come. Texts point into
/// the line.
namespace zebcam::tool::line {

/// Chosen frames (none: without a history frame) by index, and orders by frame number.
struct Selection {
    std::map<uint64_t, std::optional<uint32_t>> frames;
    std::map<uint32_t, Order::Kind> orders;
};

/// Text of a buffer set.
struct BufferSet {
    uint32_t frameNo = 0;
    StreamList streams;
};

struct TryBegin {
    uint32_t requestNo = 0;
    int64_t ageMs = 0;
    int64_t zsdTimestampNs = 0;
    bool isLast = false;  ///< no wanted frame follows
};
struct Wanted {
    WantedFrame frame;
    bool isLast = false;
};
struct BadStream {
    std::string_view name;
};
struct BadSet {
    uint32_t frameNo = 0;
};
struct Selector {
    std::string_view name;
    size_t historySets = 0;
    size_t lockedSets = 0;
};
struct SensorModes {
    std::string_view history;
    std::string_view required;
};
struct MissingTag {
    std::string_view tag;
    std::string_view criterion;  ///< function that asked, may be empty
};
struct TagValue {
    std::string_view criterion;
    std::string_view value;
    std::string_view target;
};
struct FailedStream {
    std::string_view name;
};
struct FocusLetPass {
    std::string_view state;
};
struct Refusal {
    uint32_t frameNo = 0;
    Criterion criterion = Criterion::None;
    int64_t timestampNs = 0;  ///< this and the next for Criterion::Time
    int64_t zsdTimestampNs = 0;
    int64_t delayMs = 0;
};
struct Judgement {
    uint32_t requestNo = 0;
    uint32_t frameNo = 0;
    bool isTaken = false;
    bool startsOver = false;
    std::string_view selector;
};
struct PolicyEnd {
    uint32_t requestNo = 0;
    std::string_view selector;
    std::optional<int64_t> ageMs;
    bool lacksHistory = false;
};
struct PolicyNote {
    std::string_view text;
};
struct Selected {
    Selection selection;
};
struct SelectorSkipped {};
struct EarlierSelection {
    Selection selection;
};
struct OrderFate {
    Order::Kind kind = Order::Kind::Lock;
    Order::Fate fate = Order::Fate::Done;
    uint32_t frameNo = 0;
};
struct HandOverFailed {
    uint32_t frameNo = 0;
    bool lacksStreams = false;
};
struct TimedOut {};
struct OutCount {
    size_t frames = 0;
};
struct OutFrame {
    std::optional<BufferSet> set;
};
struct LeftInFlight {
    Selection selection;
};
struct LockedOf {
    std::string_view selector;
};

}  // namespace zebcam::tool::line
