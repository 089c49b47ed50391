#include <dlfcn.h>
#include <host/ImageStreamBuffer.h>

#include "ZslFixture.h"

namespace {
bool gIsReversed = false;
}

/// Found before the stack's own: while reversed, every container has its entries the other way
/// round, as a container that keeps another order may.
__attribute__((visibility("default"))) NSCam::IMetadata::IEntry NSCam::IMetadata::entryAt(
    size_t index) const {
    using EntryAt = IEntry (*)(IMetadata const*, size_t);
    static auto const stack =
        reinterpret_cast<EntryAt>(dlsym(RTLD_NEXT, "_ZNK5NSCam9IMetadata7entryAtEm"));
    return stack(this, gIsReversed ? count() - 1 - index : index);
}

namespace zebcam::test {
namespace {

constexpr uint32_t REQUEST_KEPT[] = {
    0x1000d,    0xa0000,    0x3,        0x0,        0x130003,   0x100000,   0x60000,
    0x30000,    0x70003,    0x70000,    0x8015003e, 0x80150001, 0x80150003, 0x80150007,
    0x8015000a, 0x8015000b, 0x8015000d, 0x8015000f, 0x80150010, 0x80150019, 0x8015001e,
    0x80150031, 0x80150032, 0x80150033, 0x80150036, 0x80150037, 0x80150039, 0x8015004d,
    0x80170001, 0x80190001, 0x80150035, 0x80190017, 0x801f0000, 0x80150038, 0x8015003a};
constexpr uint32_t FROM_HISTORY[] = {
    0x80180003, 0x80150008, 0x8015000c, 0x8015000e, 0x80150024, 0x8015003b, 0x801a0001, 0x801a0002,
    0x801a0003, 0x80150014, 0x8015003c, 0x80150055, 0x80150004, 0x801a0005, 0x801a0006, 0x801a0007,
    0x801a0004, 0x10007,    0xe0010,    0x110001,   0x1,        0x7fffffff,  // standard
    0x80060000, 0x8006ffff, 0x800e0000, 0x800e1234};                         // vendor, two sections
constexpr uint32_t FROM_HISTORY_IF_SET[] = {0x80000000, 0x80050000, 0x80070000, 0x80160000,
                                            0x800f0001, 0x80150002, 0x801a0008, 0xc0060000};

class FrameBuildTest : public ZslTest {
protected:
    FrameBuilder const& build(ExposedFrame const& frame, Capture& wanted) {
        push({frame});
        EXPECT_EQ("[5.0=F11]", submit(wanted));
        return *wanted.frames[0];
    }

    /// Value of `tag` (1: the request's, 2: the history's, 0: none) after a build in which the
    /// history, and the request when `inRequest`, has it.
    void expectAppValues(bool inRequest, int kept, int copied, int vendor) {
        ExposedFrame frame(11);
        auto wanted = capture(5);
        auto control = wanted.frames[0]->appMeta(APP_CONTROL);
        auto* pControl = control->tryWriteLock("test");
        auto const putAll = [&](auto const& tags) {
            for (auto tag : tags) {
                frame.tag<int32_t>(APP, tag, 2);
                if (inRequest) {
                    put<int32_t>(*pControl, tag, 1);
                }
            }
        };
        putAll(REQUEST_KEPT);
        putAll(FROM_HISTORY);
        putAll(FROM_HISTORY_IF_SET);
        control->unlock("test", pControl);
        frame.focus(4, 2, 0);
        auto const built = appMetaOf(build(frame, wanted));
        for (auto tag : REQUEST_KEPT) {
            EXPECT_EQ(kept, valueOf<int32_t>(built, tag).value_or(0)) << std::hex << tag;
        }
        for (auto tag : FROM_HISTORY) {
            EXPECT_EQ(tag == ANDROID_CONTROL_AF_MODE ? 4 : copied,
                      valueOf<int32_t>(built, tag).value_or(0))
                << std::hex << tag;
        }
        for (auto tag : FROM_HISTORY_IF_SET) {
            EXPECT_EQ(vendor, valueOf<int32_t>(built, tag).value_or(0)) << std::hex << tag;
        }
    }

