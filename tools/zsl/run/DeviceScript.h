#pragma once

#include <pipeline/IHistoryBufferProvider.h>
#include <platform/VirtualClock.h>
#include <policy/zsl/ISelector.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "device/DeviceRecording.h"
#include "pipeline/CaptureRecord.h"
#include "run/DeviceBuffers.h"

namespace zebcam::tool::run {

/// What is known of when a capture was submitted and served. The processor read the clocks between
/// two readings of the recorder's.
struct DeviceSubmission {
    uint32_t requestNo = 0;
    record::ClockReading earliest;
    record::ClockReading latest;
    record::ClockReading assumed;
    size_t servedIn = SIZE_MAX;  ///< operation in which the device built its last frame
};

/// As exactly as the recording tells; its properties must be set. `servedIn` is as above.
DeviceSubmission submissionOf(device::DeviceRecording const& recording,
                              device::DeviceOperation const& submission, size_t servedIn);

/// For each capture, in the order of the submissions, the operation in which the device built the
/// last of its frames; SIZE_MAX when it did not.
std::vector<size_t> servingOperations(device::DeviceRecording const& recording);

/// Whether the processor answers a frame at some time: it has a builder and is no dummy.
bool isServable(device::RequestedFrame const& frame);

/// The clock that the device's sensor timestamps follow, of a reading.
int64_t sensorClockNs(device::DeviceRecording const& recording,
                      record::ClockReading const& reading);

/// A reading when every clock has moved on by `ns`, within the 146 years that a recording tells.
record::ClockReading movedOn(record::ClockReading reading, int64_t ns);

/**
 * The surroundings of the processor during a replay, as the recording has them: each call of the
 * processor gets what it got on the device, in the same order, at the same time. Where the
 * processor wants what it did not want there, it gets nothing.
 */
class DeviceScript {
public:
    /// Borrows both.
    DeviceScript(device::DeviceRecording const& recording, platform::VirtualClock& clock)
        : buffers(recording), mRecording(recording), mClock(clock) {}

    /// The operation at a position begins; past the last one, one in which the device did nothing.
    void begin(size_t operation);
    device::DeviceRecording const& recording() const { return mRecording; }
    device::DeviceOperation const& operation() const { return *mpOperation; }

    /// Throws what the device's provider threw in this call of its kind.
    void passOrFail(record::ProviderCall call);
    /// The next attempt of a provider; null when the device made no more.
    device::DeviceTry const* nextTry(uint64_t provider);
    /// Sets the clocks to when the frames in flight were asked for. The wall clock then makes the
    /// capture's age one that fits what the device did.
    void enterSelection(device::DeviceTry const& attempt, DeviceSubmission const& submission);
    std::optional<size_t> nextClone(uint64_t provider);
    device::DeviceAnswer const* nextAnswer(uint32_t requestNo);

    void set(record::ClockReading const& now);

    DeviceBuffers buffers;

private:
    device::DeviceRecording const& mRecording;
    platform::VirtualClock& mClock;
    device::DeviceOperation const mNothing;
    device::DeviceOperation const* mpOperation = &mNothing;
    size_t mPosition = 0;
    std::vector<bool> mTriesDone;
    std::vector<bool> mAnswersGiven;
    size_t mClones = 0;
    std::array<uint64_t, record::PROVIDER_CALLS> mCalls{};
};

/// The provider of one capture. Borrows the script.
class ScriptedProvider final
    : public NSCam::v3::pipeline::NSPipelineContext::IHistoryBufferProvider {
public:
    /// `number` is the provider's in the recording. `onBegin` hears that an attempt begins, with
    /// its age and frames, `onEnd` that it ends.
    ScriptedProvider(DeviceScript& script, uint64_t number, DeviceSubmission const& submission,
                     std::function<void(pipeline::TryRecord)> onBegin, std::function<void()> onEnd)
        : mScript(script),
          mNumber(number),
          mSubmission(submission),
          mOnBegin(std::move(onBegin)),
          mOnEnd(std::move(onEnd)) {}

    std::string getName() const override { return "DeviceReplay"; }
    void dump(android::Printer& printer) const override;
    void beginSelect() override { mScript.passOrFail(record::ProviderCall::BEGIN_SELECT); }
    std::optional<std::list<HistoryBufferSet>> getHistoryBufferSets() override;
    void endSelect() override;
    void returnBufferSet(ReturnedBufferSet& returned) override;
    std::vector<NSCam::ZslPolicy::InFlightInfo> getInFlightInfos() const override;
    HistoryBufferSet cloneBufferSet(HistoryBufferSet const& original) override;

private:
    DeviceScript& mScript;
    uint64_t const mNumber;
    DeviceSubmission const mSubmission;
    std::function<void(pipeline::TryRecord)> const mOnBegin;
    std::function<void()> const mOnEnd;
    device::DeviceTry const* mTry = nullptr;  ///< the running or last one
};

/// The policy of one capture, which answers as the device's did; borrows both.
std::shared_ptr<NSCam::ZslPolicy::ISelector> makeScriptedSelector(DeviceScript& script,
                                                                  device::SubmitCall const& call);

}  // namespace zebcam::tool::run
