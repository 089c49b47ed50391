#pragma once

#include <policy/zsl/ISelector.h>

#include <cstdint>
#include <optional>

/// What this policy wants to know of a history frame. Each question reads the frame's metadata,
/// which the processor has locked for the time of the call.
namespace kit {

using NSCam::ZslPolicy::ISelector;

/// A test that a frame fails, and how.
struct Failure {
    char const* test;
    char const* how;
};

/// What is wrong with the frame for the wanted one, whatever a policy thinks of its time and focus:
/// its exposure, streams, sensor modes, and where the capture asks for it, synchronisation.
std::optional<Failure> failureOf(ISelector::SelectInputParams const& in,
                                 ISelector::HistoryFrame const& frame,
                                 ISelector::ZslFrameInfo const& wanted);

/// Whether the frame carries every stream that the requested frame reads.
bool carriesStreams(ISelector::HistoryFrame const& frame,
                    NSCam::ZslPolicy::RequiredStreams const& required);

/// Whether every sensor that matters to the requested frame was in the mode that it wants.
bool matchesSensorModes(ISelector::HistoryFrame const& frame,
                        ISelector::ZslFrameInfo const& wanted);

/// Whether the results that the wanted frame reads tell of the focus: AF mode, AF and lens state.
bool tellsFocus(ISelector::HistoryFrame const& frame, ISelector::ZslFrameInfo const& wanted);

/// Whether the lens rested and no autofocus scan was running. A camera that does not report an
/// autofocus mode has nothing to settle.
bool isFocusSettled(ISelector::HistoryFrame const& frame);

/// Whether an autofocus scan was running, and whether the lens moved, whatever the mode.
bool isFocusScanning(ISelector::HistoryFrame const& frame);
bool isLensMoving(ISelector::HistoryFrame const& frame);

/// How long the frame was exposed, ns; nothing if that is not told, or not longer than 0.
std::optional<int64_t> exposureTimeNs(ISelector::HistoryFrame const& frame);

/// Whether no sensor reported that its exposure was still changing.
bool isExposureSettled(ISelector::HistoryFrame const& frame);

/// Whether no sensor reported that it was out of step with the others.
bool isSynchronised(ISelector::HistoryFrame const& frame);

}  // namespace kit
