#include <android/log.h>
#include <ulog/ULogPrinter.h>
#include <ulog/ULogger.h>

#include <stdexcept>

#include "processor/ZslFixture.h"

namespace zebcam::test {
namespace {

using NSCam::Utils::ULog::ULogger;
using NSCam::Utils::ULog::ULogPrinter;
using testing::ElementsAre;

constexpr uint32_t MODULE = NSCam::Utils::ULog::MOD_PIPELINE_MODEL_ZSL;

TEST(LogTest, FormattedLinesAreCutAndPlainOnesAreNot) {
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

TEST(LogTest, CaptureTakesBothOutputsAndPutsBackWhatWasThere) {
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
