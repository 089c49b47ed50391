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

/// Visits the states that the pipeline gets in any case, with what stands for one that no frame of
/// a recording tells: at rest, in the only mode of the only sensor.
template <typename Visit>
void forEachAssumed(SensorFrame& frame, Visit const& visit) {
    visit(Column::AeStable, frame.aeStable, 1);
    visit(Column::FrameSync, frame.frameSync, 0);
    visit(Column::AfMode, frame.afMode, 0);
    visit(Column::AfState, frame.afState, 0);
    visit(Column::LensState, frame.lensState, 0);
    visit(Column::SensorId, frame.sensorId, 0);
    visit(Column::SensorMode, frame.sensorMode, 0);
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

SensorFrame withAssumed(SensorFrame frame, Recording const& recording) {
    forEachAssumed(frame, [&recording](Column column, auto& state, int assumed) {
        if (recording.lacks(column)) {
            state = assumed;
        }
    });
    return frame;
}

SensorFrame withoutAssumed(SensorFrame frame, Recording const& recording) {
    forEachAssumed(frame, [&recording](Column column, auto& state, int /*assumed*/) {
        if (recording.lacks(column)) {
            state.reset();
        }
    });
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
