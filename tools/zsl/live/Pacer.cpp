#include "live/Pacer.h"

#include <utils/Timers.h>

#include <chrono>

namespace zebcam::tool {

bool Pacer::waitUntil(int64_t bootNs) {
    std::unique_lock lock(mLock);
    while (!mStop.stop_requested()) {
        std::chrono::nanoseconds const left(bootNs - systemTime(SYSTEM_TIME_BOOTTIME));
        if (left.count() <= 0) {
            return true;
        }
        mWake.wait_for(lock, mStop, left, [] { return false; });
    }
    return false;
}

}  // namespace zebcam::tool
