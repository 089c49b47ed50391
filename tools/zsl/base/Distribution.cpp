#include "base/Distribution.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace zebcam::tool::base {

void Distribution::add(int64_t ns) {
    int64_t const value = std::max<int64_t>(ns, 0);
    mMin = mCount == 0 ? value : std::min(mMin, value);
    mMax = std::max(mMax, value);
    ++mCount;
    ++mCounts[bucketOf(static_cast<uint64_t>(value))];
}

int64_t Distribution::quantile(double share) const {
    if (mCount == 0) {
        return 0;
    }
    auto const rank = static_cast<uint64_t>(std::ceil(share * static_cast<double>(mCount)));
    uint64_t seen = 0;
    for (size_t bucket = 0; bucket < BUCKETS; ++bucket) {
        seen += mCounts[bucket];
        if (seen >= std::max<uint64_t>(rank, 1)) {
            return std::clamp(endOf(bucket), mMin, mMax);
        }
    }
    return mMax;
}

// Up to 2 x STEPS a bucket for each value, then STEPS buckets for each power of two.
size_t Distribution::bucketOf(uint64_t ns) {
    if (ns < 2 * STEPS) {
        return static_cast<size_t>(ns);
    }
    auto const shift = static_cast<size_t>(std::bit_width(ns / (2 * STEPS)));
    return shift * STEPS + static_cast<size_t>(ns >> shift);
}

int64_t Distribution::endOf(size_t bucket) {
    if (bucket < 2 * STEPS) {
        return static_cast<int64_t>(bucket);
    }
    size_t const shift = bucket / STEPS - 1;
    uint64_t const step = bucket - shift * STEPS;
    return static_cast<int64_t>(((step + 1) << shift) - 1);
}

}  // namespace zebcam::tool::base
