#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

#include "device/DeviceRecording.h"

namespace zebcam::tool::device {

/// A recording of a device that cannot be used. The text is
/// `<path>: byte <offset>: expected ..., found ...`.
class DeviceRecordingError : public std::runtime_error {
public:
    DeviceRecordingError(std::string const& path, uint64_t offset, std::string_view expected,
                         std::string_view found);
};

/// Takes values one by one out of a piece of a file. Whatever is not there or out of range throws
/// DeviceRecordingError.
class Decoder {
public:
    /// Borrows all. `offset` is where in the file the bytes begin.
    Decoder(std::span<uint8_t const> bytes, uint64_t offset, std::string const& path)
        : mBytes(bytes), mBegin(offset), mPath(path) {}

    bool isAtEnd() const { return mAt == mBytes.size(); }

    uint8_t byte(std::string_view what);
    bool yesOrNo(std::string_view what) { return below(2, what) != 0; }
    uint64_t number(std::string_view what);
    uint32_t number32(std::string_view what);
    int64_t signedNumber(std::string_view what);
    /// A number below `limit`.
    uint64_t below(uint64_t limit, std::string_view what);
    /// How many things follow, of at least one byte each.
    size_t count(std::string_view what);
    std::string text(std::string_view what);
    uint64_t fixed(size_t bytes, std::string_view what);
    /// A time in ns whose distance from any other fits 64 bits.
    int64_t time(int64_t& last, std::string_view what);
    record::ClockReading clock(record::ClockReading& last);
    void requireTime(int64_t ns, std::string_view what);

    [[noreturn]] void fail(std::string_view expected, std::string_view found) const;

private:
    std::span<uint8_t const> mBytes;
    uint64_t const mBegin;
    std::string const& mPath;
    size_t mAt = 0;
};

}  // namespace zebcam::tool::device
