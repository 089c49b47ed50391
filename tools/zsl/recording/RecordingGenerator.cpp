#include "recording/RecordingGenerator.h"

#include <fmt/format.h>
#include <metadata/MetadataTags.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "base/Text.h"

namespace zebcam::tool::recording {

namespace {

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

// Each subject has a random sequence of its own.
enum Subject : uint32_t { TIMING, EXPOSURE, FOCUS, FAULTS };

// Five of six gaps fall in the first eight intervals, while the sensor starts up.
constexpr uint32_t kStartIntervals = 8;
constexpr double kStartShareOfGaps = 5.0 / 6.0;
constexpr int64_t kLatenessNs = 1'300'000;

constexpr int32_t kStartIso = 144;
constexpr int32_t kMinIso = 50;
constexpr int32_t kMaxIso = 6400;

constexpr uint8_t kAfModeContinuousPicture = 4;
constexpr uint8_t kAfPassiveScan = 1;
constexpr uint8_t kAfPassiveFocused = 2;
constexpr uint8_t kAfPassiveUnfocused = 6;
constexpr uint8_t kAfUndocumented = 101;

// A power of two, so that distances are exact and print alike everywhere.
constexpr float kLensStepsPerDiopter = 128;
constexpr int64_t kLastLensStep = 1280;
constexpr int64_t kLongestLensMove = 24;

// Each class fills in one subject of the frames of a recording, frame after frame. The options,
// borrowed for the lifetime of the object, are valid.

/// Start of exposure and readout: a steady sensor with jitter, late frames and gaps.
class TimingGenerator {
public:
    TimingGenerator(GeneratorOptions const& options, int64_t intervalNs);
    void next(SensorFrame& frame);

private:
    void advance();

    GeneratorOptions const& mOptions;
    SeededRandom mRandom;
    int64_t mIntervalNs;
    int64_t mLatenessNs;       ///< of a late frame
    double mStartGapRate;      ///< of the first intervals
    double mLaterGapRate;      ///< of the others
    uint32_t mFrames = 0;      ///< made so far
    int64_t mGridNs;           ///< where the last frame would be if the sensor were perfect
    int64_t mDeviationNs = 0;  ///< and how far from there it is
    bool mWasLate = false;     ///< the last frame
};

/// Exposure time, sensitivity and whether the exposure is stable.
class ExposureGenerator {
public:
    ExposureGenerator(GeneratorOptions const& options, int64_t exposureNs, int64_t durationNs);
    void next(SensorFrame& frame);

private:
    void jump();
    void drift();

    GeneratorOptions const& mOptions;
    SeededRandom mRandom;
    int64_t mExposureNs;
    int64_t mMinNs;
    int64_t mMaxNs;
    int32_t mIso;
    bool mFirst = true;
    int64_t mUnstableFrames = 0;  ///< still to come
};

/// Focus distance, lens state and AF state in continuous focus: scans that move the lens and then
/// settle.
class FocusGenerator {
public:
    explicit FocusGenerator(GeneratorOptions const& options);
    void next(SensorFrame& frame);

private:
    bool scanFrame(bool isFirst);
    void moveLens();

