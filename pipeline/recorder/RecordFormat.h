#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

/**
 * The layout of a recording, for whoever writes or reads one.
 *
 * A file is MAGIC, the version (u32), and blocks. A block is BLOCK_MAGIC, the length of its content
 * and the CRC-32 of the content (u32 each), and the content: entries, each with its length (u32)
 * before it. Fixed-width numbers are little-endian, all others are variable-length: seven bits a
 * byte, the lowest first; signed ones are zigzag-coded.
 */
namespace NSCam::v3::pipeline::model::record {

constexpr std::array<uint8_t, 8> MAGIC{'Z', 'S', 'L', 'R', 'E', 'C', '\r', '\n'};
constexpr uint32_t VERSION = 1;
constexpr size_t FILE_HEADER_BYTES = MAGIC.size() + 4;

constexpr uint32_t BLOCK_MAGIC = 0x4b4c425a;  ///< "ZBLK"
constexpr size_t BLOCK_HEADER_BYTES = 12;
constexpr size_t ENTRY_HEADER_BYTES = 4;

/// What an entry is: its first byte.
enum class Entry : uint8_t {
    HEADER = 1,     ///< once, at the beginning
    OPERATION = 2,  ///< an operation of the processor: its kind, its call, items, the last a DONE
    END = 3,        ///< a ZslRecordingEnd, and how many operations came too late
};

enum class Operation : uint8_t { CONFIGURE = 1, SUBMIT = 2, RETRY = 3, RESULT = 4, FLUSH = 5 };

/// What happened within an operation, in the order in which it did.
enum class Item : uint8_t {
    SUBMISSION_CLOCK = 1,  ///< by now the processor had read the clock for the capture's instant
    OFFER = 2,             ///< the provider handed its history out
    IN_FLIGHT = 3,         ///< the provider told the frames in flight
    RETURN = 4,            ///< a set went back to the provider
    CLONE = 5,             ///< the provider copied a set
    SELECTION_END = 6,     ///< first end of a selection after an offer
    FAULT = 7,             ///< a call of the provider threw
    SELECT = 8,            ///< a selector answered
    BUILT = 9,             ///< a frame builder was completed
    RESULT_LEFT = 10,      ///< whether each application metadata still has a sensor timestamp
    DONE = 11,             ///< the operation is over
    CALLBACK_FAILED = 12,  ///< the result callback threw
};

/// The calls of a provider that may fail.
enum class ProviderCall : uint8_t {
    BEGIN_SELECT = 0,
    GET_HISTORY = 1,
    END_SELECT = 2,
    RETURN = 3,
    GET_IN_FLIGHT = 4,
    CLONE = 5,
};
constexpr size_t PROVIDER_CALLS = 6;

/// Properties on which decisions depend; the header tells the value of each.
constexpr std::array<char const*, 5> PROPERTIES{
    "ro.vendor.camera3.zsl.default",
    "ro.vendor.camera3.zsl.project",
    "vendor.debug.camera3.zsl.timestamp",
    "vendor.debug.camera.zsl.custom.select",
    "persist.vendor.camera3.zsl.vendortag.usehistory",
};

/// Readings of the three clocks, one after the other, ns.
struct ClockReading {
    int64_t bootNs = 0;
    int64_t monotonicNs = 0;
    int64_t wallNs = 0;  ///< since the Unix epoch
};

/// A list's length and a reference are unsigned. A reference that equals the number of things of
/// its kind that are known so far is followed by the thing, which is known from then on.
namespace flag {
// SUBMIT
constexpr uint64_t HAS_POLICY = 1U << 0;
constexpr uint64_t HAS_SELECTOR = 1U << 1;
constexpr uint64_t CHECKS_PURE_RAW = 1U << 2;
constexpr uint64_t NEEDS_FRAME_SYNC = 1U << 3;
constexpr uint64_t HAS_PROVIDER = 1U << 4;
constexpr uint64_t CALLBACK_LIVES = 1U << 5;
// a frame of SUBMIT
constexpr uint64_t HAS_RESULT_PARAMS = 1U << 0;
constexpr uint64_t HAS_BUILDER = 1U << 1;
// a buffer
constexpr uint64_t HAS_STREAM = 1U << 0;
constexpr uint64_t HAS_ERROR = 1U << 1;
constexpr uint64_t IS_LOCKABLE = 1U << 2;  ///< metadata only; its entries follow
// RETURN, BUILT
constexpr uint64_t IS_UNUSED = 1U << 0;
constexpr uint64_t IS_CLONE = 1U << 1;
constexpr uint64_t HAS_HISTORY_FRAME = 1U << 2;
constexpr uint64_t IS_FROM_HISTORY = 1U << 3;
// an exception
constexpr uint64_t HAS_THROWN = 1U << 0;
}  // namespace flag

}  // namespace NSCam::v3::pipeline::model::record
