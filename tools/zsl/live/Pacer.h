#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <stop_token>

namespace zebcam::tool {

/// Waits, in one thread, for moments of the boot-time clock.
class Pacer {
public:
    explicit Pacer(std::stop_token stop) : mStop(std::move(stop)) {}

    /// Waits until `bootNs`, or not at all when that has passed. False when the thread is to stop.
    bool waitUntil(int64_t bootNs);

private:
    std::stop_token const mStop;
    std::mutex mLock;
    std::condition_variable_any mWake;
};

}  // namespace zebcam::tool
