#include "ZslFixture.h"

namespace zebcam::test {
namespace {

using Change = std::function<void(ExposedFrame&, Capture&)>;

template <typename T = int32_t>
Change has(StreamId_T stream, uint32_t tag, T value) {
    return [=](auto& frame, auto&) { frame.tag(stream, tag, value); };
}

template <typename... Changes>
Change all(Changes... changes) {
    return [=](auto& frame, auto& capture) { (changes(frame, capture), ...); };
}

Change lacks(StreamId_T stream, uint32_t tag) {
    return [=](auto& frame, auto&) { frame.metas[stream].remove(tag); };
}

Change locked(StreamId_T stream) {
    return [=](auto& frame, auto&) { frame.unlockable = {stream}; };
}

Change needsMode(uint32_t sensor, uint32_t mode) {
    return [=](auto&, auto& capture) { capture.sensorMode(sensor, mode); };
}

Change needs(ZslPolicy::RequiredStreams const& streams) {
    return [=](auto&, auto& capture) { capture.required(0) = streams; };
}

/// A second HAL result like the first.
constexpr auto secondHal = [](auto& frame, auto&) { frame.metas[HAL + 1] = frame.metas[HAL]; };
constexpr auto noImage = [](auto& frame, auto&) { frame.images = {YUV}; };
constexpr auto noMeta = [](auto& frame, auto&) { frame.metas.clear(); };
constexpr auto noFocus = [](auto& frame, auto&) { frame.metas.erase(APP); };
constexpr auto sync = [](auto&, auto& capture) { capture.params.needFrameSync = true; };

constexpr char STREAMS[] = "[operator()] [DefaultSelector] hbs[F11] containsRequiredStreamBuffer X";
constexpr char MODE[] = "[operator()] [DefaultSelector] hbs[F11] containRequiredSensorMode X";
constexpr char EXPOSURE[] = "[operator()] [DefaultSelector] hbs[F11] isAESoftStable X";
constexpr char SYNC[] = "[operator()] [DefaultSelector] hbs[F11] isFameSync X";
constexpr char TAKEN[] = "[select] [DefaultSelector] zslReqNo(5) hbs[F11] O => select";
constexpr char NO_SENSOR_ID[] = "tag(0xc0000005) ZEB_HAL_REQUEST_SENSOR_ID not found!";
constexpr uint32_t SENSOR_ID_TAG = ZEB_HAL_REQUEST_SENSOR_ID, MODE_TAG = ZEB_P1NODE_SENSOR_MODE;
constexpr uint32_t AE_TAG = ZEB_3A_AE_SOFT_STABLE, SYNC_TAG = ZEB_FRAME_SYNC_RESULT;

/// One frame, changed, offered to a capture of one frame, changed: taken or not, and why.
struct Criterion {
    char const* name;
    Change change;
    bool taken;
    char const* reason;  ///< text of a log line
};

Criterion const CRITERIA[] = {
    {"JustInTime", [](auto& f, auto&) { f.timestamp = SHUTTER; }, true, TAKEN},
    {"TooOld", [](auto& f, auto&) { f.timestamp = SHUTTER - 1; }, false,
     "Ts(99999999999) > zsd(100000000000), shutterDelay=0ms X"},
    {"NoImage", noImage, false, STREAMS},
    {"NoHalMeta", needs({{RAW}, {HAL, HAL + 1}, {APP}}), false, STREAMS},
    {"NoAppMeta", needs({{RAW}, {HAL}, {APP, APP + 1}}), false, STREAMS},
    {"NothingNeeded", all(noImage, noMeta, needs({})), true, TAKEN},
    {"ModeMatches", all(has(HAL, MODE_TAG, 4), needsMode(0, 4)), true,
     "requiredSensorMode ok : history = {[0] = 4,}, required = {[0] = 4,}"},
    {"ModeDiffers", needsMode(0, 4), false,
     "cannot find required sensorMode(4) : history = {[0] = 0,}, required = {[0] = 4,}"},
    {"NoSuchSensor", needsMode(2, 0), false,
     "cannot find required sensorId(2) : history = {[0] = 0,}, required = {[2] = 0,}"},
    {"NoSensorIdTag", lacks(HAL, SENSOR_ID_TAG), false, NO_SENSOR_ID},
    {"NoModeTag", lacks(HAL, MODE_TAG), false, "tag(0xc0010016) ZEB_P1NODE_SENSOR_MODE not found!"},
    {"HalNotLockable", locked(HAL), false, NO_SENSOR_ID},
    {"NoModeOfAnUnneededStream", has(HAL + 1, SENSOR_ID_TAG, 1), false, MODE},
    {"FirstMetaOfASensorDecides", all(secondHal, has(HAL + 1, MODE_TAG, 9), needsMode(0, 0)), true,
     "history = {[0] = 0,}"},
    {"ModeOfAnUnneededSensor", [](auto&, auto& c) { c.modes[2] = 7; }, true, "required = {}"},
    {"NeededSensorWithoutMode", [](auto&, auto& c) { c.sensors = {2}; }, true, "required = {}"},
    {"NoAfMode", lacks(APP, ANDROID_CONTROL_AF_MODE), false,
     "[isAFStable] tag(0x10007) not found!"},
    {"NoAfState", lacks(APP, ANDROID_CONTROL_AF_STATE), false,
     "[isAFStable] tag(0x10020) not found!"},
    {"NoLensState", lacks(APP, ANDROID_LENS_STATE), false, "[isAFStable] tag(0x80009) not found!"},
    {"AppNotLockable", locked(APP), false, "[operator()] meta:100000024: X"},
    {"FocusNotNeeded", all(noFocus, needs({{RAW}, {HAL}, {}})), true, TAKEN},
    {"Unstable", has(HAL, AE_TAG, 0), false, EXPOSURE},
    {"StabilityUnknown", lacks(HAL, AE_TAG), true,
     "[isMatched] [isAESoftStable] tag(0xc0030017) not found!"},
    {"UnstableInOneOfTwo",
     all(secondHal, has(HAL + 1, AE_TAG, 2), needs({{RAW}, {HAL, HAL + 1}, {APP}})), false,
     "[operator()] meta:10000001c: X"},
    {"InSync", sync, true, "[isMatched] [isFameSync] tag(0xc0080003) val=0 target=0 bc=1"},
    {"OutOfSync", all(sync, has<int64_t>(HAL, SYNC_TAG, 1LL << 32)), false, SYNC},
    {"SyncNotAsked", has<int64_t>(HAL, SYNC_TAG, 1), true, TAKEN},
    {"SyncUnknown", all(sync, lacks(HAL, SYNC_TAG)), true,
     "[isMatched] [isFameSync] tag(0xc0080003) not found!"},
    {"SyncWithoutHalMeta", all(sync, noMeta, needs({})), false, SYNC},
    {"SyncPassesAtAnUnneededStream",
     all(sync, has<int64_t>(HAL, SYNC_TAG, 1), needs({{RAW}, {}, {APP}})), true, TAKEN},
    {"SyncInOneOfTwo",
     all(sync, secondHal, has<int64_t>(HAL, SYNC_TAG, 1), needs({{RAW}, {HAL, HAL + 1}, {APP}})),
     true, "[operator()] meta:10000001b: X"},
};

class CriteriaTest : public ZslTest, public ::testing::WithParamInterface<Criterion> {};

TEST_P(CriteriaTest, DefaultSelectorTakesOrRefuses) {
    ExposedFrame frame(11);
    auto wanted = capture(5);
    GetParam().change(frame, wanted);
    push({frame});
    bool const taken = !submit(wanted).empty();
    EXPECT_EQ(GetParam().taken, taken);
    EXPECT_NE("", line(GetParam().reason));
    EXPECT_EQ(taken ? 0U : 1U, logged("[select] [DefaultSelector] zslReqNo(5) hbs[F11] X"));
    EXPECT_EQ(taken ? 0U : 1U, history->frameNumbers().size());
    leavesPending = !taken;
}

INSTANTIATE_TEST_SUITE_P(Frames, CriteriaTest, ::testing::ValuesIn(CRITERIA), caseName);

TEST_F(ZslTest, UnsettledFocusIsToldButNeverRefuses) {
    struct {
        uint8_t mode, state, lens;
        bool settled;
    } const cases[] = {
        {0, 1, 1, true},  {5, 3, 1, true},  {6, 1, 1, true},  {1, 0, 0, true},  {4, 2, 0, true},
        {4, 4, 2, true},  {3, 5, 0, true},  {2, 6, 0, true},  {4, 2, 1, false}, {1, 4, 1, false},
        {4, 0, 1, false}, {2, 0, 2, false}, {3, 1, 0, false}, {1, 3, 0, false}, {4, 1, 2, false},
    };
    uint32_t number = 0;
    for (auto const& [mode, state, lens, settled] : cases) {
        push({ExposedFrame(number).focus(mode, state, lens)});
        EXPECT_NE("", submit(capture(++number)));
        auto const text = "afMode=" + std::to_string(mode) + " afState=" + std::to_string(state) +
                          " lensState=" + std::to_string(lens);
        EXPECT_EQ(settled ? 1U : 0U, logged("AF ok: " + text)) << text;
        EXPECT_NE(settled, logged("AF fail: " + text + " but result as ok for ZSL") == 1) << text;
    }
}

}  // namespace
}  // namespace zebcam::test
