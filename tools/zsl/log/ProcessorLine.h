#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string_view>
#include <vector>

#include "log/Explanation.h"

namespace zebcam::tool::log {

/// Chosen frames (none: without a history frame) by index, and orders by frame number.
struct Selection {
    std::map<uint64_t, std::optional<uint32_t>> frames;
    std::map<uint32_t, Order::Kind> orders;
};

/// One of the processor's lines, taken apart. Its kind says which of the fields it fills, the
/// others mean nothing; the texts point into the line.
struct ProcessorLine {
    /// In the order in which a try writes them.
    enum class Kind {
        TryBegin,   ///< request, age, reference time; isLast: no wanted frame follows
        Wanted,     ///< index, name (type of the frame), streams; isLast
        BadStream,  ///< name: an image of the set that a BadSet will name
        PureRaw,    ///< found, wanted
        NotRaw,     ///< an error line on the missing tag, which most sets lack
        BadSet,     ///< frame
        Selector,   ///< selector, sets, lockedSets

        // What leads to the verdict on a frame; these name no capture.
        SensorModes,   ///< found, wanted
        MissingTag,    ///< name
        AssumedGood,   ///< name of a missing tag, function: who asked for it
        TagValue,      ///< found, wanted
        FailedStream,  ///< name
        FocusLetPass,  ///< found
        TimeRefusal,   ///< frame, its timestamp and age, reference time
        Refusal,       ///< frame, function that tells the criterion

        UsesLatest,    ///< the wanted instant lies in the future
        Taken,         ///< request, selector, frame
        NotTaken,      ///< the same
        Rejected,      ///< the same, with a library's own function and found
        StartsOver,    ///< the same: not taken, nor is the run of frames before it
        PolicyBegin,   ///< request, selector
        PolicyEnd,     ///< request, selector, age
        EmptyHistory,  ///< the same

        Selected,          ///< selection
        SelectorSkipped,   ///< all frames are chosen already
        EarlierSelection,  ///< selection
        OrderInFlight,     ///< frame, order
        OrderNotFound,     ///< the same
        NotInHistory,      ///< frame
        LacksStreams,      ///< the same
        TimedOut,
        OutCount,      ///< sets
        OutFrame,      ///< frame
        OutNoHistory,  ///< a frame that is built without a history frame
        LeftInFlight,  ///< selection
        LockedOf,      ///< selector
        BufferSet,     ///< frame, streams

        StreamName,      ///< name of the stream with the id in halImages
        ProviderFlight,  ///< frames that the provider has in flight, in found
        ProviderDump,    ///< what else the provider prints of itself

        EarlyShutter,  ///< request, timestamp
        Served,        ///< request
        Waiting,       ///< request, sets (not chosen yet), timestamp of the early shutter or 0
        Flushed,       ///< request
        FlushReturn,   ///< selector, sets

        Uninteresting,  ///< known, but tells nothing of the choice
        Cut,            ///< begins like a known line and then ends
        Unrecognised,   ///< of no known form
    };

    Kind kind = Kind::Unrecognised;
    uint32_t requestNo = 0;
    uint32_t frameNo = 0;
    uint64_t index = 0;
    uint64_t sets = 0, lockedSets = 0;
    int64_t ageMs = 0;
    int64_t timestampNs = 0, zsdTimestampNs = 0;
    bool isLast = false;
    Order::Kind order = Order::Kind::Lock;
    std::string_view selector, function, name, found, wanted;
    std::string_view halImages, halMetas, appMetas;  ///< ids with blanks between them
    Selection selection;

    StreamList streams() const;
    /// The numbers in a list `F206 F207`; what is none is left out.
    std::vector<uint32_t> frames() const;
};

/// `text` is one line; its error suffix is taken off.
ProcessorLine parseProcessorLine(std::string_view text);

/// Without the ` (function){#line:path}` that error lines end with in the Android log.
std::string_view withoutSource(std::string_view text);

}  // namespace zebcam::tool::log
