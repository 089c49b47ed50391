#include "base/SignalWatch.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <system_error>

namespace zebcam::tool::base {

Interrupted::Interrupted(int signal)
    : std::runtime_error(std::string("interrupted: ") + strsignal(signal)), mSignal(signal) {
}

SignalWatch::SignalWatch(std::vector<int> const& others) {
    std::vector<int> signals = {SIGINT, SIGTERM, SIGHUP};
    signals.insert(signals.end(), others.begin(), others.end());
    sigset_t watched;
    sigemptyset(&watched);
    for (int const signal : signals) {
        // Blocking one that is ignored, as nohup makes it, would bring it back.
        struct sigaction action {};
        if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler != SIG_IGN) {
            sigaddset(&watched, signal);
        }
    }
    sigprocmask(SIG_BLOCK, &watched, &mBefore);
    mFd = signalfd(-1, &watched, SFD_CLOEXEC | SFD_NONBLOCK);
    if (mFd < 0) {
        // Kept: the call that clears up may change it.
        int const reason = errno;
        restoreMask();
        throw std::system_error(reason, std::generic_category(), "signalfd");
    }
}

// A signal that came meanwhile and was not asked for ends the program here.
SignalWatch::~SignalWatch() {
    close(mFd);
    restoreMask();
}

std::optional<int> SignalWatch::take() const {
    signalfd_siginfo info{};
    return read(mFd, &info, sizeof info) == static_cast<ssize_t>(sizeof info)
               ? std::optional(static_cast<int>(info.ssi_signo))
               : std::nullopt;
}

void SignalWatch::throwIfAny() const {
    if (auto const signal = take()) {
        throw Interrupted(*signal);
    }
}

void SignalWatch::restoreMask() const {
    sigprocmask(SIG_SETMASK, &mBefore, nullptr);
}

}  // namespace zebcam::tool::base
