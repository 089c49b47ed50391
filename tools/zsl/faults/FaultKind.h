#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace zebcam::tool {

/// What may go wrong around the processor.
enum class FaultKind : uint8_t {
    // On the way from the sensor
    Late,             ///< a frame arrives some intervals late
    Lost,             ///< a frame never arrives and stays in flight
    Duplicate,        ///< a frame arrives a second time, under the same number
    Reorder,          ///< a frame arrives after its successor
    ImageError,       ///< a frame's image is unusable
    MissingMetadata,  ///< a frame's result lacks its states
    AbsurdMetadata,   ///< a frame's result tells what nobody documented
    LockedMetadata,   ///< a frame's results cannot be locked
    WrongClock,       ///< timestamps are on a clock of another base
    // Around the processor
    NoHistory,     ///< the provider gives no history to a try
    CallbackGone,  ///< who hears of early shutters no longer exists
    Flush,         ///< the pipeline is flushed while a capture is under way
    // In the policy
    PolicyThrows,    ///< a capture's policy throws whenever it is asked
    PolicySlow,      ///< a policy takes its time, with the processor's lock held
    PolicyNonsense,  ///< a capture's policy answers what cannot be carried out
};

/// What a fault strikes or spares each time.
enum class FaultScope : uint8_t {
    Frame,    ///< a sensor frame
    Try,      ///< an attempt of the processor to serve a capture
    Capture,  ///< a press
    State,    ///< nothing in particular: it begins and lasts
};

/// A kind as users know it.
struct FaultTraits {
    FaultKind kind;
    std::string_view name;  ///< for instance `image-error`
    FaultScope scope;
    double defaultRate;  ///< share of its opportunities that is struck; of no use for a State
};

/// In the order of the kinds.
inline constexpr std::array<FaultTraits, 15> FAULT_KINDS = {{
    {FaultKind::Late, "late", FaultScope::Frame, 0.1},
    {FaultKind::Lost, "lost", FaultScope::Frame, 0.1},
    {FaultKind::Duplicate, "duplicate", FaultScope::Frame, 0.1},
    {FaultKind::Reorder, "reorder", FaultScope::Frame, 0.1},
    {FaultKind::ImageError, "image-error", FaultScope::Frame, 0.1},
    {FaultKind::MissingMetadata, "missing-metadata", FaultScope::Frame, 0.2},
    {FaultKind::AbsurdMetadata, "absurd-metadata", FaultScope::Frame, 0.2},
    {FaultKind::LockedMetadata, "locked-metadata", FaultScope::Frame, 0.2},
    {FaultKind::WrongClock, "wrong-clock", FaultScope::State, 1.0},
    {FaultKind::NoHistory, "no-history", FaultScope::Try, 0.5},
    {FaultKind::CallbackGone, "callback-gone", FaultScope::State, 1.0},
    {FaultKind::Flush, "flush", FaultScope::Capture, 0.5},
    {FaultKind::PolicyThrows, "policy-throws", FaultScope::Capture, 0.5},
    {FaultKind::PolicySlow, "policy-slow", FaultScope::Try, 0.5},
    {FaultKind::PolicyNonsense, "policy-nonsense", FaultScope::Capture, 0.5},
}};

constexpr FaultTraits const& traitsOf(FaultKind kind) {
    return FAULT_KINDS[static_cast<size_t>(kind)];
}

}  // namespace zebcam::tool
