#include "recording/FrameStates.h"

#include <metadata/MetadataTags.h>

#include <array>
#include <cstddef>
#include <span>

namespace zebcam::tool::recording {

namespace {

constexpr std::array<char const*, 6> kAfModes = {
    "off", "auto", "macro", "continuous video", "continuous picture", "EDOF"};
constexpr std::array<char const*, 7> kAfStates = {
    "inactive",       "passive scan",       "passive focused",  "active scan",
    "focused locked", "not focused locked", "passive unfocused"};
constexpr std::array<char const*, 2> kLensStates = {"stationary", "moving"};

static_assert(NSCam::AF_MODE_EDOF + 1 == kAfModes.size() &&
              NSCam::AF_STATE_PASSIVE_UNFOCUSED + 1 == kAfStates.size() &&
              NSCam::LENS_STATE_MOVING + 1 == kLensStates.size());

std::string nameOf(std::span<char const* const> names, uint8_t value) {
    return value < names.size() ? names[value] : std::to_string(value);
}

}  // namespace

std::string afModeName(uint8_t mode) {
    return nameOf(kAfModes, mode);
}

std::string afStateName(uint8_t state) {
    return nameOf(kAfStates, state);
}

std::string lensStateName(uint8_t state) {
    return nameOf(kLensStates, state);
}

SensorFrame withoutAssumed(SensorFrame frame, Recording const& recording) {
    auto const leaveOut = [&recording](Column column, auto& value) {
        if (recording.lacks(column)) {
            value = {};
        }
    };
    leaveOut(Column::Exposure, frame.exposureNs);
    leaveOut(Column::Iso, frame.iso);
    leaveOut(Column::FocusDistance, frame.focusDistance);
    leaveOut(Column::AfMode, frame.afMode);
    leaveOut(Column::AfState, frame.afState);
    leaveOut(Column::LensState, frame.lensState);
    leaveOut(Column::AeStable, frame.aeStable);
    leaveOut(Column::FrameSync, frame.frameSync);
    leaveOut(Column::SensorId, frame.sensorId);
    leaveOut(Column::SensorMode, frame.sensorMode);
    return frame;
}

std::optional<bool> isFocusSettled(SensorFrame const& frame) {
    // The enumerators are in this order; the modes outside have no focus that could move.
    if (frame.afMode && (*frame.afMode < NSCam::AF_MODE_AUTO ||
                         *frame.afMode > NSCam::AF_MODE_CONTINUOUS_PICTURE)) {
        return true;
    }
    if (frame.lensState == NSCam::LENS_STATE_MOVING) {
        return false;
    }
    // Of a focus that never ran the lens tells, and so it does where nothing tells of the focus.
    if (!frame.afState || frame.afState == NSCam::AF_STATE_INACTIVE) {
        return frame.lensState ? std::optional(true) : std::nullopt;
    }
    return frame.afState != NSCam::AF_STATE_PASSIVE_SCAN &&
           frame.afState != NSCam::AF_STATE_ACTIVE_SCAN;
}

std::optional<bool> isExposureSettled(SensorFrame const& frame) {
    return frame.aeStable ? std::optional(*frame.aeStable == 1) : std::nullopt;
}

std::optional<int64_t> exposureNs(SensorFrame const& frame) {
    // What no sensor does stands for what was not told.
    return frame.exposureNs > 0 ? std::optional(frame.exposureNs) : std::nullopt;
}

}  // namespace zebcam::tool::recording
