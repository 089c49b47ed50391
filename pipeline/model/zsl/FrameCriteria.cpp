#include "FrameCriteria.h"

#include <metadata/MetadataTags.h>

#include <algorithm>
#include <array>
#include <optional>

#include "Streams.h"

namespace NSCam::v3::pipeline::model {

namespace {

/// Function name of the per-stream lines: log readers' filters know them under it.
constexpr char STREAM_CHECK[] = "operator()";

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
    /// The first mode of a sensor stays.
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
        // The enumerators are in this order; the modes outside have no focus that could move.
        bool const hasAutoFocus = afMode >= AF_MODE_AUTO && afMode <= AF_MODE_CONTINUOUS_PICTURE;
        bool const isScanning = afState == AF_STATE_INACTIVE || afState == AF_STATE_PASSIVE_SCAN ||
                                afState == AF_STATE_ACTIVE_SCAN;
        // A focus that never ran, with a lens that stands still: nothing is going to change.
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
    return haveRequired(hf.halImages, hf.halMetas, hf.appMetas, req);
}

bool containRequiredSensorMode(ISelector::HistoryFrame const& hf, SensorModeMap const& required) {
    // Read in full before anything is compared: one sensor that does not tell spoils the frame,
    // even if it is not asked for.
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
            // Not to know is worse than to know that it moves.
            ZSL_LOGW_AS(STREAM_CHECK, "%s: X", info->getStreamName());
            return false;
        }
        // Told, but no reason to say no: with zero shutter lag the moment counts for more.
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
        // A sensor without auto exposure has no such tag; it must not block every capture.
        if (!isMatched<int32_t>(meta, ZEB_3A_AE_SOFT_STABLE, 1, __func__, true)) {
            ZSL_LOGW_AS(STREAM_CHECK, "%s: X", info->getStreamName());
            return false;
        }
    }
    return true;
}

bool isFameSync(ISelector::HistoryFrame const& hf, RequiredStreams const& req) {
    for (auto const& [info, meta] : hf.halMetas) {
        // Not skipped but taken for good, unlike in the other criteria: metadata that the frame
        // does not need comes of a sensor that need not be in step. Streams come in the order of
        // their infos' addresses, so that what is met first is chance.
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