    GeneratorOptions const& mOptions;
    SeededRandom mRandom;
    int64_t mPosition;          ///< in steps
    int64_t mScanFrames = 0;    ///< still to come
    bool mWasScanning = false;  ///< in the last frame; a scan settles before the next begins
    uint8_t mSettledState;
    double mMissingAfStates = 0;  ///< due so far, less those made
};

TimingGenerator::TimingGenerator(GeneratorOptions const& options, int64_t intervalNs)
    : mOptions(options),
      mRandom(options.seedValue, TIMING),
      mIntervalNs(intervalNs),
      mLatenessNs(std::min(kLatenessNs, intervalNs * 4 / 10)),
      mGridNs(options.startNs) {
    double const intervals = options.frames - 1;
    double const first = std::min<double>(intervals, kStartIntervals);
    double const expected = options.gapRate * intervals;
    mStartGapRate = std::min(1.0, expected * kStartShareOfGaps / first);
    double const rest = expected - mStartGapRate * first;
    mLaterGapRate = intervals > first ? rest / (intervals - first) : 0;
}

void TimingGenerator::next(SensorFrame& frame) {
    if (mFrames > 0) {
        advance();
    }
    ++mFrames;
    frame.timestampNs = mGridNs + mDeviationNs;
    frame.readoutNs = frame.durationNs * 622 / 1000;
}

// A gap keeps the deviation, so that it is twice an interval to the nanosecond, and never follows
// a late frame, which the next one repays.
void TimingGenerator::advance() {
    bool const gap = mRandom.chance(mFrames <= kStartIntervals ? mStartGapRate : mLaterGapRate);
    bool const late = mRandom.chance(mOptions.lateRate);
    int64_t const jitter = mRandom.bell(mOptions.jitterNs / 2);
    mGridNs += mIntervalNs;
    if (gap && !mWasLate) {
        mGridNs += mIntervalNs;
        return;
    }
    mWasLate = late && !mWasLate;
    mDeviationNs = jitter + (mWasLate ? mLatenessNs : 0);
}

ExposureGenerator::ExposureGenerator(GeneratorOptions const& options, int64_t exposureNs,
                                     int64_t durationNs)
    : mOptions(options),
      mRandom(options.seedValue, EXPOSURE),
      mExposureNs(exposureNs),
      mMinNs(std::max<int64_t>(exposureNs / 8, 1)),
      mMaxNs(std::min(exposureNs * 8, durationNs)),
      mIso(kStartIso) {
}

void ExposureGenerator::next(SensorFrame& frame) {
    // Both are drawn for every frame, the first one too: what one rate does to a frame does not
    // move where the other strikes.
    bool const jumps = mRandom.chance(mOptions.exposureJumpRate);
    bool const drifts = mRandom.chance(mOptions.exposureDriftRate);
    if (!mFirst && jumps) {
        jump();
    } else if (!mFirst && drifts) {
        drift();
    }
    mFirst = false;
    frame.exposureNs = mExposureNs;
    frame.iso = mIso;
    frame.aeStable = mUnstableFrames == 0;
    mUnstableFrames = std::max<int64_t>(mUnstableFrames - 1, 0);
}

// The scene becomes twice as dark or as bright; time and sensitivity share the change.
void ExposureGenerator::jump() {
    bool const darker = mRandom.chance(0.5);
    mExposureNs = std::clamp(darker ? mExposureNs * 2 : mExposureNs / 2, mMinNs, mMaxNs);
    mIso = std::clamp(darker ? mIso * 3 / 2 : mIso * 2 / 3, kMinIso, kMaxIso);
    mUnstableFrames = mRandom.uniform(2, 7);
}

void ExposureGenerator::drift() {
    constexpr int64_t kWhole = 10'000;
    constexpr int64_t kLargestStep = 500;
    int64_t const step = mRandom.uniform(1, kLargestStep) * (mRandom.chance(0.5) ? 1 : -1);
    mExposureNs = std::clamp(mExposureNs + mExposureNs * step / kWhole, mMinNs, mMaxNs);
}

FocusGenerator::FocusGenerator(GeneratorOptions const& options)
    : mOptions(options),
      mRandom(options.seedValue, FOCUS),
      mPosition(mRandom.uniform(0, kLastLensStep / 4)),
      mSettledState(kAfPassiveFocused) {
}

void FocusGenerator::next(SensorFrame& frame) {
    bool const begins = mScanFrames == 0 && mRandom.chance(mOptions.scanRate) && !mWasScanning;
    if (begins) {
        mScanFrames = mRandom.uniform(2, 11);
    }
    bool const scanning = mScanFrames > 0;
    mWasScanning = scanning;
    bool const moving = scanning && scanFrame(begins);
    bool const strange = mRandom.chance(mOptions.strangeAfStateRate);
    frame.afMode = kAfModeContinuousPicture;
    frame.afState = strange ? kAfUndocumented : scanning ? kAfPassiveScan : mSettledState;
    frame.lensState = moving ? NSCam::LENS_STATE_MOVING : NSCam::LENS_STATE_STATIONARY;
    frame.focusDistance = static_cast<float>(mPosition) / kLensStepsPerDiopter;
    mMissingAfStates += mOptions.missingAfStateRate;
    if (mMissingAfStates >= 1) {
        mMissingAfStates -= 1;
        frame.afState.reset();
    }
}

// Says whether the lens moves in this frame of a scan. It always does in the first.
bool FocusGenerator::scanFrame(bool isFirst) {
    // A scan whose lens never moved could not be seen in the focus distance.
    bool const moves = mRandom.chance(0.75) || isFirst;
    if (moves) {
        moveLens();
    }
    --mScanFrames;
    if (mScanFrames == 0) {
        mSettledState = mRandom.chance(0.125) ? kAfPassiveUnfocused : kAfPassiveFocused;
    }
    return moves;
}

// Turns round where the lens would leave its range.
void FocusGenerator::moveLens() {
    int64_t const distance = mRandom.uniform(1, kLongestLensMove);
    bool const wantsUp = mRandom.chance(0.5);
    bool const goesUp = wantsUp ? mPosition + distance <= kLastLensStep : mPosition < distance;
    mPosition += goesUp ? distance : -distance;
}

/// Images that are unusable and sensors that are not synchronised.
void addFaults(GeneratorOptions const& options, SeededRandom& random, SensorFrame& frame) {
    constexpr int64_t kSynced = 0;
    constexpr int64_t kNotSynced = 1;
    frame.hasError = random.chance(options.errorRate);
    frame.frameSync = random.chance(options.unsyncedRate) ? kNotSynced : kSynced;
    frame.sensorId = 0;
    frame.sensorMode = 0;
}

template <typename Value>
void requireRange(std::string_view name, Value value, Value min, Value max) {
    if (!(value >= min && value <= max)) {  // also refuses what is not a number
        throw std::invalid_argument(
            fmt::format("{}: expected {} to {}, found {}", name, min, max, value));
    }
}

void requireTime(std::string_view name, int64_t ns, int64_t minNs, int64_t maxNs) {
    if (ns < minNs || ns > maxNs) {
        throw std::invalid_argument(
            fmt::format("{}: expected {} to {}, found {}", name, base::formatDuration(minNs),
                        base::formatDuration(maxNs), base::formatDuration(ns)));
    }
}

void requireRates(GeneratorOptions const& options) {
    std::pair<std::string_view, double> const rates[] = {
        {"--late-rate", options.lateRate},
        {"--gap-rate", options.gapRate},
        {"--exposure-drift-rate", options.exposureDriftRate},
        {"--exposure-jump-rate", options.exposureJumpRate},
        {"--scan-rate", options.scanRate},
        {"--strange-af-state-rate", options.strangeAfStateRate},
        {"--missing-af-state-rate", options.missingAfStateRate},
        {"--error-rate", options.errorRate},
        {"--unsynced-rate", options.unsyncedRate},
    };
    for (auto const& [name, rate] : rates) {
        requireRange(name, rate, 0.0, 1.0);
    }
}

void requireValid(GeneratorOptions const& options) {
    requireRange<uint32_t>("--frames", options.frames, 2, MAX_FRAMES);
    requireRange("--fps", options.fps, 1.0, 960.0);
    requireTime("--start", options.startNs, 1, 1'000'000'000'000'000'000);
    requireRange<uint32_t>("--first-frame", options.firstFrameNo, 0,
                           MAX_FRAME_NO - (options.frames - 1));
    requireRange<uint32_t>("--interval-excess-ppm", options.intervalExcessPpm, 0, 100'000);
    requireRates(options);
}

}  // namespace

Recording generate(GeneratorOptions const& options) {
    requireValid(options);
    auto const durationNs = static_cast<int64_t>(std::llround(1e9 / options.fps));
    int64_t const intervalNs = durationNs + durationNs * options.intervalExcessPpm / 1'000'000;
    int64_t const exposureNs =
        options.exposureNs.value_or(std::min<int64_t>(10'000'000, durationNs / 3));
    requireTime("--exposure", exposureNs, 1, durationNs);
    requireTime("--jitter", options.jitterNs, 0, intervalNs / 10);

    TimingGenerator timing(options, intervalNs);
    ExposureGenerator exposure(options, exposureNs, durationNs);
    FocusGenerator focus(options);
    SeededRandom faults(options.seedValue, FAULTS);
    Recording recording{"", {}, {}, 0};
    recording.frames.resize(options.frames);
    for (uint32_t i = 0; i < options.frames; ++i) {
        SensorFrame& frame = recording.frames[i];
        frame.frameNo = options.firstFrameNo + i;
        frame.durationNs = durationNs;
        timing.next(frame);
        exposure.next(frame);
        focus.next(frame);
        addFaults(options, faults, frame);
    }
    recording.medianIntervalNs = medianIntervalNs(recording.frames);
    return recording;
}

}  // namespace zebcam::tool::recording
