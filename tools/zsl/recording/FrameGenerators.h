#pragma once

#include <cstdint>

#include "recording/Recording.h"
#include "recording/RecordingGenerator.h"
#include "recording/SeededRandom.h"

namespace zebcam::tool {

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

/// Images that are unusable and sensors that are not synchronised.
class FaultGenerator {
public:
    explicit FaultGenerator(GeneratorOptions const& options);
    void next(SensorFrame& frame);

private:
    GeneratorOptions const& mOptions;
    SeededRandom mRandom;
};

}  // namespace zebcam::tool
