#pragma once

#include <fstream>
#include <istream>
#include <memory>
#include <streambuf>
#include <string>
#include <string_view>

namespace zebcam::tool::base {

/// A file to read, or standard input for the path `-`, whose kind shows in its first bytes.
class InputFile {
public:
    /// Throws InputError, naming the path, when it cannot be read.
    explicit InputFile(std::string const& path);

    std::string const& name() const { return mName; }

    /// The first bytes; fewer where there are no more.
    std::string_view start() const { return mStart; }

    /// All of it, from the first byte.
    std::istream& stream() { return mStream; }

private:
    /// Gives the bytes that were read first, then the others. A pipe cannot be rewound.
    class Rejoined : public std::streambuf {
    public:
        void join(std::string& start, std::streambuf& rest);

    private:
        int_type underflow() override;

        std::streambuf* mRest = nullptr;
        char mBuffer[4096];
    };

    std::string mName;
    std::ifstream mFile;
    std::string mStart;
    Rejoined mBuffer;
    std::istream mStream;
};

}  // namespace zebcam::tool::base
