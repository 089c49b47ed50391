#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace zebcam::tool::base {

/// How some durations are distributed, in a fixed amount of memory: exact below 32 ns, to within
/// 1/16 above.
class Distribution {
public:
    void add(int64_t ns);

    uint64_t count() const { return mCount; }
    int64_t min() const { return mMin; }
    int64_t max() const { return mMax; }

    /// The duration that a share of `share` (0 to 1) does not exceed, rounded up to the end of its
    /// bucket; 0 when there is none.
    int64_t quantile(double share) const;

private:
    static constexpr size_t STEPS = 16;  ///< buckets of each power of two
    static constexpr size_t BUCKETS = 64 * STEPS;

    static size_t bucketOf(uint64_t ns);
    static int64_t endOf(size_t bucket);

    std::array<uint64_t, BUCKETS> mCounts{};
    uint64_t mCount = 0;
    int64_t mMin = 0;
    int64_t mMax = 0;
};

}  // namespace zebcam::tool::base
