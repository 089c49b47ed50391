#pragma once

#include <cstdint>
#include <random>

namespace zebcam::tool::base {

/// A random sequence that is the same on every platform: the standard's engine and its seeding are
/// laid down to the bit, its distributions are not, so these are our own and work in integers.
class SeededRandom {
public:
    /// Sequences of one value but different subjects have nothing in common.
    SeededRandom(uint64_t seedValue, uint32_t subject) : mEngine(engineOf(seedValue, subject)) {}

    /// True in a share of `rate` (0 to 1) of the calls.
    bool chance(double rate) {
        constexpr double kUnit = 1.0 / (uint64_t{1} << 53);
        return static_cast<double>(mEngine() >> 11) * kUnit < rate;
    }

    /// Uniform from `min` to `max`, both included. The bias of the remainder is far below what a
    /// recording could show.
    int64_t uniform(int64_t min, int64_t max) {
        auto const span = static_cast<uint64_t>(max - min) + 1;
        return min + static_cast<int64_t>(mEngine() % span);
    }

    /// Bell-shaped around 0 and never beyond `limit`, with a standard deviation of `limit` / 3.5.
    int64_t bell(int64_t limit) {
        constexpr int kTerms = 4;
        int64_t sum = 0;
        for (int i = 0; i < kTerms; ++i) {
            sum += uniform(-limit, limit);
        }
        return sum / kTerms;
    }

private:
    static std::mt19937_64 engineOf(uint64_t seedValue, uint32_t subject) {
        std::seed_seq sequence{static_cast<uint32_t>(seedValue),
                               static_cast<uint32_t>(seedValue >> 32), subject};
        return std::mt19937_64(sequence);
    }

    std::mt19937_64 mEngine;
};

}  // namespace zebcam::tool::base