    static IMetadata appMetaOf(FrameBuilder const& builder) {
        return hostBuffer(builder.appMeta(APP)).snapshot();
    }
};

TEST_F(FrameBuildTest, AppTagsOfRequestAndHistory) {
    for (bool isReversed : {false, true}) {
        gIsReversed = isReversed;
        expectAppValues(true, 1, 2, 1);
        expectAppValues(false, 0, 2, 0);
    }
    gIsReversed = false;
}

TEST_F(FrameBuildTest, VendorTagsOfTheHistoryWhenSet) {
    EXPECT_PASSES_IN_NEW_PROCESS([this] {
        setProperty("persist.vendor.camera3.zsl.vendortag.usehistory", "1");
        expectAppValues(true, 1, 2, 2);
        setProperty("persist.vendor.camera3.zsl.vendortag.usehistory", "0");
        expectAppValues(true, 1, 2, 2);  // read once
    });
}

TEST_F(FrameBuildTest, FaceDetectModeIsDropped) {
    auto wanted = capture(5);
    auto const built =
        build(ExposedFrame(11).tag<uint8_t>(APP, ZEB_STATISTICS_FACE_DETECT_MODE, 1), wanted);
    EXPECT_FALSE(valueOf<uint8_t>(appMetaOf(built), ZEB_STATISTICS_FACE_DETECT_MODE));
    EXPECT_EQ(1U, logged("[prepareAppMeta] remove ZEB_STATISTICS_FACE_DETECT_MODE OK"));
    push({12});
    submit(capture(6));
    EXPECT_EQ(1U, logged("[prepareAppMeta] can not find ZEB_STATISTICS_FACE_DETECT_MODE"));
}

TEST_F(FrameBuildTest, HalControlsOverrideTheHistory) {
    constexpr uint32_t BOTH = 0xc0000100, HISTORY = 0xc0000101, REQUEST = 0xc0000102;
    constexpr StreamId_T UNPAIRED = 0x10000001e;
    ExposedFrame frame(11);
    auto wanted = capture(5);
    for (auto id : {HAL, HAL + 1, HAL + 2, UNPAIRED}) {
        frame.metas[id] = frame.metas[HAL];
        frame.tag<int32_t>(id, BOTH, 2).tag<int32_t>(id, HISTORY, 2);
        wanted.required(0).halMetas.insert(id);
    }
    for (auto id : {HAL_CONTROL, HAL_CONTROL + 2}) {
        IMetadata control;
        put<int32_t>(control, BOTH, static_cast<int32_t>(id & 0xff));
        put<int32_t>(control, REQUEST, 1);
        wanted.frames[0]->setHalMetaStreamBuffer(id, metaBuffer(id, control));
    }
    auto const set = frame.set();
    history->arrive(set);
    submit(wanted);
    for (auto const& [stream, both] :
         std::map<StreamId_T, int>{{HAL, 0x18}, {HAL + 1, 2}, {HAL + 2, 0x1a}, {UNPAIRED, 2}}) {
        auto const built = hostBuffer(wanted.frames[0]->halMeta(stream)).snapshot();
        EXPECT_EQ(both, valueOf<int32_t>(built, BOTH));
        EXPECT_EQ(2, valueOf<int32_t>(built, HISTORY));
        EXPECT_EQ(both != 2, valueOf<int32_t>(built, REQUEST).has_value());
    }
    EXPECT_EQ(1U, logged("[prepareHalMeta] prepare (0x10000001b:meta:10000001b): copy history, "
                         "update all (0x100000018:meta:100000018)"));
    EXPECT_EQ(2, valueOf<int32_t>(hostBuffer(set.halMeta[0]).snapshot(), BOTH))
        << "history changed";
}

TEST_F(FrameBuildTest, ImagesAreRearmed) {
    auto const set = ExposedFrame(11).set();
    android::sp<ImageStreamBuffer> const image =
        static_cast<ImageStreamBuffer*>(set.halImage[0].get());
    android::sp<NSCam::v3::Utils::UsersManager> const old =
        new NSCam::v3::Utils::UsersManager(RAW, "old");
    image->setUsersManager(old);
    history->arrive(set);
    auto wanted = capture(5);
    submit(wanted);
    EXPECT_EQ(image.get(), wanted.frames[0]->halImages().at(RAW).get());
    EXPECT_EQ(1U, image->resetCount());
    ASSERT_NE(nullptr, image->usersManager());
    EXPECT_EQ("image:21", image->usersManager()->getStreamName());
    EXPECT_FALSE(image->isReleased());
}

TEST_F(FrameBuildTest, AdditionalMetadataIsMergedIntoTheFirstBufferOfItsStream) {
    constexpr uint32_t TAG = 0x80990000;
    auto extra = std::make_shared<IMetadata>();
    put<int32_t>(*extra, TAG, 7);
    put<int32_t>(*extra, ZEB_HAL_REQUEST_SENSOR_ID, 8);
    for (uint32_t chosen : {11U, NO_FRAME}) {
        push({11});
        log.clear();
        auto answer = choose({{0, chosen}});
        answer.selected[0].additionalMetas = {
            {HAL, extra}, {APP_CONTROL, extra}, {HAL_CONTROL, extra}, {APP + 2, extra}};
        auto wanted = capture(5).by(answering({answer}));
        auto& builder = *wanted.frames[0];
        builder.setHalMetaStreamBuffer(APP_CONTROL, metaBuffer(APP_CONTROL));
        hostBuffer(builder.halMeta(HAL_CONTROL)).setLockable(chosen != NO_FRAME);
        EXPECT_EQ(chosen == 11 ? "[5.0=F11]" : "[5.0=none]", submit(wanted));
        EXPECT_EQ(7, valueOf<int32_t>(hostBuffer(builder.appMeta(APP_CONTROL)).snapshot(), TAG));
        EXPECT_TRUE(hostBuffer(builder.halMeta(APP_CONTROL)).snapshot().isEmpty());
        EXPECT_EQ(1U, logged("cannot find streamId(0x100000026) to append additionalMetas"));
        EXPECT_EQ(chosen == 11 ? 0U : 1U, logged("[operator()] cannot lock metadata"));
        if (chosen == 11) {
            auto const built = hostBuffer(builder.halMeta(HAL)).snapshot();
            EXPECT_EQ(8, valueOf<int32_t>(built, ZEB_HAL_REQUEST_SENSOR_ID)) << "must override";
        }
    }
}

TEST_F(FrameBuildTest, TimestampWithoutEarlyShutterIsTheSensors) {
    push({11});
    auto direct = capture(5, 2).by(answering({choose({{0, 11}, {1, NO_FRAME}})}));
    submit(direct);
    EXPECT_EQ(SHUTTER + 11 * MS, direct.frames[0]->timestamp());
    EXPECT_EQ(0, direct.frames[1]->timestamp());
}

}  // namespace
}  // namespace zebcam::test
