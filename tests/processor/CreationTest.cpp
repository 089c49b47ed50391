#include "ZslFixture.h"

namespace zebcam::test {
namespace {

TEST_F(ZslTest, TimeSourceOfTheDeviceDecidesTheClock) {
    constexpr char BOOT[] = "mTimeSource(1) mFakeShutterNs(100000000000)";
    constexpr char NO_ENTRY[] =
        "[getTimeSource] can not get ZEB_SENSOR_INFO_TIMESTAMP_SOURCE, use REALTIME as default";
    struct {
        bool hasDevice;
        std::optional<uint8_t> entry;
        std::string settings, warning;
        int64_t now;
    } const cases[] = {
        {false, {}, BOOT, "[getTimeSource] openId(3): can not get IMetadataProvider", SHUTTER},
        {true, {}, BOOT, NO_ENTRY, SHUTTER},
        {true, 1, BOOT, "", SHUTTER},
        {true, 0, "mTimeSource(0) mFakeShutterNs(40000000000)", "", MONOTONIC}};
    for (auto const& c : cases) {
        SCOPED_TRACE(c.settings + c.warning);
        IMetadata characteristics;
        if (c.entry) {
            put<uint8_t>(characteristics, ZEB_SENSOR_INFO_TIMESTAMP_SOURCE, *c.entry);
        }
        device.reset();
        if (c.hasDevice) {
            device.emplace(3, characteristics);
        }
        log.clear();
        start();
        auto const selector = answering({});
        submit(capture(5).by(selector));
        EXPECT_EQ(1U, logged("[ZslProcessor] " + c.settings));
        EXPECT_EQ(c.warning, line("[getTimeSource] "));
        EXPECT_EQ(c.now, selector->seen.at(0).zsdTs);
        EXPECT_EQ(c.now + 1000, callback->shutters().back().second);
        flush();
    }
}

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

}  // namespace
}  // namespace zebcam::test
