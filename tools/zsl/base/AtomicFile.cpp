#include "base/AtomicFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <utility>

namespace fs = std::filesystem;

namespace zebcam::tool::base {

namespace {

constexpr char const* kStandardOutput = "-";

[[noreturn]] void fail(std::string const& path, std::string const& reason) {
    std::string const name = path == kStandardOutput ? "standard output" : "'" + path + "'";
    throw OutputError("cannot write " + name + ": " + reason);
}

// Streams lose the reason of a failure; the system call beneath has mostly left it in errno.
std::string systemReason() {
    return errno != 0 ? std::strerror(errno) : "the write failed";
}

}  // namespace

AtomicFile::AtomicFile(std::string path) : mPath(std::move(path)), mTarget(mPath) {
    if (mPath == kStandardOutput) {
        return;
    }
    std::error_code error;
    fs::file_status const status = fs::status(mPath, error);
    if (fs::is_directory(status)) {
        fail(mPath, "it is a folder");
    }
    if (fs::exists(status) && access(mPath.c_str(), W_OK) != 0) {
        fail(mPath, systemReason());
    }
    if (fs::is_regular_file(status)) {
        mTarget = fs::canonical(mPath, error).string();
    }
    if (!fs::is_other(status)) {
        createTemporary();
    }
}

AtomicFile::~AtomicFile() {
    discard();
}

std::ostream& AtomicFile::stream() {
    if (mTemporary.empty()) {
        return mBuffer;
    }
    return mFile;
}

void AtomicFile::createTemporary() {
    for (int attempt = 0;; ++attempt) {
        std::string const name =
            mTarget + ".tmp-" + std::to_string(getpid()) + "-" + std::to_string(attempt);
        int const fd = open(name.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0666);
        if (fd >= 0) {
            close(fd);
            mTemporary = name;
            break;
        }
        if (errno != EEXIST) {
            fail(mPath, systemReason());
        }
    }
    mFile.open(mTemporary, std::ios::binary);
    if (!mFile) {
        std::string const reason = systemReason();
        discard();
        fail(mPath, reason);
    }
}

void AtomicFile::commit() {
    if (mTemporary.empty()) {
        commitBuffer();
    } else {
        commitTemporary();
    }
}

void AtomicFile::commitTemporary() {
    errno = 0;
    mFile.close();
    bool moved = false;
    if (mFile) {
        std::error_code error;
        fs::file_status const old = fs::status(mTarget, error);
        if (fs::exists(old)) {
            fs::permissions(mTemporary, old.permissions(), error);
        }
        errno = 0;
        moved = std::rename(mTemporary.c_str(), mTarget.c_str()) == 0;
    }
    if (!moved) {
        std::string const reason = systemReason();
        discard();
        fail(mPath, reason);
    }
    mTemporary.clear();
}

void AtomicFile::commitBuffer() {
    errno = 0;
    bool done = false;
    if (mPath == kStandardOutput) {
        done = static_cast<bool>(std::cout << mBuffer.view() << std::flush);
    } else {
        std::ofstream device(mPath, std::ios::binary);
        device << mBuffer.view();
        device.close();
        done = static_cast<bool>(device);
    }
    if (!done) {
        fail(mPath, systemReason());
    }
}

void AtomicFile::discard() noexcept {
    if (!mTemporary.empty()) {
        unlink(mTemporary.c_str());
        mTemporary.clear();
    }
}

}  // namespace zebcam::tool::base
