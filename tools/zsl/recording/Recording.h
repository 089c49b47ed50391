#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zebcam::tool {

/// One sensor frame of a recording. Times are in ns. A state without value was missing from the
/// frame's result.
struct SensorFrame {
    uint32_t frameNo = 0;
    int64_t timestampNs = 0;  ///< start of exposure
    int64_t exposureNs = 0;
    int64_t durationNs = 0;  ///< sensor frame duration
    int64_t readoutNs = 0;
    std::optional<int32_t> iso;
    std::optional<float> focusDistance;  ///< diopters
    std::optional<uint8_t> afMode;
    std::optional<uint8_t> afState;
    std::optional<uint8_t> lensState;
    std::optional<int32_t> aeStable;
    std::optional<int64_t> frameSync;
    std::optional<int32_t> sensorId;
    std::optional<int32_t> sensorMode;
    bool hasError = false;  ///< the image is unusable

    bool operator==(SensorFrame const&) const = default;
};

/// A recording: at least two frames, in strictly ascending time and frame number.
struct Recording {
    std::string path;
    std::vector<SensorFrame> frames;
    std::vector<std::string> notes;  ///< for the user, for instance about ignored columns
    int64_t medianIntervalNs = 0;
};

}  // namespace zebcam::tool
