#pragma once

#include <charconv>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string_view>
#include <variant>

#include "log/Explanation.h"

namespace zebcam::tool::log {

/// Takes a text apart from the left. The first piece that is not as expected makes the scan fail
/// for good, so that only the end of a chain needs a look.
class TextScan {
public:
    explicit TextScan(std::string_view text) : mRest(text) {}

    TextScan& lit(std::string_view expected) {
        mIsGood = mIsGood && mRest.starts_with(expected);
        if (mIsGood) {
            mRest.remove_prefix(expected.size());
        }
        return *this;
    }

    template <std::integral T>
    TextScan& num(T& value) {
        auto const [end, error] = std::from_chars(mRest.data(), mRest.data() + mRest.size(), value);
        mIsGood = mIsGood && error == std::errc();
        if (mIsGood) {
            mRest.remove_prefix(static_cast<size_t>(end - mRest.data()));
        }
        return *this;
    }

    /// What stands before the next `end`, which is taken too.
    TextScan& until(std::string_view end, std::string_view& text) {
        size_t const at = mRest.find(end);
        mIsGood = mIsGood && at != std::string_view::npos;
        if (mIsGood) {
            text = mRest.substr(0, at);
            mRest.remove_prefix(at + end.size());
        }
        return *this;
    }

    TextScan& blanks() {
        size_t const at = mRest.find_first_not_of(' ');
        mRest.remove_prefix(at == std::string_view::npos ? mRest.size() : at);
        return *this;
    }

    /// Whether `text` comes next; it is taken if it does. Never fails.
    bool has(std::string_view text) {
        bool const isNext = mIsGood && mRest.starts_with(text);
        if (isNext) {
            mRest.remove_prefix(text.size());
        }
        return isNext;
    }

    bool isGood() const { return mIsGood; }
    bool isDone() const { return mIsGood && mRest.empty(); }
    std::string_view rest() const { return mRest; }

private:
    std::string_view mRest;
    bool mIsGood = true;
};

}  // namespace zebcam::tool::log

namespace zebcam::tool::log::line {

/// The processor's lines on a try, taken apart, in the order in which they come. Texts point into
/// the line.

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

/// The processor's log lines, taken apart.

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

}  // namespace zebcam::tool::log::line
