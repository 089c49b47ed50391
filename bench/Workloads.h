#pragma once

#include <benchmark/benchmark.h>
#include <metadata/IMetadata.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

/// The metadata operations that are measured, the same for times and for instruction counts.
namespace zebcam::bench {

/// What a copy is compared with.
inline void copyBytes(std::vector<char> const& bytes) {
    void* const memory = std::malloc(bytes.size());
    std::memcpy(memory, bytes.data(), bytes.size());
    benchmark::DoNotOptimize(memory);
    benchmark::ClobberMemory();
    std::free(memory);
}

inline void copy(NSCam::IMetadata const& metadata) {
    NSCam::IMetadata copied(metadata);
    benchmark::DoNotOptimize(copied);
    benchmark::ClobberMemory();
}

/// What building a frame does: a copy of one side, and the other side over it.
inline void copyAndMerge(NSCam::IMetadata const& base, NSCam::IMetadata const& over) {
    NSCam::IMetadata merged(base);
    merged += over;
    benchmark::DoNotOptimize(merged);
    benchmark::ClobberMemory();
}

template <typename T>
T lookUp(NSCam::IMetadata const& metadata, NSCam::IMetadata::Tag tag) {
    auto const entry = metadata.entryFor(tag);
    return entry.isEmpty() ? T{} : entry.itemAt(0, NSCam::Type2Type<T>());
}

/// What the policies read of one frame.
inline void lookUpEight(NSCam::IMetadata const& metadata) {
    int64_t const sum = lookUp<uint8_t>(metadata, NSCam::ANDROID_CONTROL_AF_MODE) +
                        lookUp<uint8_t>(metadata, NSCam::ANDROID_CONTROL_AF_STATE) +
                        lookUp<uint8_t>(metadata, NSCam::ANDROID_LENS_STATE) +
                        lookUp<int32_t>(metadata, NSCam::ZEB_HAL_REQUEST_SENSOR_ID) +
                        lookUp<int32_t>(metadata, NSCam::ZEB_P1NODE_SENSOR_MODE) +
                        lookUp<int32_t>(metadata, NSCam::ZEB_P1NODE_PURE_RAW) +
                        lookUp<int32_t>(metadata, NSCam::ZEB_3A_AE_SOFT_STABLE) +
                        lookUp<int64_t>(metadata, NSCam::ZEB_FRAME_SYNC_RESULT);
    benchmark::DoNotOptimize(sum);
}

}  // namespace zebcam::bench
