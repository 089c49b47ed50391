#pragma once

#include <metadata/IMetadata.h>
#include <policy/zsl/ISelector.h>
#include <recorder/RecordFormat.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

/// The names of the recorder's file, for every room that reads one.
namespace zebcam::tool {
namespace record = NSCam::v3::pipeline::model::record;
}

namespace zebcam::tool::device {

/// A recording of a device that cannot be used. The text is
/// `<path>: byte <offset>: expected ..., found ...`.
class DeviceRecordingError : public std::runtime_error {
public:
    DeviceRecordingError(std::string const& path, uint64_t offset, std::string_view expected,
                         std::string_view found)
        : std::runtime_error(path + ": byte " + std::to_string(offset) + ": expected " +
                             std::string(expected) + ", found " + std::string(found)) {}
};

/// What a recorder wrote on a device, decoded. Things that occur more than once (streams, frames,
/// builders, providers) are named by their position.

struct DeviceStream {
    int64_t id = 0;
    std::string name;
    uint64_t address = 0;  ///< of the device's stream info; policies get metadata in this order
};

struct DeviceImage {
    std::optional<size_t> stream;
    bool hasError = false;
};

struct DeviceMeta {
    std::optional<size_t> stream;
    bool hasError = false;
    bool isLockable = false;
    NSCam::IMetadata metadata;  ///< without entries that were too large to record
};

/// A frame of the history.
struct DeviceFrame {
    uint32_t frameNo = 0;
    uint32_t requestNo = 0;
    int64_t timestampNs = 0;
    std::vector<DeviceImage> images;
    std::vector<DeviceMeta> halMetas;
    std::vector<DeviceMeta> appMetas;
};

struct DeviceSensor {
    static constexpr size_t kAppResult = 2;  ///< the stream of the early shutter
    uint32_t id = 0;
    std::array<std::optional<size_t>, 11> streams;  ///< in the order of ParsedStreamInfo_P1
};

struct ConfigureCall {
    bool hasCallback = false;
    std::optional<std::vector<DeviceSensor>> sensors;
};

struct RequestedFrame {
    std::optional<NSCam::ZslPolicy::RequiredStreams> required;
    std::optional<uint32_t> frameType;  ///< none: there was no builder
    std::vector<DeviceMeta> appControls;
    std::vector<DeviceMeta> halControls;
};

struct SubmitCall {
    uint32_t requestNo = 0;
    bool checksPureRaw = false;
    bool needsFrameSync = false;
    bool callbackLives = false;
    std::optional<NSCam::ZslPolicy::ZslPolicyParams> policy;
    bool hasSelector = false;
    std::optional<std::string> selectorName;
    std::optional<std::string> selectorNameFailure;  ///< what getName threw
    std::optional<uint64_t> provider;
    std::vector<std::pair<uint32_t, uint32_t>> sensorModes;
    std::vector<uint32_t> requiredSensors;
    std::vector<RequestedFrame> frames;
    uint64_t firstBuilder = 0;  ///< number of the first frame's builder
};

struct RetryCall {
    uint32_t requestNo = 0;
};

struct ResultMeta {
    std::optional<size_t> stream;
    std::optional<int64_t> timestampNs;  ///< before the operation
};

struct ResultCall {
    uint32_t requestNo = 0;
    uint32_t resultRequestNo = 0;
    uint32_t appMetasLeft = 0;
    uint32_t halMetasLeft = 0;
    bool isFrameEnd = false;
    std::vector<ResultMeta> appMetas;
};

/// One attempt to serve a capture, as its provider saw it.
struct DeviceTry {
    uint64_t provider = 0;
    record::ClockReading offered;
    std::optional<std::vector<size_t>> frames;  ///< none: there was no history
    std::optional<record::ClockReading> asked;  ///< when the frames in flight were
    std::vector<uint32_t> inFlight;
    std::optional<record::ClockReading> ended;
};

struct DeviceFault {
    record::ProviderCall call{};
    uint64_t count = 0;  ///< of the calls of this kind in the operation; the first is 1
    std::string text;
};

struct DeviceClone {
    uint64_t provider = 0;
    size_t frame = 0;
};

/// A selector's answer, or what it threw.
struct DeviceAnswer {
    uint32_t requestNo = 0;
    int64_t zsdNs = 0;
    int64_t durationMs = 0;
    std::optional<std::string> failure;
    NSCam::ZslPolicy::ISelector::SelectOutputParams answer;
};

struct ReturnStep {
    uint64_t provider = 0;
    uint32_t frameNo = 0;
    bool isUnused = false;
    bool isClone = false;
    bool operator==(ReturnStep const&) const = default;
};

struct BuiltStep {
    uint64_t builder = 0;
    bool isFromHistory = false;
    bool isClone = false;
    std::optional<uint32_t> frameNo;
    int64_t timestampNs = 0;
    bool operator==(BuiltStep const&) const = default;
};

/// What an operation did, in order.
using DeviceStep = std::variant<ReturnStep, BuiltStep>;

/// How an operation ended.
struct DeviceOutcome {
    std::optional<std::string> failure;  ///< what it threw
    int64_t status = 0;
    std::vector<std::vector<uint64_t>> builders;
    std::vector<bool> timestampsLeft;  ///< of a result, by application metadata
};

struct DeviceOperation {
    record::Operation kind{};
    record::ClockReading begun;
    record::ClockReading ended;
    /// Of a flush nothing.
    std::variant<std::monostate, ConfigureCall, SubmitCall, RetryCall, ResultCall> call;
    std::optional<record::ClockReading> submissionRead;
    std::optional<std::string> callbackFailure;  ///< what the result callback threw
    std::vector<DeviceTry> tries;
    std::vector<DeviceFault> faults;
    std::vector<DeviceClone> clones;
    std::vector<DeviceAnswer> answers;
    std::vector<DeviceStep> steps;
    DeviceOutcome outcome;
};

struct DeviceRecording {
    std::string path;
    uint64_t fileBytes = 0;
    int64_t openId = 0;
    std::optional<uint8_t> timestampSource;  ///< none: the device did not tell
    record::ClockReading begun;
    std::vector<std::pair<std::string, std::string>> properties;
    std::vector<DeviceStream> streams;
    std::vector<DeviceFrame> frames;
    std::vector<DeviceOperation> operations;
    uint64_t builders = 0;
    std::vector<std::string> notes;  ///< for the user, for instance that the file was cut off
};

}  // namespace zebcam::tool::device
