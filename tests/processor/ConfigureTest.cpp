#include <cerrno>

#include "ZslFixture.h"

namespace zebcam::test {
namespace {

struct TimeSource {
    char const* name;
    bool hasDevice;
    std::optional<uint8_t> entry;
    std::string settings;
    std::string warning;
    int64_t now;
};

class TimeSourceTest : public ZslTest, public ::testing::WithParamInterface<TimeSource> {};

TEST_P(TimeSourceTest, DecidesTheClock) {
    IMetadata characteristics;
    if (GetParam().entry) {
        put<uint8_t>(characteristics, ZEB_SENSOR_INFO_TIMESTAMP_SOURCE, *GetParam().entry);
    }
    device.reset();
    if (GetParam().hasDevice) {
        device.emplace(3, characteristics);
    }
    log.clear();
    start();
    auto const selector = answering({});
    submit(capture(5).by(selector));
    EXPECT_EQ(1U, logged("[ZslProcessor] " + GetParam().settings));
    EXPECT_EQ(GetParam().warning.empty() ? 0U : 1U, logged("[getTimeSource] "));
    EXPECT_EQ(GetParam().warning, line("[getTimeSource] "));
    EXPECT_EQ(GetParam().now, selector->seen.at(0).zsdTs);
    EXPECT_EQ(GetParam().now + 1000, callback->shutters().at(0).second);
    leavesPending = true;
}

constexpr char BOOT[] = "mTimeSource(1) mFakeShutterNs(100000000000)";
constexpr char NO_ENTRY[] =
    "[getTimeSource] can not get ZEB_SENSOR_INFO_TIMESTAMP_SOURCE, use REALTIME as default";
INSTANTIATE_TEST_SUITE_P(
    Sources, TimeSourceTest,
    ::testing::Values(TimeSource{"NoDevice",
                                 false,
                                 {},
                                 BOOT,
                                 "[getTimeSource] openId(3): can not get IMetadataProvider",
                                 SHUTTER},
                      TimeSource{"NoEntry", true, {}, BOOT, NO_ENTRY, SHUTTER},
                      TimeSource{"Realtime", true, 1, BOOT, "", SHUTTER},
                      TimeSource{"Unknown", true, 0, "mTimeSource(0) mFakeShutterNs(40000000000)",
                                 "", MONOTONIC}),
    caseName);

TEST_F(ZslTest, OffsetIsTheSumOfThreePropertiesReadAtCreation) {
    struct {
        char const *platform, *project, *user;
        int64_t sumMs;
        std::string told;
    } const cases[] = {{"", "", "", 0, ") = default(0)+project(0)+user(0)"},
                       {"30", "20", "-7", 43, ") = default(30)+project(20)+user(-7)"},
                       {"", "", "-5000", -5000, ") = default(0)+project(0)+user(-5000)"}};
    for (auto const& c : cases) {
        setProperty("ro.vendor.camera3.zsl.default", c.platform);
        setProperty("ro.vendor.camera3.zsl.project", c.project);
        setProperty("vendor.debug.camera3.zsl.timestamp", c.user);
        log.clear();
        start();
        setProperty("vendor.debug.camera3.zsl.timestamp", "1234");
        auto const selector = answering({});
        submit(capture(5).by(selector));
        EXPECT_EQ(SHUTTER - c.sumMs * MS, selector->seen.at(0).zsdTs);
        EXPECT_EQ(1U, logged("[ZslProcessor] zsdOffsetMs(" + std::to_string(c.sumMs) + c.told));
        flush();
    }
}

TEST_F(ZslTest, ConfigureIsRefusedWhileACaptureIsPending) {
    submit(capture(5));
    submit(capture(6));
    android::sp<RecordingCallback> const other = new RecordingCallback;
    ZslConfigParams changed = config();
    changed.pCallback = other;
    EXPECT_EQ(-ENOSYS, zsl->configure(changed));
    EXPECT_EQ(1U, logged("[configure] 2 ZSL pending requests not finish yet, 1st-reqNo: 5"));
    submit(capture(7));
    EXPECT_EQ(3U, callback->results.size()) << "the refused callback was taken";

    flush();
    EXPECT_EQ(0, zsl->configure(changed));
    submit(capture(8));
    EXPECT_EQ(1U, other->results.size());
    leavesPending = true;
}

TEST_F(ZslTest, ConfigureCopiesTheStreamsAndKeepsTheLockedFrames) {
    push({11});
    EXPECT_EQ("[5.0=none]",
              submit(capture(5).by(answering({choose({{0, NO_FRAME}}, {{11, Answer::LOCK}})}))));
    EXPECT_EQ(0, zsl->configure(config()));
    p1Streams.clear();
    EXPECT_EQ("", submit(capture(6).by(answering({}))));
    EXPECT_EQ(1U, logged("selector(Scripted) historyBuffers(#0) lockedBuffers(#1)"));
    EXPECT_EQ(APP, callback->results.at(0).outputAppMetas.at(0)->getStreamInfo()->getStreamId());
    leavesPending = true;
}

}  // namespace
}  // namespace zebcam::test
