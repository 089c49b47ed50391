#include "compare/ChildPool.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <list>
#include <system_error>
#include <utility>
#include <vector>

#include "compare/Child.h"

namespace zebcam::tool {
namespace {

/// Waits until a child has something to say or its time is over, or a signal comes.
void waitForAny(std::list<Child> const& children, SignalWatch const& signals) {
    std::vector<pollfd> fds = {{signals.fd(), POLLIN, 0}};
    Child::Clock::time_point deadline = Child::Clock::time_point::max();
    for (Child const& child : children) {
        fds.push_back({child.resultFd(), POLLIN, 0});
        fds.push_back({child.outputFd(), POLLIN, 0});
        deadline = std::min(deadline, child.deadline());
    }
    auto const left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - Child::Clock::now()).count();
    // An hour at most, which is how long a time-out may be.
    int const timeoutMs = static_cast<int>(std::clamp<int64_t>(left, 0, 3'600'000));
    if (poll(fds.data(), fds.size(), timeoutMs) < 0 && errno != EINTR) {
        throw std::system_error(errno, std::generic_category(), "poll");
    }
    signals.throwIfAny();
}

}  // namespace

void runInChildren(size_t tasks, ChildPoolOptions const& options, SignalWatch const& signals,
                   ChildTask const& task, ChildListener const& onEnd) {
    std::list<Child> children;
    for (size_t next = 0; next < tasks || !children.empty();) {
        while (next < tasks && children.size() < options.jobs) {
            children.emplace_back(next++, options, signals, task);
        }
        waitForAny(children, signals);
        for (auto child = children.begin(); child != children.end();) {
            if (child->read()) {
                ++child;
            } else {
                onEnd(child->task(), child->finish());
                child = children.erase(child);
            }
        }
    }
}

}  // namespace zebcam::tool
