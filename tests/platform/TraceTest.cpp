#define ATRACE_TAG ATRACE_TAG_CAMERA
#include <cutils/trace.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <platform/Trace.h>
#include <platform/VirtualClock.h>
#include <sys/resource.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/TempFile.h"

namespace zebcam::test {
namespace {

using platform::TraceFile;
using testing::ElementsAre;

/// The events of a trace file by thread, as "B name ts" and "E ts".
std::map<int, std::vector<std::string>> eventsOf(std::string const& path) {
    std::map<int, std::vector<std::string>> events;
    for (auto const& event : nlohmann::json::parse(std::ifstream(path))) {
        EXPECT_EQ(event.at("pid"), getpid());
        std::string text = event.at("ph");
        if (event.contains("name")) {
            text += " " + event.at("name").get<std::string>();
        }
        events[event.at("tid")].push_back(text + " " + event.at("ts").dump());
    }
    return events;
}

TEST(TraceTest, WritesNestedSectionsOfEachThread) {
    TempFile const trace("nested.json");
    platform::VirtualClock clock({.bootTimeNs = 2'000'500});
    {
        auto const file = std::make_unique<TraceFile>(trace.path, ATRACE_TAG_CAMERA);
        ATRACE_END();  // opened before the file was there
        ATRACE_BEGIN("outer");
        clock.advance(1000);
        std::thread([] {
            ATRACE_BEGIN("elsewhere");
            ATRACE_END();
        }).join();
        ATRACE_BEGIN("quote\" slash\\ tab\t");
        ATRACE_END();
        ATRACE_BEGIN("cut off");
        clock.advance(1);
    }
    ATRACE_BEGIN("after the file");
    ATRACE_END();

    auto events = eventsOf(trace.path);
    EXPECT_THAT(events[gettid()],
                ElementsAre("B outer 2000.5", "B quote\" slash\\ tab\t 2001.5", "E 2001.5",
                            "B cut off 2001.5", "E 2001.501", "E 2001.501"));
    events.erase(gettid());
    ASSERT_EQ(events.size(), 1U);
    EXPECT_THAT(events.begin()->second, ElementsAre("B elsewhere 2001.5", "E 2001.5"));
}

TEST(TraceTest, AFileThatCannotBeWrittenIsNotAttached) {
    EXPECT_THROW(TraceFile("/no such folder/trace.json", 0), std::runtime_error);
    EXPECT_EQ(atrace_get_enabled_tags(), 0U);
}

TEST(TraceTest, TellsOfAFileThatIsNotWhole) {
    constexpr char COMPLAINT[] = "the trace file could not be written completely\n";
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit unlimited{};
    getrlimit(RLIMIT_FSIZE, &unlimited);
    TempFile const trace("limited.json");
    struct {
        std::string path;
        rlim_t limit;  ///< until the file ends
        char const* complaint;
    } const CASES[] = {
        {trace.path, unlimited.rlim_cur, ""},
        {"/dev/full", unlimited.rlim_cur, COMPLAINT},
        {trace.path, 100, COMPLAINT},
    };
    for (auto const& c : CASES) {
        auto file = std::make_unique<TraceFile>(c.path, ATRACE_TAG_CAMERA);
        rlimit const limited{c.limit, unlimited.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limited);
        for (int i = 0; i < 200; ++i) {  // more than the file buffers
            ATRACE_BEGIN("section");
        }
        setrlimit(RLIMIT_FSIZE, &unlimited);
        testing::internal::CaptureStderr();
        file.reset();
        EXPECT_EQ(testing::internal::GetCapturedStderr(), c.complaint) << c.path << c.limit;
    }
}

TEST(TraceDeathTest, TracesTheWholeProcessOnRequest) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");  // a new process, which loads the library
    TempFile const trace("process.json");
    setenv(platform::TRACE_FILE_VARIABLE, trace.path.c_str(), 1);
    EXPECT_EXIT(
        {
            ATRACE_BEGIN("to the end");
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
    unsetenv(platform::TRACE_FILE_VARIABLE);
    auto const events = nlohmann::json::parse(std::ifstream(trace.path));
    ASSERT_EQ(events.size(), 2U);
    EXPECT_EQ(events[0]["name"], "to the end");
    EXPECT_EQ(events[1]["ph"], "E");
}

}  // namespace
}  // namespace zebcam::test
