#pragma once

#include <IZslProcessor.h>
#include <host/FrameBuilder.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "device/DeviceRecording.h"
#include "pipeline/CaptureBook.h"

namespace zebcam::tool::run {

/// The captures of one run through a device's recording, which this borrows: their frame builders,
/// numbered as in the recording, what comes back, and the book of them.
class DeviceCaptures {
public:
    using Builders = pipeline::CaptureBook::Builders;

    explicit DeviceCaptures(device::DeviceRecording const& recording) : mRecording(recording) {}

    pipeline::CaptureBook& book() { return mBook; }
    size_t size() const { return mSize; }

    /// A capture with these builders (null: none) is submitted; gives its position.
    size_t open(device::SubmitCall const& call, Builders const& builders);

    /// The frames that the processor returned in an operation.
    void take(NSCam::v3::pipeline::model::ZslFrameBuilders const& lists, bool isFlush,
              pipeline::CaptureBook::Operation& operation);

    /// The processor has heard a result, in which the application sees this sensor timestamp. Those
    /// of a request that is no capture change nothing.
    void tellResult(device::ResultCall const& call, std::optional<int64_t> reportedNs);

    /// Settles with what the replay recorded which history frames were built. The recorder infers
    /// it, as it has to on a device; the ledger knows, so that a wrong inference of either recorder
    /// shows as a difference. For a frame without images the inference is all there is.
    std::vector<pipeline::CaptureRecord> identify(device::DeviceRecording& replayed) const;

    /// Frames that came back wrongly.
    std::vector<std::string> const& problems() const { return mProblems; }

    /// Every frame lets its buffers go.
    void finish();

private:
    device::DeviceRecording const& mRecording;
    pipeline::CaptureBook mBook{pipeline::CaptureBook::Tries::All};
    size_t mSize = 0;
    std::vector<std::string> mProblems;
    Builders mBuilders;  ///< by number
    /// Capture and frame in the book, by number of the builder; no frame: it is not answered.
    std::vector<std::pair<size_t, std::optional<size_t>>> mPlaces;
    /// What came back, and of how many of it the result was told, by request.
    std::map<uint32_t, std::pair<std::vector<pipeline::BuiltFrame>, size_t>> mBuilt;
};

}  // namespace zebcam::tool::run
