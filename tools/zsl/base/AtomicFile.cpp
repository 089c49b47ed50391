#include "base/AtomicFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <utility>

namespace fs = std::filesystem;

namespace zebcam::tool::base {

namespace {

/// Paths of the temporary files that there are. A command has few; what finds no place is not
/// removed when the program crashes.
std::array<std::atomic<char const*>, 16> gTemporaries{};
/// Who made them: a child that was forked has a copy of the list, and must let its parent's be.
std::atomic<pid_t> gOwner{0};

void replaceNoted(char const* from, char const* to) {
    for (auto& noted : gTemporaries) {
        if (char const* expected = from; noted.compare_exchange_strong(expected, to)) {
            return;
        }
    }
}

// Streams lose the reason of a failure; the system call beneath has mostly left it in errno.
std::string systemReason() {
    return errno != 0 ? std::strerror(errno) : "the write failed";
}

}  // namespace

AtomicFile::AtomicFile(std::string path, Unopened) : mPath(std::move(path)), mTarget(mPath) {
}

// Once the other constructor is done, the destructor runs however this one ends: a temporary file
// that cannot be opened is removed.
AtomicFile::AtomicFile(std::string path) : AtomicFile(std::move(path), Unopened()) {
    std::error_code error;
    fs::file_status const status = fs::status(mPath, error);
    if (fs::is_directory(status)) {
        fail("it is a folder");
    }
    // A rename asks the folder alone whether it may be written.
    if (fs::exists(status) && access(mPath.c_str(), W_OK) != 0) {
        fail(systemReason());
    }
    if (fs::is_regular_file(status)) {
        mTarget = fs::canonical(mPath, error).string();
    }
    if (!fs::is_other(status)) {
        createTemporary();
    }
    errno = 0;
    mFile.open(mTemporary.empty() ? mTarget : mTemporary, std::ios::binary);
    if (!mFile) {
        fail(systemReason());
    }
}

AtomicFile::~AtomicFile() {
    if (!mTemporary.empty()) {
        unlink(mTemporary.c_str());
        replaceNoted(mTemporary.c_str(), nullptr);
    }
}

void AtomicFile::removeTemporaries() {
    if (gOwner != getpid()) {
        return;
    }
    for (auto const& noted : gTemporaries) {
        if (char const* const path = noted) {
            unlink(path);
        }
    }
}

/// Beside the target, because a rename cannot leave a file system.
void AtomicFile::createTemporary() {
    int fd = -1;
    for (int attempt = 0; fd < 0; ++attempt) {
        std::string name =
            mTarget + ".tmp-" + std::to_string(getpid()) + "-" + std::to_string(attempt);
        fd = open(name.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0666);
        if (fd >= 0) {
            mTemporary = std::move(name);
            gOwner = getpid();
            replaceNoted(nullptr, mTemporary.c_str());
        } else if (errno != EEXIST) {
            fail(systemReason());
        }
    }
    close(fd);
}

void AtomicFile::commit() {
    errno = 0;
    mFile.close();
    if (!mFile) {
        fail(systemReason());
    }
    if (mTemporary.empty()) {
        return;
    }
    std::error_code error;
    if (fs::file_status const old = fs::status(mTarget, error); fs::exists(old)) {
        // A file that is replaced stays open to whom it was open.
        fs::permissions(mTemporary, old.permissions(), error);
    }
    if (std::rename(mTemporary.c_str(), mTarget.c_str()) != 0) {
        fail(systemReason());
    }
    replaceNoted(mTemporary.c_str(), nullptr);
    mTemporary.clear();
}

void AtomicFile::fail(std::string const& reason) const {
    throw OutputError("cannot write '" + mPath + "': " + reason);
}

namespace {

std::string withoutSlash(std::string path) {
    path.resize(std::max<size_t>(1, path.find_last_not_of('/') + 1));
    return path;
}

}  // namespace

AtomicFolder::AtomicFolder(std::string path) : mPath(withoutSlash(std::move(path))) {
    std::error_code error;
    mIsNew = fs::create_directory(mPath, error);
    if (error) {
        fail(error);
    }
    // Inside, because a rename cannot leave a file system.
    std::string const temporary = mPath + "/tmp-" + std::to_string(getpid());
    if (!fs::create_directory(temporary, error) && !error) {
        error = std::make_error_code(std::errc::file_exists);
    }
    if (error) {
        std::error_code ignored;
        if (mIsNew) {
            fs::remove(mPath, ignored);
        }
        fail(error);
    }
    mTemporary = temporary;
}

AtomicFolder::~AtomicFolder() {
    std::error_code ignored;
    fs::remove_all(mTemporary, ignored);
    if (mIsNew) {
        fs::remove(mPath, ignored);  // which leaves one that has something in it
    }
}

void AtomicFolder::commit(std::vector<std::string> const& names) const {
    for (std::string const& name : names) {
        std::error_code error;
        fs::rename(newFile(name), file(name), error);
        if (error) {
            fail(error);
        }
    }
}

void AtomicFolder::fail(std::error_code const& error) const {
    throw OutputError("cannot write to the folder '" + mPath + "': " + error.message());
}

}  // namespace zebcam::tool::base
