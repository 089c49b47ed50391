#pragma once

#include <string>

#include "HistorySets.h"
#include "ZslProcessor.h"

namespace NSCam::v3::pipeline::model {

/// What one selection works on: a capture, the history that is on lease to it, and the list that
/// its selector keeps locked.
struct Selection {
    ZslProcessor::ZslReqObject const& req;
    BufferSets& history;
    BufferSets& locked;
    std::vector<ZslPolicy::InFlightInfo> const& inflight;

    bool isInFlight(uint32_t frameNo) const;
};

/// Shows the selector the capture's frames and every set, metadata locked for reading, and gives
/// its answer; an empty one if it throws. `name` is for the log.
ZslPolicy::ISelector::SelectOutputParams select(Selection const& selection,
                                                ZslPolicy::ISelector const& selector,
                                                std::string const& name);

}  // namespace NSCam::v3::pipeline::model
