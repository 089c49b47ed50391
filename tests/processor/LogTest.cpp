#include "ZslFixture.h"

namespace zebcam::test {
namespace {

using ::testing::MatchesRegex;

TEST_F(ZslTest, LinesGoWhereTheSettingsSay) {
    constexpr uint32_t ALL = 0x20700c;
    struct {
        uint32_t mode, detailsLevel, mask;
        std::string camera, android;  ///< initials of the severities that get there, sorted
    } const gates[] = {
        {2, 5, ALL, "DEIW", ""},     {8, 5, ALL, "DEIW", ""},      {1, 5, ALL, "", "DEIW"},
        {3, 5, ALL, "DEIW", "DEIW"}, {11, 3, ALL, "EIW", "EIW"},   {2, 4, ALL, "EIW", ""},
        {2, 2, ALL, "EW", ""},       {3, 1, ALL, "E", "E"},        {3, 0, ALL, "E", "E"},
        {0, 5, ALL, "", ""},         {4, 5, ALL, "", ""},          {3, 5, 0x200000, "EW", "EW"},
        {3, 5, 0x7000, "EW", "EW"},  {2, 5, 0x201000, "DEIW", ""}, {2, 5, 0x204000, "DEIW", ""},
        {2, 5, 0x100fff, "EW", ""},  {3, 5, 0, "EW", "EW"},
    };
    std::pair<char, char const*> const samples[] = {{'E', "[configure] 1 ZSL pending requests"},
                                                    {'W', "[submitZslRequest] [requestNo:5]: fail"},
                                                    {'I', "[selectBuf_Locked] IN:"},
                                                    {'D', "[submitZslRequest] +"}};
    for (auto const& gate : gates) {
        std::set<char> camera, android;
        auto const note = [&](LogLine const& l) {
            for (auto const& [initial, text] : samples) {
                if (l.message.find(text) != std::string::npos) {
                    (l.output == LogLine::Output::Camera ? camera : android).insert(initial);
                }
            }
        };
        logCapture.reset();
        logCapture.emplace(LogSettings{gate.mode, gate.detailsLevel, gate.mask}, note);
        submit(capture(5));
        EXPECT_EQ(-38, zsl->configure(config()));
        flush();
        auto const at = ::testing::Message()
                        << gate.mode << " " << gate.detailsLevel << " " << std::hex << gate.mask;
        EXPECT_EQ(gate.camera, std::string(camera.begin(), camera.end())) << at;
        EXPECT_EQ(gate.android, std::string(android.begin(), android.end())) << at;
    }
}

TEST_F(ZslTest, EachOutputHasItsScaleAndErrorsTellWhere) {
    using Output = LogLine::Output;
    captureLog({3, 5, 0x20700c});
    submit(capture(5));
    zsl->configure(config());
    std::tuple<char const*, uint32_t, uint32_t, char const*> const cases[] = {
        {"1 ZSL pending", 6, 1, " \\(configure\\)\\{#[0-9]+:pipeline/model/zsl/ZslProcessor\\}"},
        {"[requestNo:5]: fail", 5, 2, ""},
        {"[selectBuf_Locked] IN:", 4, 3, ""},
        {"[submitZslRequest] +", 3, 5, ""}};
    for (auto const& [text, priority, level, suffix] : cases) {
        std::map<Output, LogLine> copies;
        for (auto const& l : log) {
            if (l.message.find(text) != std::string::npos) {
                copies[l.output] = l;
            }
        }
        auto const& android = copies[Output::Android];
        auto const& camera = copies[Output::Camera];
        EXPECT_EQ(priority, android.level);
        EXPECT_EQ(level, camera.level);
        EXPECT_EQ(0x20700cU, camera.moduleId);
        EXPECT_EQ("ZebCam/ZslProc", android.tag);
        EXPECT_EQ("ZebCam/ZslProc", camera.tag);
        ASSERT_EQ(0U, android.message.find(camera.message)) << text;
        auto const rest = android.message.substr(camera.message.size());
        EXPECT_THAT(rest, MatchesRegex(suffix));
    }
    leavesPending = true;
}

TEST_F(ZslTest, CameraLinesAreCutAt1023Bytes) {
    submit(capture(5, 40));
    EXPECT_EQ(1023U, line("[selectBuf_Locked] IN:").size());
    leavesPending = true;
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

TEST_F(ZslTest, OperationsAreTraced) {
    trace.names.clear();
    push({11});
    submit(capture(5).by(answering({{}, choose({{0, 11}})})));
    retry();
    zsl->onFrameUpdated(5, {});
    zsl->configure(config());
    flush();
    for (char const* name :
         {"submitZslRequest", "processZslPendingRequest", "onFrameUpdated", "callbackFakeShutter",
          "flush", "selectBuf_Locked", "buildFrame_Locked", "prepareHalImage", "prepareHalMeta",
          "prepareAppMeta", "configure"}) {
        EXPECT_THAT(trace.names, ::testing::Contains(name));
    }
}

}  // namespace
}  // namespace zebcam::test
