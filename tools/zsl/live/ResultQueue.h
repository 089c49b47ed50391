#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <vector>

#include "sim/CaptureBook.h"

namespace zebcam::tool {

/// Built frames on their way through the pipeline: each comes out `delayNs` after it went in.
/// Thread-safe.
class ResultQueue {
public:
    explicit ResultQueue(int64_t delayNs) : mDelayNs(delayNs) {}

    void push(std::vector<BuiltFrame> const& frames);

    /// Nothing more goes in; what is left comes out at once.
    void close();

    /// Waits for the next frame that is due; none once the queue is closed and empty.
    std::optional<BuiltFrame> pop();

private:
    struct Entry {
        int64_t dueNs = 0;  ///< boot time
        BuiltFrame frame;
    };

    int64_t const mDelayNs;
    std::mutex mLock;
    std::condition_variable mWake;
    std::deque<Entry> mEntries;  ///< by the time that they are due
    bool mIsClosed = false;
};

}  // namespace zebcam::tool
