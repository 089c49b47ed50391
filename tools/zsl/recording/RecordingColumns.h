#pragma once

#include <array>
#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>

#include "recording/Recording.h"

namespace zebcam::tool::recording {

/// What is known of a column of whole numbers. The focus distance is none: it has names only.
struct ColumnTraits {
    Column column;
    std::string_view header;  ///< of common Android capture loggers, where they have it
    std::string_view word;    ///< for programs
    int64_t min = 0;
    int64_t max = 0;
    /// An empty cell says that the frame's result had no such value, or, of a time, that it is to
    /// be worked out.
    bool mayBeEmpty = true;
    bool isTime = false;  ///< in ns; other units are converted
    void (*store)(SensorFrame& frame, int64_t value) = nullptr;
    std::optional<int64_t> (*load)(SensorFrame const& frame) = nullptr;
};

namespace columns {

template <typename T>
inline constexpr int64_t MIN = std::numeric_limits<T>::min();
template <typename T>
inline constexpr int64_t MAX = std::numeric_limits<T>::max();

// Sums of a time and a few durations must not overflow.
inline constexpr int64_t MAX_TIMESTAMP_NS = MAX<int64_t> / 2;
inline constexpr int64_t HOUR_NS = 3'600'000'000'000;

template <typename T>
T valueOf(std::optional<T> const& member);
template <typename T>
T valueOf(T const& member);

template <auto Member>
void store(SensorFrame& frame, int64_t value) {
    frame.*Member = static_cast<decltype(valueOf(frame.*Member))>(value);
}

template <auto Member>
std::optional<int64_t> load(SensorFrame const& frame) {
    return frame.*Member;
}

/// Of a column whose cells must be full.
template <auto Member>
constexpr ColumnTraits fact(Column column, std::string_view header, std::string_view word,
                            int64_t min, int64_t max, bool isTime = false) {
    return {column, header, word, min, max, false, isTime, store<Member>, load<Member>};
}

template <auto Member>
constexpr ColumnTraits duration(Column column, std::string_view header, std::string_view word) {
    return {column, header, word, 0, HOUR_NS, true, true, store<Member>, load<Member>};
}

template <auto Member>
constexpr ColumnTraits state(Column column, std::string_view header, std::string_view word,
                             int64_t min, int64_t max) {
    return {column, header, word, min, max, true, false, store<Member>, load<Member>};
}

using F = SensorFrame;
using C = Column;
inline constexpr std::array<ColumnTraits, COLUMN_COUNT> TRAITS = {{
    fact<&F::frameNo>(C::FrameNo, "Frame No.", "frameNo", 0, MAX_FRAME_NO),
    fact<&F::timestampNs>(C::Timestamp, "Timestamp[nanosec]", "timestampNs", 1, MAX_TIMESTAMP_NS,
                          true),
    duration<&F::exposureNs>(C::Exposure, "Exposure time[nanosec]", "exposureNs"),
    duration<&F::durationNs>(C::Duration, "Sensor frame duration[nanosec]", "durationNs"),
    duration<&F::readoutNs>(C::Readout, "Frame readout time[nanosec]", "readoutNs"),
    state<&F::iso>(C::Iso, "ISO", "iso", 0, MAX<int32_t>),
    {.column = C::FocusDistance, .header = "Focus distance", .word = "focusDistance"},
    state<&F::afMode>(C::AfMode, "AF mode", "afMode", 0, MAX<uint8_t>),
    state<&F::afState>(C::AfState, "AF state", "afState", 0, MAX<uint8_t>),
    state<&F::lensState>(C::LensState, "Lens state", "lensState", 0, MAX<uint8_t>),
    state<&F::aeStable>(C::AeStable, "AE stable", "aeStable", MIN<int32_t>, MAX<int32_t>),
    state<&F::frameSync>(C::FrameSync, "Frame sync", "frameSync", MIN<int64_t>, MAX<int64_t>),
    state<&F::sensorId>(C::SensorId, "Sensor id", "sensorId", 0, MAX<int32_t>),
    state<&F::sensorMode>(C::SensorMode, "Sensor mode", "sensorMode", 0, MAX<int32_t>),
    fact<&F::hasError>(C::Error, "Error", "hasError", 0, 1),
    state<&F::videoFrame>(C::VideoFrame, "Video frame", "videoFrame", 0, MAX_FRAMES - 1),
}};

}  // namespace columns

constexpr ColumnTraits const& traitsOf(Column column) {
    return columns::TRAITS[static_cast<size_t>(column)];
}

}  // namespace zebcam::tool::recording
