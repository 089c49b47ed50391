#include "FrameCriteria.h"

#include <metadata/MetadataTags.h>

#include <algorithm>
#include <optional>

namespace NSCam::v3::pipeline::model {

namespace {

constexpr char STREAM_CHECK[] = "operator()";  ///< function name of the per-stream log lines

StreamId_T idOf(IStreamInfo const* info) {
    return info->getStreamId();
}

template <typename T>
StreamId_T idOf(std::pair<IMetaStreamInfo const* const, T> const& entry) {
    return entry.first->getStreamId();
}

template <typename Streams>
bool haveAll(Streams const& streams, std::set<StreamId_T> const& streamIds) {
    return std::all_of(streamIds.begin(), streamIds.end(), [&](StreamId_T id) {
        return std::any_of(streams.begin(), streams.end(),
                           [&](auto const& stream) { return idOf(stream) == id; });
    });
}

template <typename T>
std::optional<T> firstItem(IMetadata const* meta, uint32_t tag) {
    if (meta == nullptr) {
        return std::nullopt;
    }
    auto const entry = meta->entryFor(tag);
    if (entry.isEmpty()) {
        return std::nullopt;
    }
    return entry.itemAt(0, Type2Type<T>());
}

std::string textOf(SensorModeMap const& modes) {
    std::string text;
    for (auto const& [id, mode] : modes) {
        text += "[" + std::to_string(id) + "] = " + std::to_string(mode) + ",";
    }
    return text;
}

/// The sensor modes of a frame. A handful of sensors at most, so a list serves better than a hash
/// map that would be allocated for every frame that a selector looks at.
class FrameSensorModes {
public:
    void insert(uint32_t id, uint32_t mode) {
        if (find(id) != nullptr) {
            return;
        }
        if (mSize < mFirst.size()) {
            mFirst[mSize++] = {id, mode};
        } else {
            mMore.emplace_back(id, mode);
        }
    }

    uint32_t const* find(uint32_t id) const {
        auto const isId = [&](Mode const& mode) { return mode.first == id; };
        auto const end = mFirst.begin() + mSize;
        if (auto const found = std::find_if(mFirst.begin(), end, isId); found != end) {
            return &found->second;
        }
        auto const found = std::find_if(mMore.begin(), mMore.end(), isId);
        return found != mMore.end() ? &found->second : nullptr;
    }

    std::string text() const {
        SensorModeMap modes(mFirst.begin(), mFirst.begin() + mSize);
        modes.insert(mMore.begin(), mMore.end());
        return textOf(modes);
    }

private:
    using Mode = std::pair<uint32_t, uint32_t>;
    std::array<Mode, 4> mFirst{};
    size_t mSize = 0;
    std::vector<Mode> mMore;
};

/// False, with an error line, when a HAL metadata does not tell its sensor and mode.
bool readSensorModes(ISelector::HistoryFrame const& hf, FrameSensorModes& history) {
    constexpr char FUNCTION[] = "containRequiredSensorMode";
    for (auto const& [info, meta] : hf.halMetas) {
        auto const id = firstItem<int32_t>(meta, ZEB_HAL_REQUEST_SENSOR_ID);
        if (!id) {
            ZSL_LOGE_AS(FUNCTION, "tag(%#x) ZEB_HAL_REQUEST_SENSOR_ID not found!",
                        ZEB_HAL_REQUEST_SENSOR_ID);
            return false;
        }
        auto const mode = firstItem<int32_t>(meta, ZEB_P1NODE_SENSOR_MODE);
        if (!mode) {
            ZSL_LOGE_AS(FUNCTION, "tag(%#x) ZEB_P1NODE_SENSOR_MODE not found!",
                        ZEB_P1NODE_SENSOR_MODE);
            return false;
        }
        history.insert(static_cast<uint32_t>(*id), static_cast<uint32_t>(*mode));
    }
    return true;
}

struct FocusState {
    uint8_t afMode = 0;
    uint8_t afState = 0;
    uint8_t lensState = 0;

