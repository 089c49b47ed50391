#include "device/Decoder.h"

#include <fmt/format.h>

#include <limits>

namespace zebcam::tool::device {

namespace {

constexpr int64_t kFarthestTimeNs = int64_t{1} << 62;

int64_t sumOf(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}

}  // namespace

DeviceRecordingError::DeviceRecordingError(std::string const& path, uint64_t offset,
                                           std::string_view expected, std::string_view found)
    : std::runtime_error(
          fmt::format("{}: byte {}: expected {}, found {}", path, offset, expected, found)) {
}

void Decoder::fail(std::string_view expected, std::string_view found) const {
    throw DeviceRecordingError(mPath, mBegin + mAt, expected, found);
}

uint8_t Decoder::byte(std::string_view what) {
    if (isAtEnd()) {
        fail(what, "the end of the entry");
    }
    return mBytes[mAt++];
}

uint64_t Decoder::number(std::string_view what) {
    uint64_t value = 0;
    for (unsigned shift = 0; shift < 64; shift += 7) {
        uint8_t const next = byte(what);
        value |= uint64_t{next & 0x7fU} << shift;
        if ((next & 0x80) == 0) {
            return value;
        }
    }
    fail(what, "a number of more than 64 bits");
}

uint32_t Decoder::number32(std::string_view what) {
    return static_cast<uint32_t>(below(uint64_t{1} << 32, what));
}

int64_t Decoder::signedNumber(std::string_view what) {
    uint64_t const bits = number(what);
    return static_cast<int64_t>((bits >> 1) ^ (~(bits & 1) + 1));
}

uint64_t Decoder::below(uint64_t limit, std::string_view what) {
    uint64_t const value = number(what);
    if (value >= limit) {
        fail(fmt::format("{} below {}", what, limit), std::to_string(value));
    }
    return value;
}

size_t Decoder::count(std::string_view what) {
    uint64_t const value = number(what);
    size_t const left = mBytes.size() - mAt;
    if (value > left) {
        fail(what, fmt::format("{} in the {} bytes that are left of the entry", value, left));
    }
    return static_cast<size_t>(value);
}

std::string Decoder::text(std::string_view what) {
    size_t const size = count(what);
    std::string value(mBytes.begin() + static_cast<std::ptrdiff_t>(mAt),
                      mBytes.begin() + static_cast<std::ptrdiff_t>(mAt + size));
    mAt += size;
    return value;
}

uint64_t Decoder::fixed(size_t bytes, std::string_view what) {
    uint64_t value = 0;
    for (size_t i = 0; i < bytes; ++i) {
        value |= uint64_t{byte(what)} << (8 * i);
    }
    return value;
}

void Decoder::requireTime(int64_t ns, std::string_view what) {
    if (ns <= -kFarthestTimeNs || ns >= kFarthestTimeNs) {
        fail(fmt::format("{} within 146 years", what), fmt::format("{} ns", ns));
    }
}

int64_t Decoder::time(int64_t& last, std::string_view what) {
    last = sumOf(last, signedNumber(what));
    requireTime(last, what);
    return last;
}

record::ClockReading Decoder::clock(record::ClockReading& last) {
    record::ClockReading now;
    now.bootNs = time(last.bootNs, "a boot time");
    now.monotonicNs = sumOf(time(last.monotonicNs, "a monotonic time"), now.bootNs);
    now.wallNs = sumOf(time(last.wallNs, "a wall-clock time"), now.bootNs);
    requireTime(now.monotonicNs, "a monotonic time");
    requireTime(now.wallNs, "a wall-clock time");
    return now;
}

}  // namespace zebcam::tool::device
