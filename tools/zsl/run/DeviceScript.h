#pragma once

#include <host/BufferLedger.h>
#include <host/MetaStreamBuffer.h>
#include <host/StreamInfos.h>
#include <pipeline/IHistoryBufferProvider.h>
#include <platform/VirtualClock.h>
#include <recorder/HandOuts.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "device/DeviceRecording.h"

namespace zebcam::tool::run {

/// Stream infos that stand for a device's. A policy meets metadata in the order of its stream
/// infos' addresses, and what it decides may depend on that, so they lie in memory in the same
/// order as the device's.
class DeviceStreams {
public:
    explicit DeviceStreams(std::vector<device::DeviceStream> const& streams);

    /// The stream at a position, as one of images or of metadata.
    android::sp<host::ImageStreamInfo> const& image(size_t stream) const {
        return mImages.at(stream);
    }
    android::sp<host::MetaStreamInfo> const& meta(size_t stream) const { return mMetas.at(stream); }

private:
    std::vector<android::sp<host::ImageStreamInfo>> mImages;
    std::vector<android::sp<host::MetaStreamInfo>> mMetas;
};

/// Makes buffers that stand for a device's. Metadata that could not be locked there cannot be
/// locked here either, until `unlockAll`; what had no buffer or no stream is left out.
class DeviceBuffers {
public:
    using Metas = std::vector<android::sp<NSCam::v3::IMetaStreamBuffer>>;
    using HistoryBufferSet = NSCam::v3::pipeline::NSPipelineContext::HistoryBufferSet;

    explicit DeviceBuffers(device::DeviceRecording const& recording)
        : mRecording(recording), mStreams(recording.streams) {}

    DeviceStreams const& streams() const { return mStreams; }
    std::shared_ptr<host::BufferLedger> const& ledger() const { return mLedger; }

    Metas metas(std::vector<device::DeviceMeta> const& metas);

    /// A set of the frame at a position, handed out on behalf of a request.
    HistoryBufferSet handOut(size_t frame, uint32_t forRequestNo, bool isClone);
    /// Ends the hand-out of what is left of a set. Tells whether it was a clone.
    static bool takeBack(HistoryBufferSet& set, bool isUnused);

    /// From now on every metadata made so far can be locked: a processor that builds a frame from
    /// metadata waits for ever for one that cannot.
    void unlockAll();

private:
    device::DeviceRecording const& mRecording;
    DeviceStreams const mStreams;
    std::shared_ptr<host::BufferLedger> const mLedger = std::make_shared<host::BufferLedger>();
    std::vector<android::sp<host::MetaStreamBuffer>> mUnlockable;
};

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
    DeviceScript(device::DeviceRecording const& recording, platform::VirtualClock& clock)
        : buffers(recording), mRecording(recording), mClock(clock) {}

    /// The operation at a position begins; past the last one, one in which the device did nothing.
    void begin(size_t operation);
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
    void did(device::DeviceStep const& step) { mSteps.push_back(step); }
    void problem(std::string text) { mProblems.push_back(std::move(text)); }

    std::vector<device::DeviceStep> const& steps() const { return mSteps; }
    /// Where the replay wanted what the device did not.
    std::vector<std::string> const& problems() const { return mProblems; }
    /// Attempts of the device that the replay did not make.
    size_t leftTries() const;

    DeviceBuffers buffers;
    record::HandOuts handOuts;

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
    std::vector<device::DeviceStep> mSteps;
    std::vector<std::string> mProblems;
};

}  // namespace zebcam::tool::run
