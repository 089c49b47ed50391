#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace NSCam::v3::pipeline::model::record {

constexpr std::array<uint32_t, 256> makeCrc32Table() {
    constexpr uint32_t POLYNOMIAL = 0xedb88320;
    std::array<uint32_t, 256> table{};
    for (uint32_t byte = 0; byte < table.size(); ++byte) {
        uint32_t value = byte;
        for (int bit = 0; bit < 8; ++bit) {
            value = (value & 1) != 0 ? (value >> 1) ^ POLYNOMIAL : value >> 1;
        }
        table[byte] = value;
    }
    return table;
}

/// The CRC-32 of IEEE 802.3, as of zip files, over any number of pieces. A library would be faster,
/// but a recording is some ten kilobytes a second, and neither the device's library nor a build of
/// the libraries alone should need one more package for them.
class Crc32 {
public:
    void add(uint8_t const* data, size_t size) {
        for (size_t i = 0; i < size; ++i) {
            mState = TABLE[(mState ^ data[i]) & 0xff] ^ (mState >> 8);
        }
    }
    uint32_t value() const { return ~mState; }

private:
    static constexpr std::array<uint32_t, 256> TABLE = makeCrc32Table();

    uint32_t mState = 0xffffffff;
};

}  // namespace NSCam::v3::pipeline::model::record
