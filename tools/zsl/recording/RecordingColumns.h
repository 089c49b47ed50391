#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace zebcam::tool::recording {

/// The columns of a recording, in the order in which the writer writes them.
enum class Column : size_t {
    FrameNo,
    Timestamp,
    Exposure,
    Duration,
    Readout,
    Iso,
    FocusDistance,
    AfMode,
    AfState,
    LensState,
    AeStable,
    FrameSync,
    SensorId,
    SensorMode,
    Error,
    FrameTimestamp,  ///< another name of Timestamp, read but not written
};

constexpr size_t kColumnCount = 16;
constexpr size_t kWrittenColumnCount = kColumnCount - 1;

/// Their names in the header line: those of common Android capture loggers, then our own.
constexpr std::array<std::string_view, kColumnCount> kColumnNames = {
    "Frame No.",
    "Timestamp[nanosec]",
    "Exposure time[nanosec]",
    "Sensor frame duration[nanosec]",
    "Frame readout time[nanosec]",
    "ISO",
    "Focus distance",
    "AF mode",
    "AF state",
    "Lens state",
    "AE stable",
    "Frame sync",
    "Sensor id",
    "Sensor mode",
    "Error",
    "Frame timestamp[nanosec]",
};

constexpr std::string_view columnName(Column column) {
    return kColumnNames[static_cast<size_t>(column)];
}

}  // namespace zebcam::tool::recording
