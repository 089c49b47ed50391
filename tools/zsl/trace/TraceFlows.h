#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

#include "recording/Recording.h"
#include "sim/CaptureRecord.h"
#include "trace/TraceEvents.h"

namespace zebcam::tool {

/**
 * The arrows of a trace: one for each frame of a capture, through its press, the sensor frame that
 * was chosen and its result. An arrow goes forward in time, so that one to a frame which arrived
 * before the press begins at that frame.
 */
class TraceFlows {
public:
    /// `frameEndsNs`: where the slices of the recording's frames end.
    TraceFlows(Recording const& recording, std::vector<int64_t> const& frameEndsNs,
               std::vector<CaptureRecord> const& captures);

    /// The marks inside a slice, ascending in time.
    std::vector<FlowMark> const& atPress(size_t capture) const { return mAtPress[capture]; }
    std::vector<FlowMark> atFrame(uint32_t frameNo) const;
    /// Of one frame of the capture.
    std::vector<FlowMark> const& atResult(size_t capture, size_t frame) const {
        return mAtResult[capture][frame];
    }

private:
    struct Place;
    void addFlow(std::vector<Place> places, std::string const& name);

    uint64_t mFlows = 0;
    std::vector<std::vector<FlowMark>> mAtPress;
    std::unordered_map<uint32_t, std::vector<FlowMark>> mAtFrame;  ///< by frame number
    std::vector<std::vector<std::vector<FlowMark>>> mAtResult;     ///< by capture and frame
};

}  // namespace zebcam::tool
