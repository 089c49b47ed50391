#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "commands/Commands.h"

namespace zebcam::tool {

/// Results keep the order of their fields.
using Json = nlohmann::ordered_json;

using Arguments = std::vector<std::string>;

inline Arguments plus(Arguments all, Arguments const& more) {
    all.insert(all.end(), more.begin(), more.end());
    return all;
}

struct Outcome {
    int status = 0;
    std::string out;
    std::string err;
};

inline Outcome zsl(Arguments const& arguments, bool showProgress = false) {
    std::vector<char const*> argv = {"zsl"};
    for (std::string const& argument : arguments) {
        argv.push_back(argument.c_str());
    }
    std::ostringstream out;
    std::ostringstream err;
    int const status =
        commands::runCli(static_cast<int>(argv.size()), argv.data(), {out, err, showProgress});
    return {status, out.str(), err.str()};
}

/// Where a line of text breaks depends on how long the names of folders are.
inline std::string unwrapped(std::string const& text) {
    std::istringstream words(text);
    std::string line;
    for (std::string word; words >> word;) {
        line += line.empty() ? word : " " + word;
    }
    return line;
}

inline std::string contentOf(std::string const& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// What an action says when it fails.
template <typename Action>
std::string errorOf(Action const& action) {
    try {
        action();
    } catch (std::exception const& error) {
        return error.what();
    }
    return "no error";
}

/// A test of the command line, with a folder of its own.
class CliTest : public testing::Test {
protected:
    struct Refusal {
        Arguments arguments;
        std::string told;
    };

    CliTest() { std::filesystem::create_directories(mFolder); }
    ~CliTest() override { std::filesystem::remove_all(mFolder); }

    std::string path(std::string const& name) const { return mFolder + "/" + name; }

    std::string write(std::string const& name, std::string const& content) const {
        std::filesystem::create_directories(std::filesystem::path(path(name)).parent_path());
        std::ofstream(path(name)) << content;
        return path(name);
    }

    /// Names of the files that are left in the folder, or in one that it has.
    std::vector<std::string> files(std::string const& folder = "") const {
        std::vector<std::string> names;
        for (auto const& entry : std::filesystem::directory_iterator(path(folder))) {
            names.push_back(entry.path().filename());
        }
        return names;
    }

    /// Each of these ends with status 2 and a word on why, and leaves no output.
    void expectRefused(Arguments const& command, std::vector<Refusal> const& table) const {
        auto const before = files();
        for (auto const& [arguments, told] : table) {
            Outcome const outcome = zsl(plus(command, arguments));
            EXPECT_EQ(outcome.status, 2) << told;
            EXPECT_EQ(outcome.out, "") << told;
            EXPECT_THAT(outcome.err, testing::HasSubstr(told));
            EXPECT_LE(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 2) << outcome.err;
            EXPECT_THAT(files(), testing::UnorderedElementsAreArray(before)) << told;
        }
    }

private:
    // Two checkouts may be tested at once.
    std::string const mFolder = testing::TempDir() + "zsl_" +
                                testing::UnitTest::GetInstance()->current_test_info()->name() +
                                std::to_string(getpid());
};

}  // namespace zebcam::tool
