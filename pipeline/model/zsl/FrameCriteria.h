#pragma once

#include <policy/zsl/ISelector.h>

#include <cstdint>
#include <string>
#include <unordered_map>

#include "Log.h"
#include "WrapAround.h"

/**
 * The tests that the built-in selectors put a history frame to. Each one logs why it says no.
 *
 * They differ on purpose in how they treat several metadata streams and missing tags: focus and
 * exposure want every required stream to pass, synchronisation any; sensor mode and focus refuse a
 * frame that lacks the tag, exposure and synchronisation accept it.
 */
namespace NSCam::v3::pipeline::model {

using ZslPolicy::ISelector;
using ZslPolicy::RequiredStreams;

/// Sensor mode by sensor id.
using SensorModeMap = std::unordered_map<uint32_t, uint32_t>;

/// Every required stream is present.
bool containsRequiredStreamBuffer(ISelector::HistoryFrame const& hf, RequiredStreams const& req);

/// Every required sensor was in its required mode. Refuses a frame any of whose HAL metadata lacks
/// sensor id or mode, even if nothing is required.
bool containRequiredSensorMode(ISelector::HistoryFrame const& hf, SensorModeMap const& required);

/// The required application metadata tell of the focus. An unsettled focus is reported but passes:
/// for zero shutter lag the moment matters more.
bool isAFStable(ISelector::HistoryFrame const& hf, RequiredStreams const& req);

/// No required HAL metadata says that the exposure is still moving.
bool isAESoftStable(ISelector::HistoryFrame const& hf, RequiredStreams const& req);

/// The first HAL metadata is not a required one, or a required one says "synchronised" (or nothing)
/// before one that is not required is met.
bool isFameSync(ISelector::HistoryFrame const& hf, RequiredStreams const& req);

/// From the instant that the capture stands for to the frame's exposure, whole ms toward zero;
/// wraps around for times that are centuries apart.
inline int64_t shutterDelayMs(ISelector::HistoryFrame const& hf, int64_t zsdTs) {
    return wrapSubtract(hf.timestamp, zsdTs) / 1'000'000;
}

/// Whether `tag` holds `target`; `bc` when the tag is not there. `T` is int32_t or int64_t, `name`
/// shows in the log.
template <typename T>
bool isMatched(IMetadata const* meta, uint32_t tag, T const target, char const* name, bool bc) {
    constexpr char FUNCTION[] = "isMatched";
    auto const entry = meta != nullptr ? meta->entryFor(tag) : IMetadata::IEntry{};
    if (entry.isEmpty()) {
        ZSL_LOGE_AS(FUNCTION, "[%s] tag(%#x) not found!", name, tag);
        return bc;
    }
    T const val = entry.itemAt(0, Type2Type<T>());
    ZSL_LOGD_AS(FUNCTION, "[%s] tag(%#x) val=%s target=%s bc=%d", name, tag,
                std::to_string(val).c_str(), std::to_string(target).c_str(), bc);
    return val == target;
}

}  // namespace NSCam::v3::pipeline::model