    bool isUnsettled() const {
        bool const hasAutoFocus = afMode >= AF_MODE_AUTO && afMode <= AF_MODE_CONTINUOUS_PICTURE;
        bool const isScanning = afState == AF_STATE_INACTIVE || afState == AF_STATE_PASSIVE_SCAN ||
                                afState == AF_STATE_ACTIVE_SCAN;
        bool const isAtRest = lensState == LENS_STATE_STATIONARY && afState == AF_STATE_INACTIVE;
        return hasAutoFocus && (lensState == LENS_STATE_MOVING || (isScanning && !isAtRest));
    }

    std::string text() const {
        return "afMode=" + std::to_string(afMode) + " afState=" + std::to_string(afState) +
               " lensState=" + std::to_string(lensState);
    }
};

/// No value, with an error line, when the metadata lacks a focus tag.
std::optional<FocusState> readFocusState(IMetadata const* meta) {
    FocusState state;
    for (auto const& [tag, field] : {std::pair{ANDROID_CONTROL_AF_MODE, &state.afMode},
                                     {ANDROID_CONTROL_AF_STATE, &state.afState},
                                     {ANDROID_LENS_STATE, &state.lensState}}) {
        auto const value = firstItem<uint8_t>(meta, tag);
        if (!value) {
            ZSL_LOGE_AS("isAFStable", "tag(%#x) not found!", tag);
            return std::nullopt;
        }
        *field = *value;
    }
    return state;
}

}  // namespace

bool containsRequiredStreamBuffer(ISelector::HistoryFrame const& hf, RequiredStreams const& req) {
    return haveAll(hf.halImages, req.halImages) && haveAll(hf.halMetas, req.halMetas) &&
           haveAll(hf.appMetas, req.appMetas);
}

bool containRequiredSensorMode(ISelector::HistoryFrame const& hf, SensorModeMap const& required) {
    FrameSensorModes history;
    if (!readSensorModes(hf, history)) {
        return false;
    }
    for (auto const& [id, mode] : required) {
        uint32_t const* const found = history.find(id);
        if (found == nullptr) {
            ZSL_LOGW("cannot find required sensorId(%d) : history = {%s}, required = {%s}",
                     static_cast<int>(id), history.text().c_str(), textOf(required).c_str());
            return false;
        }
        if (*found != mode) {
            ZSL_LOGW("cannot find required sensorMode(%d) : history = {%s}, required = {%s}",
                     static_cast<int>(mode), history.text().c_str(), textOf(required).c_str());
            return false;
        }
    }
    ZSL_LOGD("requiredSensorMode ok : history = {%s}, required = {%s}", history.text().c_str(),
             textOf(required).c_str());
    return true;
}

bool isAFStable(ISelector::HistoryFrame const& hf, RequiredStreams const& req) {
    for (auto const& [info, meta] : hf.appMetas) {
        if (req.appMetas.count(info->getStreamId()) == 0) {
            continue;
        }
        auto const focus = readFocusState(meta);
        if (!focus) {
            ZSL_LOGW_AS(STREAM_CHECK, "%s: X", info->getStreamName());
            return false;
        }
        if (focus->isUnsettled()) {
            ZSL_LOGW("AF fail: %s but result as ok for ZSL", focus->text().c_str());
        } else {
            ZSL_LOGD("AF ok: %s", focus->text().c_str());
        }
    }
    return true;
}

bool isAESoftStable(ISelector::HistoryFrame const& hf, RequiredStreams const& req) {
    for (auto const& [info, meta] : hf.halMetas) {
        if (req.halMetas.count(info->getStreamId()) == 0) {
            continue;
        }
        if (!isMatched<int32_t>(meta, ZEB_3A_AE_SOFT_STABLE, 1, __func__, true)) {
            ZSL_LOGW_AS(STREAM_CHECK, "%s: X", info->getStreamName());
            return false;
        }
    }
    return true;
}

bool isFameSync(ISelector::HistoryFrame const& hf, RequiredStreams const& req) {
    for (auto const& [info, meta] : hf.halMetas) {
        if (req.halMetas.count(info->getStreamId()) == 0) {
            return true;
        }
        if (isMatched<int64_t>(meta, ZEB_FRAME_SYNC_RESULT, 0, __func__, true)) {
            return true;
        }
        ZSL_LOGW_AS(STREAM_CHECK, "%s: X", info->getStreamName());
    }
    return false;
}

}  // namespace NSCam::v3::pipeline::model
