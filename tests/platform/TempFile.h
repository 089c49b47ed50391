#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>

namespace zebcam::test {

/// A file of this process alone, gone with the object.
class TempFile {
public:
    explicit TempFile(std::string const& name)
        : path(testing::TempDir() + std::to_string(getpid()) + name) {}
    TempFile(std::string const& name, std::string const& content) : TempFile(name) {
        std::ofstream(path) << content;
    }
    ~TempFile() { std::remove(path.c_str()); }
    TempFile(TempFile const&) = delete;
    TempFile& operator=(TempFile const&) = delete;

    std::string const path;
};

}  // namespace zebcam::test
