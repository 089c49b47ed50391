#include <NearestSettledSelector.h>

#include <deque>

#include "processor/ZslFixture.h"

namespace {

using namespace zebcam::test;
using NSCam::ZslPolicy::RequiredStreams;
using sample::NearestSettledSelector;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

constexpr int64_t PRESS = 10'000 * MS;
constexpr StreamId_T SMALL_RAW = YUV;

/// A history frame as the camera reported it; a value that is not there was not reported.
struct Reported {
    int64_t sincePressMs = 0;
    std::optional<uint8_t> afMode = NSCam::AF_MODE_CONTINUOUS_PICTURE;
    std::optional<uint8_t> afState = NSCam::AF_STATE_PASSIVE_FOCUSED;
    std::optional<uint8_t> lensState = NSCam::LENS_STATE_STATIONARY;
    std::optional<int32_t> aeStable = 1;
    std::optional<int64_t> frameSync = 0;
    int32_t sensorMode = 0;
    bool hasSmallRaw = false;
    bool isReadable = true;
};

class NearestSettledSelectorTest : public testing::Test {
protected:
    NearestSettledSelectorTest() {
        in.zsdTs = PRESS;
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
        frame.timestamp = PRESS + reported.sincePressMs * MS;
        frame.halImages = {imageStream(RAW).get()};
        if (reported.hasSmallRaw) {
            frame.halImages.insert(imageStream(SMALL_RAW).get());
        }
        IMetadata& app = metadata.emplace_back();
        set(app, NSCam::ANDROID_CONTROL_AF_MODE, reported.afMode);
        set(app, NSCam::ANDROID_CONTROL_AF_STATE, reported.afState);
        set(app, NSCam::ANDROID_LENS_STATE, reported.lensState);
        IMetadata& hal = metadata.emplace_back();
        set(hal, NSCam::ZEB_3A_AE_SOFT_STABLE, reported.aeStable);
        set(hal, NSCam::ZEB_FRAME_SYNC_RESULT, reported.frameSync);
        set<int32_t>(hal, NSCam::ZEB_HAL_REQUEST_SENSOR_ID, 0);
        set<int32_t>(hal, NSCam::ZEB_P1NODE_SENSOR_MODE, reported.sensorMode);
        frame.appMetas[metaStream(APP).get()] = reported.isReadable ? &app : nullptr;
        frame.halMetas[metaStream(HAL).get()] = &hal;
        in.historyFrames.emplace(frame.frameNo, frame);
    }

    void want(std::set<int64_t> images, std::unordered_map<uint32_t, uint32_t> modes = {}) {
        ISelector::ZslFrameInfo info;
        info.requiredStreams = std::make_shared<RequiredStreams>(
            RequiredStreams{.halImages = std::move(images), .halMetas = {}, .appMetas = {}});
        info.requiredSensorModes =
            std::make_shared<std::unordered_map<uint32_t, uint32_t>>(std::move(modes));
        in.frameInfos.emplace(in.frameInfos.size(), info);
    }

    /// The chosen frame number by frame index.
    std::map<uint64_t, uint32_t> chosen(NearestSettledSelector::Limits limits = {}) const {
        std::map<uint64_t, uint32_t> result;
        auto const out = NearestSettledSelector(limits).select(in);
        EXPECT_THAT(out.ops, IsEmpty());
        for (auto const& [index, frame] : out.selected) {
            result.emplace(index, frame.frameNo);
        }
        return result;
    }

    std::deque<IMetadata> metadata;
    ISelector::SelectInputParams in;
};

TEST_F(NearestSettledSelectorTest, passesOverWhatDoesNotFit) {
    struct {
        char const* what;
        Reported nearest;
        bool fits;
    } const cases[] = {
        {"settled", {}, true},
        {"passive scan", {.afState = NSCam::AF_STATE_PASSIVE_SCAN}, false},
        {"moving lens", {.lensState = NSCam::LENS_STATE_MOVING}, false},
        {"scan without a lens state",
         {.afState = NSCam::AF_STATE_PASSIVE_SCAN, .lensState = {}},
         false},
        {"no state", {.afState = {}}, true},
        {"autofocus off",
         {.afMode = NSCam::AF_MODE_OFF, .lensState = NSCam::LENS_STATE_MOVING},
         true},
        {"exposure changing", {.aeStable = 0}, false},
        {"exposure not reported", {.aeStable = {}}, true},
        {"other sensor mode", {.sensorMode = 2}, false},
        {"unreadable metadata", {.isReadable = false}, false},
        {"out of step", {.frameSync = 1}, false},
        {"synchronisation not reported", {.frameSync = {}}, true},
    };
    in.frameInfos.clear();
    want({RAW}, {{0, 0}});
    in.needFrameSync = true;
    for (auto const& [what, nearest, fits] : cases) {
        SCOPED_TRACE(what);
        in.historyFrames.clear();
        push({.sincePressMs = -33});
        push(nearest);
        EXPECT_THAT(chosen(), ElementsAre(Pair(0, fits ? 2 : 1)));
    }
    in.needFrameSync = false;
    in.historyFrames.clear();
    push({.frameSync = 1});
    EXPECT_THAT(chosen(), ElementsAre(Pair(0, 1))) << "synchronisation was not asked for";
}

TEST_F(NearestSettledSelectorTest, waitsForTheHistoryToReachThePressButNotForEver) {
    push({.sincePressMs = -66});
    push({.sincePressMs = -33});
    EXPECT_THAT(chosen(), IsEmpty());
    in.durationMs = 199;
    EXPECT_THAT(chosen(), IsEmpty());
    in.durationMs = 200;
    EXPECT_THAT(chosen(), ElementsAre(Pair(0, 2)));
    in.durationMs = 0;
    push({.sincePressMs = 0, .aeStable = 0});
    EXPECT_THAT(chosen(), ElementsAre(Pair(0, 2))) << "the history has reached the press";
    EXPECT_THAT(chosen({.maxAgeMs = 32}), IsEmpty());
}

TEST_F(NearestSettledSelectorTest, givesABurstTheNearestFramesInAscendingOrder) {
    want({RAW});
    want({RAW});
    for (int64_t since : {-99, -66, -33, 0, 33}) {
        push({.sincePressMs = since});
    }
    in.historyFrames.at(3).appMetas[metaStream(APP).get()] = nullptr;
    EXPECT_THAT(chosen(), ElementsAre(Pair(0, 2), Pair(1, 4), Pair(2, 5)));

    in.historyFrames.erase(1);
    in.historyFrames.erase(2);
    EXPECT_THAT(chosen(), ElementsAre(Pair(0, 4), Pair(1, 5))) << "the first two are served";
}

TEST_F(NearestSettledSelectorTest, servesAsManyAsPossibleWhenFramesNeedDifferentStreams) {
    in.frameInfos.clear();
    want({RAW});
    want({RAW, SMALL_RAW});
    push({.sincePressMs = -66});
    push({.sincePressMs = 0, .hasSmallRaw = true});
    EXPECT_THAT(chosen(), ElementsAre(Pair(0, 1), Pair(1, 2)))
        << "the nearest frame is left to the one that only it can serve";
    in.historyFrames.erase(1);
    EXPECT_THAT(chosen(), ElementsAre(Pair(0, 2)));
}

}  // namespace
