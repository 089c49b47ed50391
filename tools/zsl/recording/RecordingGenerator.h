#pragma once

#include <cstdint>
#include <optional>

#include "base/SeededRandom.h"
#include "recording/Recording.h"

namespace zebcam::tool::recording {

/// What to generate. A rate is a share from 0 to 1.
struct GeneratorOptions {
    uint32_t frames = 300;                ///< 2 to 1000000
    double fps = 30;                      ///< the rate that the sensor reports, 1 to 960
    uint64_t seedValue = 1;               ///< the same options and value make the same recording
    int64_t startNs = 1'000'000'000'000;  ///< time of the first frame, 1 ns to 10^18 ns
    uint32_t firstFrameNo = 1;            ///< the last number must fit 32 bits
    uint32_t intervalExcessPpm = 2000;    ///< how much longer than reported the intervals are
    int64_t jitterNs = 56'000;            ///< how far an interval strays, at most a tenth of one
    double lateRate = 0.01;               ///< frames 1.3 ms late, which the next one repays
    double gapRate = 0.01;                ///< intervals of twice the length, mostly at the start
    std::optional<int64_t> exposureNs;    ///< at the start; 10 ms or a third of a shorter frame
    double exposureDriftRate = 0.4;       ///< frames whose exposure changes by up to 5 %
    double exposureJumpRate = 0.005;      ///< frames whose exposure doubles or halves
    double scanRate = 0.01;               ///< frames that begin a focus scan, of those outside one
    double strangeAfStateRate = 0.005;    ///< frames with the undocumented AF state 101
    double missingAfStateRate = 0;        ///< frames without AF state, evenly spread
    double errorRate = 0;                 ///< frames whose image is unusable
    double unsyncedRate = 0;              ///< frames whose sensors are not synchronised
};

/// Makes a recording that shows what phones show. Subjects (timing, exposure, focus, faults) draw
/// from random sequences of their own, so that changing the rate of one leaves the others alone;
/// the result is the same on every platform. Throws std::invalid_argument naming the option, what
/// was expected and what was found.
Recording generate(GeneratorOptions const& options);

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
    base::SeededRandom mRandom;
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
    base::SeededRandom mRandom;
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
    base::SeededRandom mRandom;
    int64_t mPosition;          ///< in steps
    int64_t mScanFrames = 0;    ///< still to come
    bool mWasScanning = false;  ///< in the last frame; a scan settles before the next begins
    uint8_t mSettledState;
    double mMissingAfStates = 0;  ///< due so far, less those made
};

/// Images that are unusable and sensors that are not synchronised.
class FaultGenerator {
public:
    explicit FaultGenerator(GeneratorOptions const& options);
    void next(SensorFrame& frame);

private:
    GeneratorOptions const& mOptions;
    base::SeededRandom mRandom;
};

}  // namespace zebcam::tool::recording
