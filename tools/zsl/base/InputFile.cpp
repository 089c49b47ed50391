#include "base/InputFile.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <system_error>

#include "base/InputError.h"

namespace zebcam::tool::base {

namespace {

constexpr size_t kStartBytes = 64;

}  // namespace

InputFile::InputFile(std::string const& path)
    : mName(path == "-"    ? "<standard input>"
            : path.empty() ? "''"
                           : path),
      mStream(&mBuffer) {
    bool const isStandard = path == "-";
    std::error_code ignored;
    if (!isStandard && std::filesystem::is_directory(path, ignored)) {
        // A folder can be opened, and then fails with a read error that says nothing.
        throw InputError(fmt::format("{}: expected a file, found a folder", mName));
    }
    if (!isStandard) {
        mFile.open(path, std::ios::binary);
        if (!mFile) {
            throw InputError(
                fmt::format("{}: expected a readable file, found {}", mName, std::strerror(errno)));
        }
    }
    std::istream& source = isStandard ? std::cin : mFile;
    mStart.resize(kStartBytes);
    source.read(mStart.data(), kStartBytes);
    mStart.resize(static_cast<size_t>(source.gcount()));
    if (source.bad()) {
        mStream.setstate(std::ios::badbit);  // whoever reads says where
    }
    mBuffer.join(mStart, *source.rdbuf());
}

void InputFile::Rejoined::join(std::string& start, std::streambuf& rest) {
    setg(start.data(), start.data(), start.data() + start.size());
    mRest = &rest;
}

std::streambuf::int_type InputFile::Rejoined::underflow() {
    std::streamsize const size = mRest->sgetn(mBuffer, sizeof(mBuffer));
    if (size <= 0) {
        return traits_type::eof();
    }
    setg(mBuffer, mBuffer, mBuffer + size);
    return traits_type::to_int_type(mBuffer[0]);
}

}  // namespace zebcam::tool::base
