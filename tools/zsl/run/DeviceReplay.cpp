#include "run/DeviceReplay.h"

#include <algorithm>

#include "pipeline/PipelineSetup.h"
#include "run/DeviceInstants.h"
#include "run/DeviceRun.h"

namespace zebcam::tool::run {

namespace {

/// The properties that the processor reads, whatever else the file has.
std::vector<std::pair<std::string, std::string>> propertiesOf(
    device::DeviceRecording const& recording) {
    std::vector<std::pair<std::string, std::string>> known;
    for (auto const& property : recording.properties) {
        if (std::find(record::PROPERTIES.begin(), record::PROPERTIES.end(), property.first) !=
            record::PROPERTIES.end()) {
            known.push_back(property);
        }
    }
    return known;
}

}  // namespace

DeviceReplayResult replayDevice(device::DeviceRecording const& recording, uint32_t logLevel,
                                ReplayListener const& listener) {
    pipeline::PropertyScope const properties(propertiesOf(recording));
    auto const uncertain = uncertainInstants(recording);
    DeviceReplayResult result =
        runDevice(recording, findInstants(recording, uncertain), logLevel, listener);
    if (!result.replay.device->isSame()) {
        for (UncertainInstant const& instant : uncertain) {
            result.replay.notes.push_back(instant.note());
        }
    }
    return result;
}

}  // namespace zebcam::tool::run
