#pragma once

#include <csignal>
#include <optional>
#include <stdexcept>
#include <vector>

namespace zebcam::tool::base {

/// Somebody wants the program to end.
class Interrupted : public std::runtime_error {
public:
    explicit Interrupted(int signal);
    int signal() const { return mSignal; }

private:
    int mSignal;
};

/// Keeps SIGINT, SIGTERM and SIGHUP from ending the program while it lives, so that files and
/// children are cleared away first: they are to be read from fd() instead. One that is ignored
/// stays so; one that comes later than the last look takes effect when the watch ends.
class SignalWatch {
public:
    /// Watches `others` as well. Throws std::system_error.
    explicit SignalWatch(std::vector<int> const& others = {});
    ~SignalWatch();
    SignalWatch(SignalWatch const&) = delete;
    SignalWatch& operator=(SignalWatch const&) = delete;

    /// Readable when a signal has come.
    int fd() const { return mFd; }

    /// A signal that has come; none has.
    std::optional<int> take() const;

    /// Throws Interrupted if a signal has come.
    void throwIfAny() const;

    /// The state before the watch, for a child.
    void restoreMask() const;

private:
    sigset_t mBefore{};
    int mFd = -1;
};

}  // namespace zebcam::tool::base
