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
    mMin = mCount == 0 ? ns : std::min(mMin, ns);
    mMax = mCount == 0 ? ns : std::max(mMax, ns);
    mTotal += static_cast<double>(ns);
    ++mCount;
    ++mCounts[bucketOf(ns)];
}

int64_t Distribution::quantile(double share) const {
    if (mCount == 0) {
        return 0;
    }
    uint64_t const rank = nearestRank(mCount, share);
    uint64_t seen = 0;
    for (size_t bucket = 0; bucket < mCounts.size(); ++bucket) {
        seen += mCounts[bucket];
        if (seen >= rank) {
            // The end of a bucket may lie outside what was added; the ends are known exactly.
            return std::clamp(endOf(bucket), mMin, mMax);
        }
    }
    return mMax;
}

Spread Distribution::spread() const {
    return {.count = static_cast<size_t>(mCount),
            .min = mMin,
            .median = quantile(0.5),
            .p95 = quantile(0.95),
            .max = mMax};
}

// Up to 2 x STEPS a bucket for each value, then STEPS buckets for each power of two; below 0 the
// same in a mirror, where -1 is in the place of 0.
size_t Distribution::bucketOf(int64_t ns) {
    auto const magnitude = static_cast<uint64_t>(ns < 0 ? ~ns : ns);
    auto const shift = static_cast<size_t>(std::bit_width(magnitude / (2 * STEPS)));
    size_t const bucket = shift * STEPS + static_cast<size_t>(magnitude >> shift);
    return ns < 0 ? BUCKETS - 1 - bucket : BUCKETS + bucket;
}

int64_t Distribution::endOf(size_t bucket) {
    bool const isNegative = bucket < BUCKETS;
    size_t const mirrored = isNegative ? BUCKETS - 1 - bucket : bucket - BUCKETS;
    size_t const shift = mirrored < 2 * STEPS ? 0 : mirrored / STEPS - 1;
    uint64_t const step = mirrored - shift * STEPS;
    // In the mirror the largest value of a bucket is where it begins.
    return isNegative ? ~static_cast<int64_t>(step << shift)
                      : static_cast<int64_t>(((step + 1) << shift) - 1);
}

}  // namespace zebcam::tool::base
