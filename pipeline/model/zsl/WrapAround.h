#pragma once

#include <cstdint>

/// Arithmetic on times that may be absurd (an offset of centuries, a sensor's broken clock): it
/// wraps around, where that of signed numbers would be undefined.
namespace NSCam::v3::pipeline::model {

inline int64_t wrapAdd(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}

inline int64_t wrapSubtract(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) - static_cast<uint64_t>(b));
}

inline int64_t wrapMultiply(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) * static_cast<uint64_t>(b));
}

}  // namespace NSCam::v3::pipeline::model
