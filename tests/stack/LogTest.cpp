#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <host/Services.h>
#include <ulog/ULogPrinter.h>
#include <ulog/ULogger.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace zebcam::test {
namespace {

using host::LogCapture;
using host::LogLine;
using host::LogSettings;
using NSCam::Utils::ULog::ULogger;
using NSCam::Utils::ULog::ULogPrinter;
using testing::ElementsAre;

constexpr uint32_t MODULE = NSCam::Utils::ULog::MOD_PIPELINE_MODEL_ZSL;
constexpr uint32_t ALL = 0x207000;
constexpr uint32_t ANDROID_ONLY = 1;
constexpr uint32_t CAMERA_ONLY = 2;
constexpr uint32_t DUMP_ONLY = 8;

class LogTest : public testing::Test {
protected:
    /// What a printer of that level writes under these settings: "A" to the Android log, "C" to
    /// the camera logger, each with the level there.
    static std::vector<std::string> outputs(LogSettings const& settings, uint32_t level,
                                            std::string const& message = "line") {
        std::vector<std::string> seen;
        LogCapture const capture(settings, [&](LogLine const& line) {
            EXPECT_EQ(line.tag, "Tag");
            EXPECT_EQ(line.message, message);
            bool const isCamera = line.output == LogLine::Output::Camera;
            EXPECT_EQ(line.moduleId, isCamera ? MODULE : 0U);
            seen.push_back((isCamera ? "C" : "A") + std::to_string(line.level));
        });
        ULogPrinter printer(MODULE, "Tag", level);
        printer.printLine(message.c_str());
        printer.printFormatLine("%s", message.c_str());
        EXPECT_EQ(seen.size() % 2, 0U) << "the two ways to print are gated differently";
        seen.resize(seen.size() / 2);
        return seen;
    }
};

TEST_F(LogTest, GatesByDetailsLevelModuleAndMode) {
    struct {
        uint32_t mode;
        uint32_t details;
        uint32_t mask;
        uint32_t level;
        std::vector<std::string> expected;
    } const CASES[] = {
        {ANDROID_ONLY, 1, 0, 1, {"A6"}},
        {ANDROID_ONLY, 0, ALL, 1, {}},
        {ANDROID_ONLY, 2, 0, 2, {"A5"}},
        {ANDROID_ONLY, 1, ALL, 2, {}},
        {ANDROID_ONLY, 3, ALL, 3, {"A4"}},
        {ANDROID_ONLY, 2, ALL, 3, {}},
        {ANDROID_ONLY, 5, ALL, 5, {"A3"}},
        {ANDROID_ONLY, 4, ALL, 5, {}},
        {ANDROID_ONLY, 5, 0x208000, 3, {}},
        {ANDROID_ONLY, 5, 0x204000, 3, {"A4"}},
        {ANDROID_ONLY, 5, 0x200000, 3, {}},
        {ANDROID_ONLY, 5, 0x7000, 3, {}},
        {ANDROID_ONLY, 5, 0xffffffff, 3, {"A4"}},
        {CAMERA_ONLY, 5, ALL, 5, {"C5"}},
        {DUMP_ONLY, 5, ALL, 3, {"C3"}},
        {ANDROID_ONLY | CAMERA_ONLY | DUMP_ONLY, 2, 0, 2, {"A5", "C2"}},
        {0, 5, ALL, 1, {}},
        {4, 5, ALL, 1, {}},
    };
    for (auto const& c : CASES) {
        EXPECT_EQ(outputs({c.mode, c.details, c.mask}, c.level), c.expected)
            << "mode " << c.mode << " details " << c.details << " mask " << std::hex << c.mask
            << " level " << c.level;
    }
    EXPECT_THAT(outputs(LogSettings::camera(3), 3), ElementsAre("C3"));
    EXPECT_THAT(outputs(LogSettings::camera(3), 5), testing::IsEmpty());
}

TEST_F(LogTest, FormattedLinesAreCutAndPlainOnesAreNot) {
    std::string const longLine(3000, 'x');
    std::vector<size_t> lengths;
    LogCapture const capture(LogSettings::camera(5),
                             [&](LogLine const& line) { lengths.push_back(line.message.size()); });
    ULogPrinter printer(MODULE, "Tag", 3);
    printer.printFormatLine("%s", longLine.c_str());
    printer.printFormatLine("%.1023s", longLine.c_str());
    printer.printLine(longLine.c_str());
    printer.printLine(nullptr);
    EXPECT_THAT(lengths, ElementsAre(1023, 1023, 3000, 0));
}

TEST_F(LogTest, CaptureTakesBothOutputsAndPutsBackWhatWasThere) {
    auto const settings = [] {
        return std::vector<uint32_t>{ULogger::sMode, ULogger::sDetailsLevel,
                                     ULogger::sNormalDetailsMask};
    };
    EXPECT_THAT(settings(), ElementsAre(1, 2, 0)) << "without a setup: warnings, Android log";
    std::vector<std::string> seen;
    {
        LogCapture const capture({2, 5, 4}, [&](LogLine const& line) {
            seen.push_back(line.tag + ":" + std::to_string(line.level) + ":" + line.message);
        });
        EXPECT_THAT(settings(), ElementsAre(2, 5, 4));
        EXPECT_THROW(LogCapture({}, nullptr), std::logic_error);
        __android_log_print(ANDROID_LOG_VERBOSE, "Any", "a%d", 1);
        __android_log_write(ANDROID_LOG_ERROR, nullptr, "no tag");
    }
    EXPECT_THAT(settings(), ElementsAre(1, 2, 0));
    EXPECT_EQ(ULogger::sULogger, nullptr);
    __android_log_write(ANDROID_LOG_WARN, "Any", "after the capture");
    ASSERT_EQ(seen.size(), 2U);
    EXPECT_EQ(seen[0], "Any:2:a1");
    EXPECT_THAT(seen[1], testing::EndsWith(":6:no tag"));
    LogCapture const again({}, nullptr);
    __android_log_write(ANDROID_LOG_WARN, "Any", "into a capture without a sink");
    EXPECT_EQ(seen.size(), 2U);
}

}  // namespace
}  // namespace zebcam::test
