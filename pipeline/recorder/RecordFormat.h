#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

/**
 * The layout of a recording, for whoever writes or reads one.
 *
 *   file       MAGIC version:u32 block...
 *   block      BLOCK_MAGIC:u32 size:u32 crc32:u32 entry...    both of the entries
 *   entry      size:u32 Entry, then
 *     HEADER     clock openId:s timestampSource:s [key:t value:t]       source: -1 unknown
 *     OPERATION  Operation clock call item...                           the last item is DONE
 *     END        ZslRecordingEnd:u8 unrecorded:n
 *   call       by Operation
 *     CONFIGURE  callback:f sensors+1:n (id:n (stream)?x11)...          0: no sensors' map
 *     SUBMIT     request:n flags:n (policy:n timeoutMs:s) (SelectorName name:t) (provider:n)
 *                [sensor:n mode:n] [requiredSensor:n] [frame]
 *       frame    flags:n ([image:s] [halMeta:s] [appMeta:s]) (type:n [appMeta] [halMeta])
 *     RETRY      request:n
 *     RESULT     request:n its request:n appLeft:n halLeft:n isFrameEnd:f [(stream)? (ns:s)?]
 *     FLUSH
 *   item       Item, then
 *     SUBMISSION_CLOCK, SELECTION_END   clock
 *     OFFER      clock provider:n sets+1:n set...                       0: no history
 *     IN_FLIGHT  clock provider:n [step of frameNo:s]                   from 0
 *     RETURN     provider:n flags:n frameNo:n
 *     CLONE      provider:n frameNo:n set                               always a new one
 *     FAULT      ProviderCall which of its kind in the operation:n text:t
 *     SELECT     flags:n request:n zsdNs:s ageMs:s, then text:t if HAS_THROWN, else
 *                [index:n frameNo:n clone:f [stream:s (metadata)?]] [frameNo:n order:n]
 *     BUILT      builder:n flags:n timestamp:s (frameNo:n)
 *     RESULT_LEFT      [hasTimestamp:f]
 *     CALLBACK_FAILED  text:t
 *     DONE       clock flags:n, then text:t if HAS_THROWN, else
 *                status:s (CONFIGURE, RESULT) or [[builder+1:n]]        0: no builder
 *   set        reference, (frameNo:n request:n step of timestamp:s [image] [halMeta] [appMeta])
 *   image      flags:n (stream)
 *   halMeta, appMeta   flags:n (stream) (metadata)
 *   stream     reference, (id:s name:t address on the device:n)
 *   metadata   [step of tag:s (items << 3 | type):n item...]          item: u8, s, or as its bits
 *   clock      steps of boot:s, of monotonic - boot:s, of wall - boot:s, ns
 *
 * u8, u32: little-endian. n: seven bits a byte, the lowest first; s: the same, zigzag-coded. f: a
 * byte, 0 or 1. t: length:n and bytes. [x]: how many:n, then each x. (x): if the flags say so;
 * (x)?: an f, then x if it is 1. A step is the difference from the value before, modulo 2^64. A
 * reference (n) counts the things of its kind from 0; one that equals how many are known so far is
 * followed by the thing. Builders count in the order of the submissions.
 */
namespace NSCam::v3::pipeline::model::record {

constexpr std::array<uint8_t, 8> MAGIC{'Z', 'S', 'L', 'R', 'E', 'C', '\r', '\n'};
/// Whether bytes begin as a recording does.
constexpr bool hasMagic(std::string_view bytes) {
    return bytes.size() >= MAGIC.size() &&
           std::equal(MAGIC.begin(), MAGIC.end(), bytes.begin(),
                      [](uint8_t a, char b) { return a == static_cast<uint8_t>(b); });
}

constexpr uint32_t VERSION = 1;
constexpr size_t FILE_HEADER_BYTES = MAGIC.size() + 4;

constexpr uint32_t BLOCK_MAGIC = 0x4b4c425a;  ///< "ZBLK"
constexpr size_t BLOCK_HEADER_BYTES = 12;
constexpr size_t ENTRY_HEADER_BYTES = 4;

enum class Entry : uint8_t {
    HEADER = 1,     ///< once, at the beginning
    OPERATION = 2,  ///< of the processor, whole
    END = 3,        ///< why, and how many operations came too late
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

/// What a selector gave when it was asked for its name; the text that follows is the name or what
/// was thrown.
enum class SelectorName : uint8_t { NONE = 0, GIVEN = 1, THROWN = 2 };

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
