#include "run/DeviceComparison.h"

#include <fmt/format.h>

#include <algorithm>

#include "base/Duration.h"

namespace zebcam::tool::run {

namespace {

constexpr size_t kMostDifferences = 10;
constexpr int64_t kNsPerS = 1'000'000'000;

std::string nameOf(device::DeviceOperation const& operation) {
    if (auto const* const submit = std::get_if<device::SubmitCall>(&operation.call)) {
        return fmt::format("submission of request {}", submit->requestNo);
    }
    if (auto const* const retry = std::get_if<device::RetryCall>(&operation.call)) {
        return fmt::format("retry for request {}", retry->requestNo);
    }
    if (auto const* const result = std::get_if<device::ResultCall>(&operation.call)) {
        return fmt::format("result of request {}", result->requestNo);
    }
    return operation.kind == record::Operation::FLUSH ? "flush" : "configuration";
}

std::string ending(std::optional<std::string> const& failure) {
    return failure ? fmt::format("threw \"{}\"", *failure) : "returned";
}

}  // namespace

DeviceComparison::DeviceComparison(device::DeviceRecording const& recording)
    : mRecording(recording) {
    for (device::DeviceOperation const& operation : recording.operations) {
        if (auto const* const call = std::get_if<device::SubmitCall>(&operation.call)) {
            for (size_t i = 0; i < call->frames.size(); ++i) {
                mNames.push_back({call->requestNo, i});
            }
        }
    }
}

void DeviceComparison::add(DeviceScript const& script, device::DeviceOutcome const& outcome) {
    device::DeviceOperation const& recorded = script.operation();
    for (device::DeviceStep const& step : recorded.steps) {
        if (std::holds_alternative<device::BuiltStep>(step)) {
            ++mFrames;
            mSameFrames += std::any_of(script.steps().begin(), script.steps().end(),
                                       [&](auto const& other) { return isSame(step, other); })
                               ? 1
                               : 0;
        }
    }
    std::string const difference = firstDifference(script, outcome);
    if (difference.empty()) {
        mAgreement.operations += isSame() ? 1 : 0;
        return;
    }
    if (isSame()) {
        mAgreement.steps = commonSteps(script);
    }
    ++mOperationsThatDiffer;
    if (mDifferences.size() < kMostDifferences) {
        mDifferences.push_back(fmt::format(
            "at {} s, {}: {}", base::formatSeconds(recorded.begun.bootNs - mRecording.begun.bootNs),
            nameOf(recorded), difference));
    }
}

std::string DeviceComparison::firstDifference(DeviceScript const& script,
                                              device::DeviceOutcome const& outcome) const {
    device::DeviceOutcome const& recorded = script.operation().outcome;
    if (!script.problems().empty()) {
        return script.problems().front();
    }
    if (std::string step = differingStep(script); !step.empty()) {
        return step;
    }
    if (size_t const left = script.leftTries(); left > 0) {
        return fmt::format("the device asked for the history {} more times", left);
    }
    if (recorded.failure.has_value() != outcome.failure.has_value()) {
        return fmt::format("the device {}, the replay {}", ending(recorded.failure),
                           ending(outcome.failure));
    }
    if (recorded.status != outcome.status) {
        return fmt::format("the device returned {}, the replay {}", recorded.status,
                           outcome.status);
    }
    if (recorded.builders != outcome.builders) {
        return fmt::format("the device returned {}, the replay {}", describe(recorded.builders),
                           describe(outcome.builders));
    }
    if (recorded.timestampsLeft != outcome.timestampsLeft) {
        return "the device removed the sensor timestamp of other metadata";
    }
    return {};
}

size_t DeviceComparison::commonSteps(DeviceScript const& script) const {
    auto const& recorded = script.operation().steps;
    auto const& replayed = script.steps();
    size_t const most = std::min(recorded.size(), replayed.size());
    size_t same = 0;
    while (same < most && isSame(recorded[same], replayed[same])) {
        ++same;
    }
    return same;
}

std::string DeviceComparison::differingStep(DeviceScript const& script) const {
    auto const& recorded = script.operation().steps;
    auto const& replayed = script.steps();
    size_t const i = commonSteps(script);
    if (i == recorded.size() && i == replayed.size()) {
        return {};
    }
    return fmt::format("on the device {}, in the replay {}",
                       i < recorded.size() ? describe(recorded[i]) : "nothing more",
                       i < replayed.size() ? describe(replayed[i]) : "nothing more");
}

bool DeviceComparison::isSame(device::DeviceStep const& recorded,
                              device::DeviceStep const& replayed) const {
    auto const* const recordedBuilt = std::get_if<device::BuiltStep>(&recorded);
    auto const* const replayedBuilt = std::get_if<device::BuiltStep>(&replayed);
    return recordedBuilt != nullptr && replayedBuilt != nullptr
               ? isSame(*recordedBuilt, *replayedBuilt)
               : recorded == replayed;
}

bool DeviceComparison::isSame(device::BuiltStep const& recorded,
                              device::BuiltStep const& replayed) const {
    device::BuiltStep expected = recorded;
    if (recorded.isFromHistory && !recorded.frameNo) {  // without images a frame may be unknown
        expected.frameNo = replayed.frameNo;
        expected.isClone = replayed.isClone;
    }
    // Early shutters before any history count from when the processor was made, which is known
    // only as before the recorder was.
    record::ClockReading const& begun = mRecording.begun;
    int64_t const madeNs =
        mRecording.timestampSource.value_or(1) != 0 ? begun.bootNs : begun.monotonicNs;
    if (recorded.timestampNs < replayed.timestampNs && replayed.timestampNs > madeNs &&
        replayed.timestampNs < madeNs + kNsPerS && recorded.timestampNs != 0) {
        expected.timestampNs = replayed.timestampNs;
    }
    return expected == replayed;
}

std::string DeviceComparison::name(uint64_t builder) const {
    if (builder >= mNames.size()) {
        return "an unknown frame";
    }
    return fmt::format("frame {} of request {}", mNames[builder].index, mNames[builder].requestNo);
}

std::string DeviceComparison::describe(device::DeviceStep const& step) const {
    if (auto const* const returned = std::get_if<device::ReturnStep>(&step)) {
        return fmt::format("F{}{} goes back {}", returned->frameNo,
                           returned->isClone ? " (clone)" : "",
                           returned->isUnused ? "unused" : "for good");
    }
    device::BuiltStep const& built = std::get<device::BuiltStep>(step);
    std::string const from =
        !built.isFromHistory ? "an ordinary capture"
        : built.frameNo      ? fmt::format("F{}{}", *built.frameNo, built.isClone ? " (clone)" : "")
                             : "an unknown history frame";
    return fmt::format("{} becomes {} at {} ns", name(built.builder), from, built.timestampNs);
}

std::string DeviceComparison::describe(std::vector<std::vector<uint64_t>> const& lists) const {
    std::string text;
    for (auto const& list : lists) {
        text += text.empty() ? "[" : ", [";
        for (size_t i = 0; i < list.size(); ++i) {
            text += (i > 0 ? ", " : "") + (list[i] > 0 ? name(list[i] - 1) : "no builder");
        }
        text += "]";
    }
    return text.empty() ? "no frames" : text;
}

}  // namespace zebcam::tool::run
