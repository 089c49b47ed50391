#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <metadata/MetadataTags.h>
#include <policy/zsl/RecordedColumns.h>

#include <filesystem>
#include <regex>
#include <set>
#include <sstream>

#include "CliFixture.h"
#include "commands/Help.h"
#include "compare/ComparisonFields.h"
#include "picture/VideoFile.h"
#include "pipeline/FrameFactory.h"
#include "pipeline/MetadataAccess.h"
#include "pipeline/ProcessorProperties.h"
#include "pipeline/ReplayOptions.h"
#include "recording/Recording.h"
#include "report/Page.h"

namespace zebcam::tool {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

constexpr char const* kCommands[] = {"replay",  "live", "camera", "generate", "explain",
                                     "compare", "list", "help",   "version"};

class Help : public CliTest {
protected:
    /// What a command prints for a terminal of that width.
    static std::string told(Arguments const& arguments, size_t columns) {
        std::vector<char const*> argv = {"zsl"};
        for (std::string const& argument : arguments) {
            argv.push_back(argument.c_str());
        }
        std::ostringstream out, err;
        EXPECT_EQ(commands::runCli(static_cast<int>(argv.size()), argv.data(),
                                   {out, err, false, {.columns = columns}, {}}),
                  0)
            << err.str();
        return out.str();
    }
};

TEST_F(Help, FitsTheTerminalAndIsTheSameHoweverAsked) {
    for (std::string const command : kCommands) {
        std::istringstream lines(told({"help", command}, 80));
        for (std::string line; std::getline(lines, line);) {
            EXPECT_LE(line.size(), 80U) << command << ": " << line;
        }
        EXPECT_EQ(told({"help", command}, 80), told({command, "--help"}, 80));
        EXPECT_EQ(told({"version"}, 80), told({command, "--version"}, 80));
        EXPECT_THAT(told({"help"}, 80), HasSubstr("\n  " + command + " "));
        std::string const page(commands::guideOf(command).page);
        EXPECT_TRUE(fs::exists(fs::path(ZSL_ROOT) / "docs" / page)) << page;
    }
    EXPECT_EQ(told({"help"}, 80), told({"--help"}, 80));
    EXPECT_EQ(told({"version"}, 80), told({"-V"}, 80));
    std::string const folder = path("share");
    EXPECT_EQ(zsl({"write-manual", folder}).status, 0);
    EXPECT_THAT(
        contentOf(folder + "/man/man1/zsl-live.1"),
        testing::AllOf(HasSubstr("\\-\\-press\\-every\\fR"), HasSubstr("\\-\\-any\\-rate\\fR\n")));
}

TEST_F(Help, IsNoLongerThanTheDocumentation) {
    std::regex const option("\n  (?:-\\w,)?(--[\\w-]+)");
    for (std::string const command : {"replay", "live", "camera", "explain", "compare"}) {
        std::string const page = contentOf(std::string(ZSL_ROOT) + "/docs/" +
                                           std::string(commands::guideOf(command).page));
        std::string const help = told({"help", command}, 100);
        for (std::sregex_iterator each(help.begin(), help.end(), option), end; each != end;
             ++each) {
            if ((*each)[1] != "--help" && (*each)[1] != "--version") {
                EXPECT_THAT(page, HasSubstr("`" + (*each)[1].str())) << command;
            }
        }
    }
}

// What needs a device, a second tool or its own time is left out.
TEST_F(Help, GivesExamplesThatWork) {
    ASSERT_EQ(zsl({"generate", "-o", path("w.csv"), "--frames", "100"}).status, 0);
    size_t tried = 0;
    for (std::string const command : kCommands) {
        for (auto const& [example, meaning] : commands::guideOf(command).examples) {
            std::string const here = std::regex_replace(
                std::string(example), std::regex("([*]|walk|made)[.](?=csv|html|mp4)"), path("w."));
            Arguments arguments;
            std::istringstream words(std::regex_replace(here, std::regex("'"), ""));
            std::string word;
            for (words >> word; words >> word;) {
                arguments.push_back(word);
            }
            bool const hasPage = report::reportPage() != nullptr || !here.ends_with("html");
            bool const hasVideo = picture::canReadVideos() || here.find("mp4") == std::string::npos;
            if (command == "live" || command == "camera" || command == "explain" || !hasPage ||
                !hasVideo || here.find(" | ") != std::string::npos) {
                continue;
            }
            Outcome const outcome = zsl(arguments);
            EXPECT_LE(outcome.status, 1) << example << ": " << outcome.err;
            ++tried;
        }
    }
    EXPECT_GE(tried, 9U);
}

TEST_F(Help, NamesEveryPropertyThatTheProcessorReads) {
    std::set<std::string> read;
    std::regex const call("property_get\\w*\\(\\s*\"([^\"]+)\"");
    for (auto const& file : fs::directory_iterator(fs::path(ZSL_ROOT) / "pipeline/model/zsl")) {
        std::string const source = contentOf(file.path());
        for (std::sregex_iterator each(source.begin(), source.end(), call), end; each != end;
             ++each) {
            read.insert((*each)[1]);
        }
    }
    std::set<std::string> known;
    std::string const page = contentOf(std::string(ZSL_ROOT) + "/docs/replay.md");
    for (pipeline::ProcessorProperty const& property : pipeline::PROCESSOR_PROPERTIES) {
        known.emplace(property.name);
        EXPECT_THAT(page, HasSubstr("`" + std::string(property.name) + "`"));
    }
    EXPECT_EQ(known, read);
    EXPECT_FALSE(read.empty());
}

TEST_F(Help, HasPagesThatNameWhatTheyAreAbout) {
    std::vector<std::pair<char const*, std::string>> names;
    for (pipeline::FaultTraits const& fault : pipeline::FAULT_KINDS) {
        names.emplace_back("faults.md", fault.name);
    }
    for (size_t i = 0; i < recording::COLUMN_COUNT; ++i) {
        names.emplace_back("recordings.md", headerOf(static_cast<recording::Column>(i)));
    }
    for (compare::ComparisonField const& field : compare::comparisonFields()) {
        names.emplace_back("compare.md", field.name);
    }
    for (auto const& [page, name] : names) {
        EXPECT_THAT(contentOf(std::string(ZSL_ROOT) + "/docs/" + page), HasSubstr("`" + name + "`"))
            << page;
    }
}

TEST_F(Help, ListsTheTagsThatAFrameCarries) {
    recording::SensorFrame frame;
    frame.afMode = frame.afState = frame.lensState = 0;
    frame.aeStable = frame.sensorId = frame.sensorMode = 0;
    frame.frameSync = 0;
    frame.iso = 100;
    frame.exposureNs = 1;
    frame.focusDistance = 1.0F;
    frame.picture = {1, 1, 1, 1};
    frame.exposureNs = 1;
    frame.data = {{NSCam::ZslPolicy::RECORDED_COLUMN_FIRST, 1.0}};
    auto const set = pipeline::FrameFactory().sensorFrame(frame);
    std::string const listed = told({"list", "tags"}, 200);
    std::regex const row("((?:ANDROID|ZEB|PICTURE)_\\w+) +0x([0-9a-f]{8})");
    size_t rows = 0;
    for (std::sregex_iterator each(listed.begin(), listed.end(), row), end; each != end; ++each) {
        auto const tag = static_cast<uint32_t>(std::stoul((*each)[2], nullptr, 16));
        auto const& buffer = tag >= 0xc0000000 ? set.halMeta.front() : set.appMeta.front();
        NSCam::IMetadata* const metadata = buffer->tryReadLock("test");
        EXPECT_FALSE(metadata->entryFor(tag).isEmpty()) << (*each)[1];
        buffer->unlock("test", metadata);
        ++rows;
    }
    EXPECT_GE(rows, 18U);
}

}  // namespace
}  // namespace zebcam::tool
