#pragma once

#include <policy/zsl/ISelector.h>

/// What this policy wants to know of a history frame. Each question reads the frame's metadata,
/// which the processor has locked for the time of the call.
namespace sample {

using NSCam::ZslPolicy::ISelector;

/// Whether the frame carries every stream that the requested frame reads.
bool carriesStreams(ISelector::HistoryFrame const& frame,
                    NSCam::ZslPolicy::RequiredStreams const& required);

/// Whether every sensor that matters to the requested frame was in the mode that it wants.
bool matchesSensorModes(ISelector::HistoryFrame const& frame,
                        ISelector::ZslFrameInfo const& wanted);

/// Whether the lens rested and no autofocus scan was running. A camera that does not report an
/// autofocus mode has nothing to settle.
bool isFocusSettled(ISelector::HistoryFrame const& frame);

/// Whether no sensor reported that its exposure was still changing.
bool isExposureSettled(ISelector::HistoryFrame const& frame);

/// Whether no sensor reported that it was out of step with the others.
bool isSynchronised(ISelector::HistoryFrame const& frame);

}  // namespace sample
