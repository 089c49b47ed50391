#pragma once

#include <platform/VirtualClock.h>
#include <recorder/OutSets.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "device/DeviceBuffers.h"
#include "device/DeviceRecording.h"

namespace zebcam::tool {

/// What is known of when a capture was submitted and served. The processor read the clocks between
/// two readings of the recorder's.
struct DeviceSubmission {
    uint32_t requestNo = 0;
    record::ClockReading earliest;
    record::ClockReading latest;
    record::ClockReading assumed;
    size_t servedIn = SIZE_MAX;  ///< operation in which the device built its last frame
};

/**
 * The surroundings of the processor during a replay, as the recording has them: each call of the
 * processor gets what it got on the device, in the same order, at the same time, and what it does
 * is noted.
 */
class DeviceScript {
public:
    DeviceScript(DeviceRecording const& recording, platform::VirtualClock& clock)
        : buffers(recording), mRecording(recording), mClock(clock) {}

    /// The operation at a position begins; past the last one, one in which the device did nothing.
    void begin(size_t operation);
    DeviceOperation const& operation() const { return *mpOperation; }

    /// Throws what the device's provider threw in this call of its kind.
    void passOrFail(record::ProviderCall call);
    /// The next attempt of a provider; null when the device made no more.
    DeviceTry const* nextTry(uint64_t provider);
    /// Sets the clocks to when the frames in flight were asked for. The wall clock then makes the
    /// capture's age one that fits what the device did.
    void enterSelection(DeviceTry const& attempt, DeviceSubmission const& submission);
    std::optional<size_t> nextClone(uint64_t provider);
    DeviceAnswer const* nextAnswer(uint32_t requestNo);

    void set(record::ClockReading const& now);
    void did(DeviceStep const& step) { mSteps.push_back(step); }
    void problem(std::string text) { mProblems.push_back(std::move(text)); }

    std::vector<DeviceStep> const& steps() const { return mSteps; }
    /// Where the replay wanted what the device did not.
    std::vector<std::string> const& problems() const { return mProblems; }
    /// Attempts of the device that the replay did not make.
    size_t leftTries() const;

    DeviceBuffers buffers;
    record::OutSets outSets;

private:
    DeviceRecording const& mRecording;
    platform::VirtualClock& mClock;
    DeviceOperation const mNothing;
    DeviceOperation const* mpOperation = &mNothing;
    size_t mPosition = 0;
    std::vector<bool> mTriesDone;
    std::vector<bool> mAnswersGiven;
    size_t mClones = 0;
    std::array<uint64_t, record::PROVIDER_CALLS> mCalls{};
    std::vector<DeviceStep> mSteps;
    std::vector<std::string> mProblems;
};

}  // namespace zebcam::tool
