#include "picture/PictureMeter.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <utility>

namespace zebcam::tool::picture {

namespace {

constexpr size_t kSizes = 4;
/// Smaller pictures are not halved: too little of them would overlap.
constexpr uint32_t kLeastHalved = 48;
/// How far apart neighbouring pictures are looked for, in the smallest size: a tenth of the width.
constexpr int kMaxShift = 4;

/// 10^4 x variance / mean^2: the variance of the luma in percent of its mean.
constexpr double kPercentSquared = 1e4;

float sharpnessOf(Pixels const& luma, double mean) {
    if (luma.width < 3 || luma.height < 3 || mean <= 0) {
        return 0;
    }
    size_t const width = luma.width;
    int64_t sum = 0;
    int64_t squares = 0;
    for (size_t y = 1; y + 1 < luma.height; ++y) {
        uint8_t const* const row = &luma.bytes[y * width];
        // Of so few points they fit.
        int32_t rowSum = 0;
        int32_t rowSquares = 0;
        for (size_t x = 1; x + 1 < width; ++x) {
            uint8_t const* const at = row + x;
            int32_t const value = at[-1] + at[1] + *(at - width) + at[width] - 4 * at[0];
            rowSum += value;
            rowSquares += value * value;
        }
        sum += rowSum;
        squares += rowSquares;
    }
    auto const count = static_cast<double>((width - 2) * (luma.height - 2));
    double const average = static_cast<double>(sum) / count;
    double const variance = static_cast<double>(squares) / count - average * average;
    return static_cast<float>(kPercentSquared * variance / (mean * mean));
}

Pixels halved(Pixels const& luma) {
    Pixels half{luma.width / 2, luma.height / 2, {}};
    half.bytes.resize(size_t{half.width} * half.height);
    for (size_t y = 0; y < half.height; ++y) {
        uint8_t const* const upper = &luma.bytes[2 * y * luma.width];
        uint8_t const* const lower = upper + luma.width;
        uint8_t* const to = &half.bytes[y * half.width];
        for (size_t x = 0; x < half.width; ++x) {
            int const sum = upper[2 * x] + upper[2 * x + 1] + lower[2 * x] + lower[2 * x + 1];
            to[x] = static_cast<uint8_t>((sum + 2) / 4);
        }
    }
    return half;
}

std::vector<Pixels> sizesOf(Pixels luma) {
    std::vector<Pixels> sizes;
    sizes.push_back(std::move(luma));
    while (sizes.size() < kSizes &&
           std::min(sizes.back().width, sizes.back().height) >= kLeastHalved) {
        sizes.push_back(halved(sizes.back()));
    }
    return sizes;
}

/// A plain loop over ints, which compilers know for what it is: sixteen points an instruction.
int rowDifference(uint8_t const* a, uint8_t const* b, int count) {
    int sum = 0;
    for (int i = 0; i < count; ++i) {
        sum += std::abs(a[i] - b[i]);
    }
    return sum;
}

struct Shift {
    int x = 0;
    int y = 0;
};

/// Mean absolute difference where `now`, shifted, and `before` overlap.
double differenceAt(Pixels const& now, Pixels const& before, Shift shift) {
    auto const width = static_cast<int>(now.width);
    auto const height = static_cast<int>(now.height);
    int const left = std::max(0, shift.x);
    int const count = width - std::abs(shift.x);
    uint64_t sum = 0;
    for (int y = std::max(0, shift.y); y < std::min(height, height + shift.y); ++y) {
        sum += static_cast<uint64_t>(rowDifference(
            &now.bytes[static_cast<size_t>(y) * now.width + left],
            &before.bytes[static_cast<size_t>(y - shift.y) * now.width + left - shift.x], count));
    }
    return static_cast<double>(sum) / (static_cast<double>(count) * (height - std::abs(shift.y)));
}

/// The best shift within `reach` of `around`, and what difference it leaves.
std::pair<Shift, double> bestShift(Pixels const& now, Pixels const& before, Shift around,
                                   int reach) {
    // At least three quarters are to overlap.
    int const farthestX = static_cast<int>(now.width) / 4;
    int const farthestY = static_cast<int>(now.height) / 4;
    std::pair<Shift, double> best{{}, std::numeric_limits<double>::max()};
    for (int y = around.y - reach; y <= around.y + reach; ++y) {
        for (int x = around.x - reach; x <= around.x + reach; ++x) {
            if (std::abs(x) <= farthestX && std::abs(y) <= farthestY) {
                double const difference = differenceAt(now, before, {x, y});
                best = difference < best.second ? std::pair(Shift{x, y}, difference) : best;
            }
        }
    }
    return best;
}

float motionOf(std::vector<Pixels> const& now, std::vector<Pixels> const& before) {
    auto best = bestShift(now.back(), before.back(), {}, kMaxShift);
    for (size_t i = now.size() - 1; i-- > 0;) {
        best = bestShift(now[i], before[i], {2 * best.first.x, 2 * best.first.y}, 1);
    }
    return static_cast<float>(best.second);
}

}  // namespace

recording::PictureMeasures PictureMeter::measure(Pixels luma) {
    uint64_t sum = 0;
    size_t clipped = 0;
    for (uint8_t const value : luma.bytes) {
        sum += value;
        clipped += value == 0 || value == 255 ? 1 : 0;
    }
    auto const count = static_cast<double>(luma.bytes.size());
    double const mean = static_cast<double>(sum) / count;
    recording::PictureMeasures measures;
    measures.sharpness = sharpnessOf(luma, mean);
    measures.brightness = static_cast<float>(mean);
    measures.clipped = static_cast<float>(static_cast<double>(clipped) / count);
    std::vector<Pixels> now = sizesOf(std::move(luma));
    bool const isAlike = !mBefore.empty() && mBefore.front().width == now.front().width &&
                         mBefore.front().height == now.front().height;
    if (isAlike) {
        measures.motion = motionOf(now, mBefore);
    }
    mBefore = std::move(now);
    return measures;
}

}  // namespace zebcam::tool::picture
