#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "commands/Cli.h"

namespace zebcam::tool {

struct Outcome {
    int status = 0;
    std::string out;
    std::string err;
};

inline Outcome zsl(std::vector<std::string> const& arguments, bool showProgress = false) {
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

/// A test of the command line, with a folder of its own.
class CliTest : public testing::Test {
protected:
    CliTest() { std::filesystem::create_directories(mFolder); }
    ~CliTest() override { std::filesystem::remove_all(mFolder); }

    std::string path(std::string const& name) const { return mFolder + "/" + name; }

    std::string write(std::string const& name, std::string const& content) const {
        std::ofstream(path(name)) << content;
        return path(name);
    }

    /// Names of the files that are left in the folder.
    std::vector<std::string> files() const {
        std::vector<std::string> names;
        for (auto const& entry : std::filesystem::directory_iterator(mFolder)) {
            names.push_back(entry.path().filename());
        }
        return names;
    }

private:
    // Two checkouts may be tested at once.
    std::string const mFolder = testing::TempDir() + "zsl_" +
                                testing::UnitTest::GetInstance()->current_test_info()->name() +
                                std::to_string(getpid());
};

}  // namespace zebcam::tool
