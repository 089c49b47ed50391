#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <type_traits>
#include <vector>

#include "RecordFormat.h"

namespace NSCam::v3::pipeline::model::record {

/// Appends values to a piece of memory that is kept from use to use.
class Encoder {
public:
    void clear() { mBytes.clear(); }
    uint8_t const* data() const { return mBytes.data(); }
    size_t size() const { return mBytes.size(); }

    void byte(uint8_t value) { mBytes.push_back(value); }
    void flag(bool value) { byte(value ? 1 : 0); }
    template <typename Kind>
    requires std::is_same_v<std::underlying_type_t<Kind>, uint8_t>
    void tag(Kind kind) { byte(static_cast<uint8_t>(kind)); }

    void number(uint64_t value) {
        while (value >= 0x80) {
            byte(static_cast<uint8_t>(value | 0x80));
            value >>= 7;
        }
        byte(static_cast<uint8_t>(value));
    }
    void signedNumber(int64_t value) {
        auto const bits = static_cast<uint64_t>(value);
        number((bits << 1) ^ static_cast<uint64_t>(value >> 63));
    }
    /// As the step from `previous`, which becomes `value`. Wraps around.
    void step(int64_t value, int64_t& previous) {
        signedNumber(
            static_cast<int64_t>(static_cast<uint64_t>(value) - static_cast<uint64_t>(previous)));
        previous = value;
    }
    template <typename Bits>
    void fixed(Bits bits) {
        for (size_t i = 0; i < sizeof(Bits); ++i) {
            byte(static_cast<uint8_t>(bits >> (8 * i)));
        }
    }
    void text(std::string_view value) {
        number(value.size());
        mBytes.insert(mBytes.end(), value.begin(), value.end());
    }

private:
    std::vector<uint8_t> mBytes;
};

/// Codes clock readings by their steps; what the monotonic and the wall clock show is taken
/// relative to the boot-time clock, against which they hardly move.
class ClockEncoder {
public:
    void put(Encoder& out, ClockReading const& now) {
        out.step(now.bootNs, mLast.bootNs);
        out.step(now.monotonicNs - now.bootNs, mLast.monotonicNs);
        out.step(now.wallNs - now.bootNs, mLast.wallNs);
    }

private:
    ClockReading mLast;  ///< the later two relative to the boot-time clock
};

}  // namespace NSCam::v3::pipeline::model::record
