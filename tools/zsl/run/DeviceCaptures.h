#pragma once

#include <IZslProcessor.h>

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <vector>

#include "pipeline/CaptureRecord.h"
#include "run/DeviceScript.h"
#include "run/ScriptedParts.h"

namespace zebcam::tool::run {

/// What becomes of a recording's captures during a replay.
class DeviceCaptures {
public:
    struct Capture {
        device::SubmitCall const* call = nullptr;
        DeviceSubmission submission;
        pipeline::CaptureRecord record;
        std::vector<std::shared_ptr<ScriptedBuilder>> builders;  ///< null where there was none
        size_t timedOutFrames = 0;  ///< served because of the time-out, not returned yet
    };

    explicit DeviceCaptures(device::DeviceRecording const& recording);

    /// A capture is submitted; its place stays.
    size_t open(DeviceScript& script, device::SubmitCall const& call, DeviceSubmission submission);
    Capture& at(size_t capture) { return mCaptures.at(capture); }

    /// An attempt begins, and ends, which may be repeated.
    void beginTry(size_t capture, pipeline::TryRecord attempt);
    void endTry(size_t timedOutFrames);
    /// How long a capture may wait, and has waited, ms.
    int64_t timeoutMs(size_t capture) const;
    int64_t ageMs(size_t capture, record::ClockReading const& now) const;

    /// The processor returned these frames.
    void answer(NSCam::v3::pipeline::model::ZslFrameBuilders const& lists, bool isFlush,
                int64_t nowNs);
    void setEarlyShutter(uint32_t requestNo, std::optional<int64_t> timestampNs);
    /// A frame's result was told; the application saw `reportedNs` in it.
    void setResult(device::ResultCall const& call, int64_t nowNs,
                   std::optional<int64_t> reportedNs);

    std::vector<pipeline::CaptureRecord> records() const;
    /// Every built frame lets its buffers go.
    void finishFrames();

private:
    struct Place {
        size_t capture = 0;
        std::optional<size_t> frame;  ///< none: nothing that the processor answers
    };

    void answerList(
        std::vector<std::shared_ptr<NSCam::v3::pipeline::NSPipelineContext::IFrameBuilder>> const&
            list,
        bool isFlush, int64_t nowNs);
    Capture* find(uint32_t requestNo);

    std::deque<Capture> mCaptures;
    std::vector<Place> mPlaces;  ///< by number of the builder
    std::optional<size_t> mTried;
};

/// For each capture, in the order of the submissions, the operation in which the device built the
/// last of its frames; SIZE_MAX when it did not.
std::vector<size_t> servingOperations(device::DeviceRecording const& recording);

}  // namespace zebcam::tool::run
