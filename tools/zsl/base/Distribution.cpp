#include "base/Distribution.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <numeric>

namespace zebcam::tool::base {

namespace {

/// The rank, from 1, of the value that a share of `count` values does not exceed.
uint64_t nearestRank(uint64_t count, double share) {
    return std::max<uint64_t>(static_cast<uint64_t>(std::ceil(share * static_cast<double>(count))),
                              1);
}

}  // namespace

Spread spreadOf(std::vector<int64_t> values) {
    if (values.empty()) {
        return {};
    }
    std::sort(values.begin(), values.end());
    size_t const n = values.size();
    return {.count = n,
            .min = values.front(),
            .median = std::midpoint(values[(n - 1) / 2], values[n / 2]),
            .p95 = values[nearestRank(n, 0.95) - 1],
            .max = values.back()};
}

void Distribution::add(int64_t ns) {
    // Where a clock went back, the duration was short, whatever the difference says.
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
    uint64_t const rank = nearestRank(mCount, share);
    uint64_t seen = 0;
    for (size_t bucket = 0; bucket < BUCKETS; ++bucket) {
        seen += mCounts[bucket];
        if (seen >= rank) {
            // The end of a bucket may lie outside what was added; the ends are known exactly.
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
