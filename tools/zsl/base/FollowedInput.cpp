#include "base/FollowedInput.h"

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace zebcam::tool::base {

namespace {

/// How often a file is looked at: often enough for people.
constexpr int kFileWaitMs = 200;

bool isRegular(int fd) {
    struct stat info {};
    return fstat(fd, &info) == 0 && S_ISREG(info.st_mode);
}

}  // namespace

FollowedInput::int_type FollowedInput::underflow() {
    bool const isFile = isRegular(mFd);
    while (true) {
        std::array<pollfd, 2> waits{pollfd{mWatch.fd(), POLLIN, 0}, pollfd{mFd, POLLIN, 0}};
        // A file is always readable, at its end too; only the time tells whether it grew.
        if (!isFile && poll(waits.data(), waits.size(), -1) < 0 && errno != EINTR) {
            return traits_type::eof();
        }
        if (!isFile && waits[0].revents != 0) {
            return traits_type::eof();
        }
        ssize_t const count = read(mFd, mBuffer.data(), mBuffer.size());
        if (count > 0) {
            setg(mBuffer.data(), mBuffer.data(), mBuffer.data() + count);
            return traits_type::to_int_type(*gptr());
        }
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0 || !isFile || poll(waits.data(), 1, kFileWaitMs) > 0) {
            return traits_type::eof();
        }
    }
}

}  // namespace zebcam::tool::base
