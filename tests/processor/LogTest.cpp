#include "ZslFixture.h"

namespace zebcam::test {
namespace {

using ::testing::MatchesRegex;

/// A kind of line, its level at each output and what the Android log gets beside.
struct Sample {
    char initial;
    char const* text;
    uint32_t android, camera;
    char const* suffix;
};
Sample const SAMPLES[] = {
    {'E', "1 ZSL pending", 6, 1, " \\(configure\\)\\{#[0-9]+:pipeline/model/zsl/ZslProcessor\\}"},
    {'W', "[requestNo:5]: fail", 5, 2, ""},
    {'I', "[selectBuf_Locked] IN:", 4, 3, ""},
    {'D', "[submitZslRequest] +", 3, 5, ""}};

TEST_F(ZslTest, LinesGoWhereTheSettingsSayWithTheLevelsThere) {
    constexpr uint32_t ALL = 0x20700c;
    struct {
        uint32_t mode, detailsLevel, mask;
        std::string camera, android;  ///< initials of the lines that get there
    } const gates[] = {
        {2, 5, ALL, "EWID", ""},      {8, 5, ALL, "EWID", ""},      {1, 5, ALL, "", "EWID"},
        {11, 3, ALL, "EWI", "EWI"},   {2, 4, ALL, "EWI", ""},       {2, 2, ALL, "EW", ""},
        {3, 1, ALL, "E", "E"},        {3, 0, ALL, "E", "E"},        {0, 5, ALL, "", ""},
        {4, 5, ALL, "", ""},          {3, 5, 0x200000, "EW", "EW"}, {3, 5, 0x7000, "EW", "EW"},
        {2, 5, 0x201000, "EWID", ""}, {2, 5, 0x204000, "EWID", ""}, {3, 5, 0, "EW", "EW"},
        {3, 5, ALL, "EWID", "EWID"},
    };
    for (auto const& gate : gates) {
        SCOPED_TRACE(::testing::Message()
                     << gate.mode << " " << gate.detailsLevel << " " << std::hex << gate.mask);
        log.clear();
        captureLog({gate.mode, gate.detailsLevel, gate.mask});
        submit(capture(5));
        EXPECT_EQ(-38, zsl->configure(config()));
        flush();
        std::string camera, android;
        for (auto const& sample : SAMPLES) {
            std::map<LogLine::Output, LogLine> copies;
            for (auto const& copy : log) {
                if (copy.message.find(sample.text) != std::string::npos) {
                    copies[copy.output] = copy;
                    bool const isCamera = copy.output == LogLine::Output::Camera;
                    EXPECT_EQ(isCamera ? sample.camera : sample.android, copy.level);
                    EXPECT_EQ(isCamera ? ALL : 0, copy.moduleId);
                    EXPECT_EQ("ZebCam/ZslProc", copy.tag);
                }
            }
            camera += std::string(copies.count(LogLine::Output::Camera), sample.initial);
            android += std::string(copies.count(LogLine::Output::Android), sample.initial);
            if (copies.size() == 2) {
                auto const& said = copies[LogLine::Output::Camera].message;
                auto const& full = copies[LogLine::Output::Android].message;
                ASSERT_EQ(0U, full.find(said));
                EXPECT_THAT(full.substr(said.size()), MatchesRegex(sample.suffix));
            }
        }
        EXPECT_EQ(gate.camera, camera);
        EXPECT_EQ(gate.android, android);
    }
}

TEST_F(ZslTest, RecordsHaveATextForm) {
    push({11});
    auto wanted = captureOf(5, {FRAME_TYPE_SUB, 5});
    wanted.required(0) = {{YUV, RAW}, {}, {APP}};
    wanted.by(answering({choose({{0, 11}, {1, NO_FRAME}})}));
    submit(wanted);
    EXPECT_THAT(
        line("[selectBuf_Locked] IN:"),
        MatchesRegex("\\[selectBuf_Locked\\] IN:\\{ requestNo=5 duration=0 zsdTs=100000000000 "
                     "pHBP=0x[0-9a-f]+ vFrameObj=\n0-\\{ required=\\{ halImages\\{21 22 \\} "
                     "halMetas\\{\\} appMetas\\{100000024 \\} \\} pFB=0x[0-9a-f]+\\(SUB\\) \\}\n"
                     "1-\\{ required=\\{ halImages\\{21 \\} halMetas\\{10000001b \\} "
                     "appMetas\\{100000024 \\} \\} pFB=0x[0-9a-f]+\\(\\?\\) \\} \\}"));
    EXPECT_THAT(line("{ hbs=X"), MatchesRegex("\\[selectBuf_Locked\\] \\{ hbs=X pFB=0x[0-9a-f]+"
                                              "\\(\\?\\) addiMeta\\(#0\\) \\}"));
    EXPECT_EQ(1U, logged("[selectBuf_Locked] OUT(#2):"));
}

class AskedBuffer final : public IImageStreamBuffer {
public:
    IImageStreamInfo* getStreamInfo() const override { return ++asked, imageStream(YUV).get(); }
    bool hasError() const override { return false; }
    void reset() override {}
    void setUsersManager(android::sp<NSCam::v3::Utils::UsersManager> const&) override {}
    void releaseBuffer() override {}

    mutable int asked = 0;
};

TEST_F(ZslTest, LockedSetsHaveTheirTextMadeOnlyForALineThatGoesOut) {
    android::sp<AskedBuffer> const image = new AskedBuffer;
    auto set = ExposedFrame(11).set();
    set.halImage.push_back(image);
    history->arrive(std::move(set));
    history->announce(12);
    submit(capture(5).by(answering({choose({{0, 12}}, {{11, LOCK}})})));
    for (uint32_t level : {2U, 3U}) {
        captureLog(LogSettings::camera(level));
        image->asked = 0;
        retry();  // without a selector, which would ask, too
        EXPECT_EQ(level == 3, image->asked > 0);
    }
    leavesPending = true;
}

TEST_F(ZslTest, ProviderStateIsAddedWhenSet) {
    captureLog({3, 5, 0x20700c});
    for (bool dump : {false, true}) {
        EXPECT_PASSES_IN_NEW_PROCESS([this, dump] {
            setProperty("vendor.debug.camera.zsl.dumpfbm", dump ? "1" : "0");
            push({11, 12});
            EXPECT_EQ("[5.0=F11]", submit(capture(5)));
            EXPECT_EQ(dump, logged("HistoryProvider") > 0);
            setProperty("vendor.debug.camera.zsl.dumpfbm", dump ? "0" : "1");
            log.clear();
            submit(capture(6));
            EXPECT_EQ(dump, logged("HistoryProvider") > 0) << "read once";
        });
    }
}

}  // namespace
}  // namespace zebcam::test
