#pragma once

#include <array>
#include <streambuf>

#include "base/SignalWatch.h"

namespace zebcam::tool::base {

/// Gives what a file or pipe has as soon as it is there. At the end of a file it waits for more, as
/// a log that is being written gets it; it ends with a signal, and of a pipe with its writer.
class FollowedInput : public std::streambuf {
public:
    /// Both are borrowed.
    FollowedInput(int fd, SignalWatch const& watch) : mFd(fd), mWatch(watch) {}

private:
    int_type underflow() override;

    int const mFd;
    SignalWatch const& mWatch;
    std::array<char, 4096> mBuffer{};
};

}  // namespace zebcam::tool::base
