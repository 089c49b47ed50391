#include "FrameFacts.h"

#include <algorithm>
#include <optional>

namespace kit {

using NSCam::IMetadata;

namespace {

template <typename T>
std::optional<T> read(IMetadata const& metadata, IMetadata::Tag tag) {
    IMetadata::IEntry const entry = metadata.entryFor(tag);
    if (entry.isEmpty()) {
        return std::nullopt;
    }
    return entry.itemAt(0, NSCam::Type2Type<T>{});
}

template <typename Infos, typename InfoOf>
bool carriesAll(std::set<int64_t> const& ids, Infos const& infos, InfoOf infoOf) {
    return std::all_of(ids.begin(), ids.end(), [&](int64_t id) {
        return std::any_of(infos.begin(), infos.end(),
                           [&](auto const& entry) { return infoOf(entry)->getStreamId() == id; });
    });
}

// A buffer that could not be locked leaves a null here. Nothing is known about it, so it settles
// nothing.
template <typename Judge>
bool anyOf(ISelector::MetaMap const& metas, Judge judge) {
    return std::any_of(metas.begin(), metas.end(), [&](auto const& entry) {
        return entry.second != nullptr && judge(*entry.second);
    });
}

template <typename Judge>
bool allOf(ISelector::MetaMap const& metas, Judge judge) {
    return std::all_of(metas.begin(), metas.end(), [&](auto const& entry) {
        return entry.second != nullptr && judge(*entry.second);
    });
}

bool isScanning(IMetadata const& metadata) {
    auto const state = read<uint8_t>(metadata, NSCam::ANDROID_CONTROL_AF_STATE);
    return state == NSCam::AF_STATE_PASSIVE_SCAN || state == NSCam::AF_STATE_ACTIVE_SCAN;
}

bool isMoving(IMetadata const& metadata) {
    return read<uint8_t>(metadata, NSCam::ANDROID_LENS_STATE) == NSCam::LENS_STATE_MOVING;
}

bool isFocusSettled(IMetadata const& metadata) {
    auto const mode = read<uint8_t>(metadata, NSCam::ANDROID_CONTROL_AF_MODE);
    if (!mode || *mode == NSCam::AF_MODE_OFF || *mode == NSCam::AF_MODE_EDOF) {
        return true;
    }
    return !isMoving(metadata) && !isScanning(metadata);
}

}  // namespace

std::optional<Failure> failureOf(ISelector::SelectInputParams const& in,
                                 ISelector::HistoryFrame const& frame,
                                 ISelector::ZslFrameInfo const& wanted) {
    if (!isExposureSettled(frame)) {
        return Failure{"exposure", "not settled"};
    }
    if (!carriesStreams(frame, *wanted.requiredStreams)) {
        return Failure{"streams", "one is missing"};
    }
    if (!matchesSensorModes(frame, wanted)) {
        return Failure{"sensor mode", "another one"};
    }
    if (in.needFrameSync && !isSynchronised(frame)) {
        return Failure{"sync", "out of step"};
    }
    return std::nullopt;
}

bool carriesStreams(ISelector::HistoryFrame const& frame,
                    NSCam::ZslPolicy::RequiredStreams const& required) {
    auto const key = [](auto const& entry) { return entry.first; };
    return carriesAll(required.halImages, frame.halImages, [](auto info) { return info; }) &&
           carriesAll(required.halMetas, frame.halMetas, key) &&
           carriesAll(required.appMetas, frame.appMetas, key);
}

bool matchesSensorModes(ISelector::HistoryFrame const& frame,
                        ISelector::ZslFrameInfo const& wanted) {
    auto const& modes = *wanted.requiredSensorModes;
    return std::all_of(modes.begin(), modes.end(), [&](auto const& required) {
        return std::any_of(frame.halMetas.begin(), frame.halMetas.end(), [&](auto const& entry) {
            if (entry.second == nullptr) {
                return false;
            }
            auto const sensor = read<int32_t>(*entry.second, NSCam::ZEB_HAL_REQUEST_SENSOR_ID);
            auto const mode = read<int32_t>(*entry.second, NSCam::ZEB_P1NODE_SENSOR_MODE);
            return sensor == static_cast<int32_t>(required.first) &&
                   mode == static_cast<int32_t>(required.second);
        });
    });
}

bool tellsFocus(ISelector::HistoryFrame const& frame, ISelector::ZslFrameInfo const& wanted) {
    std::set<int64_t> const& required = wanted.requiredStreams->appMetas;
    return std::all_of(frame.appMetas.begin(), frame.appMetas.end(), [&](auto const& entry) {
        auto const& [info, metadata] = entry;
        return required.count(info->getStreamId()) == 0 ||
               (metadata != nullptr && read<uint8_t>(*metadata, NSCam::ANDROID_CONTROL_AF_MODE) &&
                read<uint8_t>(*metadata, NSCam::ANDROID_CONTROL_AF_STATE) &&
                read<uint8_t>(*metadata, NSCam::ANDROID_LENS_STATE));
    });
}

bool isFocusSettled(ISelector::HistoryFrame const& frame) {
    return allOf(frame.appMetas, [](IMetadata const& meta) { return isFocusSettled(meta); });
}

bool isFocusScanning(ISelector::HistoryFrame const& frame) {
    return anyOf(frame.appMetas, [](IMetadata const& meta) { return isScanning(meta); });
}

bool isLensMoving(ISelector::HistoryFrame const& frame) {
    return anyOf(frame.appMetas, [](IMetadata const& meta) { return isMoving(meta); });
}

std::optional<int64_t> exposureTimeNs(ISelector::HistoryFrame const& frame) {
    std::optional<int64_t> exposure;
    anyOf(frame.appMetas, [&](IMetadata const& meta) {
        exposure = read<int64_t>(meta, NSCam::ANDROID_SENSOR_EXPOSURE_TIME);
        return exposure.has_value();
    });
    return exposure > 0 ? exposure : std::nullopt;
}

bool isExposureSettled(ISelector::HistoryFrame const& frame) {
    return allOf(frame.halMetas, [](IMetadata const& meta) {
        return read<int32_t>(meta, NSCam::ZEB_3A_AE_SOFT_STABLE).value_or(1) == 1;
    });
}

bool isSynchronised(ISelector::HistoryFrame const& frame) {
    return allOf(frame.halMetas, [](IMetadata const& meta) {
        return read<int64_t>(meta, NSCam::ZEB_FRAME_SYNC_RESULT).value_or(0) == 0;
    });
}

}  // namespace kit
