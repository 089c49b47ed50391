#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace zebcam::tool::base {

/// Minimum, median, 95th percentile (nearest rank) and maximum of some times, ns.
struct Spread {
    size_t count = 0;
    int64_t min = 0;
    int64_t median = 0;  ///< mean of the middle two, rounded down, for an even count
    int64_t p95 = 0;
    int64_t max = 0;
};

/// The exact spread of `values`; all 0 for none.
Spread spreadOf(std::vector<int64_t> values);

/// How some times are distributed, for runs without end: in a fixed amount of memory, exact below
/// 32 ns on either side of 0 and to within 1/16 beyond.
class Distribution {
public:
    void add(int64_t ns);

    uint64_t count() const { return mCount; }
    int64_t min() const { return mMin; }
    int64_t max() const { return mMax; }
    /// Of all together, ns; of many, to the precision of a double.
    double total() const { return mTotal; }

    /// The time that a share of `share` (0 to 1) does not exceed, rounded up to the end of its
    /// bucket; 0 when there is none.
    int64_t quantile(double share) const;

    /// The same in the form of few values, with medians and percentiles as quantile() gives them.
    Spread spread() const;

private:
    static constexpr size_t STEPS = 16;            ///< buckets of each power of two
    static constexpr size_t BUCKETS = 64 * STEPS;  ///< on each side of 0

    static size_t bucketOf(int64_t ns);
    static int64_t endOf(size_t bucket);

    std::array<uint64_t, 2 * BUCKETS> mCounts{};  ///< from the smallest times to the largest
    uint64_t mCount = 0;
    int64_t mMin = 0;
    int64_t mMax = 0;
    double mTotal = 0;
};

}  // namespace zebcam::tool::base
