#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <queue>
#include <utility>
#include <vector>

namespace zebcam::tool::report {

/// Spreads slices that overlap over as few lanes as possible, so that those of one lane do not.
class Lanes {
public:
    explicit Lanes(size_t limit = std::numeric_limits<size_t>::max()) : mLimit(limit) {}

    /// The lowest lane that is free at `beginNs`, which must not descend from call to call; it is
    /// taken until `endNs`. None when all lanes are.
    std::optional<size_t> take(int64_t beginNs, int64_t endNs) {
        while (!mBusy.empty() && mBusy.top().first <= beginNs) {
            mFree.push(mBusy.top().second);
            mBusy.pop();
        }
        if (mFree.empty() && mCount == mLimit) {
            return std::nullopt;
        }
        size_t const lane = mFree.empty() ? mCount++ : mFree.top();
        if (!mFree.empty()) {
            mFree.pop();
        }
        mBusy.push({endNs, lane});
        return lane;
    }

private:
    template <typename T>
    using LeastFirst = std::priority_queue<T, std::vector<T>, std::greater<>>;

    size_t const mLimit;
    size_t mCount = 0;
    LeastFirst<std::pair<int64_t, size_t>> mBusy;  ///< by the end of their slices
    LeastFirst<size_t> mFree;
};

}  // namespace zebcam::tool::report
