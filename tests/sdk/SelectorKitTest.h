#pragma once

#include <policy/zsl/PictureMeasures.h>
#include <policy/zsl/RecordedColumns.h>

#include <deque>

#include "processor/ZslFixture.h"

namespace zebcam::test {

constexpr int64_t WANTED = 10'000 * MS;
constexpr StreamId_T SMALL_RAW = YUV;

/// A history frame as the camera reported it; a value that is not there was not reported.
struct Reported {
    int64_t sinceWantedMs = 0;
    std::optional<uint8_t> afMode = NSCam::AF_MODE_CONTINUOUS_PICTURE;
    std::optional<uint8_t> afState = NSCam::AF_STATE_PASSIVE_FOCUSED;
    std::optional<uint8_t> lensState = NSCam::LENS_STATE_STATIONARY;
    std::optional<int32_t> aeStable = 1;
    std::optional<int64_t> frameSync = 0;
    int32_t sensorMode = 0;
    bool hasSmallRaw = false;
    bool isReadable = true;
    std::optional<float> sharpness = std::nullopt;
    std::optional<double> sharpnessColumn = std::nullopt;
    std::optional<int64_t> exposureNs = std::nullopt;
    bool isLocked = false;
};

/// What a policy is asked, made by hand: frames around the wanted instant WANTED.
class SelectorKitTest : public testing::Test {
protected:
    SelectorKitTest() {
        in.zsdTs = WANTED;
        want({RAW});
    }

    template <typename T>
    static void set(IMetadata& metadata, uint32_t tag, std::optional<T> value) {
        if (value) {
            put(metadata, tag, *value);
        }
    }

    /// Frame numbers count up from 1.
    void push(Reported const& reported) {
        ISelector::HistoryFrame frame;
        frame.frameNo = static_cast<uint32_t>(in.historyFrames.size()) + 1;
        frame.timestamp = WANTED + reported.sinceWantedMs * MS;
        frame.halImages = {imageStream(RAW).get()};
        if (reported.hasSmallRaw) {
            frame.halImages.insert(imageStream(SMALL_RAW).get());
        }
        IMetadata& app = metadata.emplace_back();
        set(app, NSCam::ANDROID_CONTROL_AF_MODE, reported.afMode);
        set(app, NSCam::ANDROID_CONTROL_AF_STATE, reported.afState);
        set(app, NSCam::ANDROID_LENS_STATE, reported.lensState);
        set(app, NSCam::ZslPolicy::PICTURE_SHARPNESS, reported.sharpness);
        set(app, NSCam::ZslPolicy::recordedColumnTag("Sharpness"), reported.sharpnessColumn);
        set(app, NSCam::ANDROID_SENSOR_EXPOSURE_TIME, reported.exposureNs);
        IMetadata& hal = metadata.emplace_back();
        set(hal, NSCam::ZEB_3A_AE_SOFT_STABLE, reported.aeStable);
        set(hal, NSCam::ZEB_FRAME_SYNC_RESULT, reported.frameSync);
        set<int32_t>(hal, NSCam::ZEB_HAL_REQUEST_SENSOR_ID, 0);
        set<int32_t>(hal, NSCam::ZEB_P1NODE_SENSOR_MODE, reported.sensorMode);
        frame.appMetas[metaStream(APP).get()] = reported.isReadable ? &app : nullptr;
        frame.halMetas[metaStream(HAL).get()] = &hal;
        frame.isLocked = reported.isLocked;
        in.historyFrames.emplace(frame.frameNo, frame);
    }

    void want(std::set<int64_t> images, std::unordered_map<uint32_t, uint32_t> modes = {}) {
        ISelector::ZslFrameInfo info;
        info.requiredStreams =
            std::make_shared<ZslPolicy::RequiredStreams>(ZslPolicy::RequiredStreams{
                .halImages = std::move(images), .halMetas = {}, .appMetas = {}});
        info.requiredSensorModes =
            std::make_shared<std::unordered_map<uint32_t, uint32_t>>(std::move(modes));
        in.frameInfos.emplace(in.frameInfos.size(), info);
    }

    /// The chosen frame number by frame index.
    static std::map<uint64_t, uint32_t> chosenOf(Answer const& answer) {
        std::map<uint64_t, uint32_t> chosen;
        for (auto const& [index, frame] : answer.selected) {
            chosen.emplace(index, frame.frameNo);
        }
        return chosen;
    }

    std::deque<IMetadata> metadata;
    ISelector::SelectInputParams in;
};

}  // namespace zebcam::test
