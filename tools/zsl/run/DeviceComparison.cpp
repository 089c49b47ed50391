#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "base/Text.h"
#include "run/DeviceReplay.h"

namespace zebcam::tool::run {

namespace {

// Decisions build on those before, so that the later differences tell little more.
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

/// What the replay wanted of its surroundings that the device did not; empty: nothing.
std::string wantedMore(device::DeviceOperation const& recorded,
                       device::DeviceOperation const& replayed) {
    if (replayed.tries.size() > recorded.tries.size()) {
        return "the processor asked for the history, which it did not on the device";
    }
    if (replayed.clones.size() > recorded.clones.size()) {
        return "the processor cloned a set, which it did not on the device";
    }
    for (size_t i = 0; i < replayed.answers.size(); ++i) {
        uint32_t const requestNo = replayed.answers[i].requestNo;
        if (i >= recorded.answers.size() || recorded.answers[i].requestNo != requestNo) {
            return fmt::format("the policy of request {} was asked, which it was not on the device",
                               requestNo);
        }
        // The script leaves out what the processor must not be told.
        for (auto const& [index, selected] : recorded.answers[i].answer.selected) {
            if (replayed.answers[i].answer.selected.count(index) == 0) {
                return fmt::format(
                    "the recorded answer for request {} names frame {}, which the processor did "
                    "not ask about",
                    requestNo, index);
            }
        }
    }
    return {};
}

/// Compares operation by operation, and words what is otherwise.
class Comparer {
public:
    Comparer(device::DeviceRecording const& recorded, device::DeviceRecording const& replayed)
        : mRecorded(recorded), mReplayed(replayed) {
        for (size_t i = 0; i < recorded.operations.size(); ++i) {
            auto const* const call = std::get_if<device::SubmitCall>(&recorded.operations[i].call);
            for (size_t frame = 0; call != nullptr && frame < call->frames.size(); ++frame) {
                mNames.emplace_back(call->requestNo, frame);
            }
            // A replay has a provider for each capture, the device perhaps one for all.
            if (call != nullptr && call->provider && i < replayed.operations.size()) {
                auto const& own = std::get<device::SubmitCall>(replayed.operations[i].call);
                mProviders.emplace(own.provider.value_or(0), *call->provider);
            }
        }
    }

    DeviceComparison compare(size_t operations) {
        DeviceComparison result;
        DeviceVerdict& verdict = result.verdict;
        verdict.operations = operations;
        for (size_t i = 0; i < operations; ++i) {
            device::DeviceOperation const& recorded = mRecorded.operations[i];
            countFrames(i, verdict);
            std::string const difference = firstDifference(i);
            if (difference.empty()) {
                result.agreement.first += verdict.isSame() ? 1 : 0;
                continue;
            }
            if (verdict.isSame()) {
                result.agreement.second = commonSteps(i);
            }
            ++verdict.operationsThatDiffer;
            if (verdict.differences.size() < kMostDifferences) {
                verdict.differences.push_back(
                    fmt::format("at {} s, {}: {}",
                                base::formatSeconds(recorded.begun.bootNs - mRecorded.begun.bootNs),
                                nameOf(recorded), difference));
            }
        }
        return result;
    }

private:
    /// The replay's side of an operation; null when its recording ended before.
    device::DeviceOperation const* replayOf(size_t operation) const {
        return operation < mReplayed.operations.size() ? &mReplayed.operations[operation] : nullptr;
    }

    void countFrames(size_t operation, DeviceVerdict& verdict) const {
        device::DeviceOperation const* const replayed = replayOf(operation);
        for (device::DeviceStep const& step : mRecorded.operations[operation].steps) {
            if (std::holds_alternative<device::BuiltStep>(step)) {
                // Anywhere in the operation: that steps come in another order is a difference by
                // itself.
                ++verdict.builtFrames;
                verdict.sameFrames +=
                    replayed != nullptr &&
                            std::any_of(replayed->steps.begin(), replayed->steps.end(),
                                        [&](auto const& other) { return isSame(step, other); })
                        ? 1
                        : 0;
            }
        }
    }

    std::string firstDifference(size_t operation) const {
        if (replayOf(operation) == nullptr) {
            return "the replay's recording of itself had ended";
        }
        device::DeviceOperation const& recorded = mRecorded.operations[operation];
        device::DeviceOperation const& replayed = mReplayed.operations[operation];
        // First: where the processor asked for more, all that comes after may follow from that.
        if (std::string more = wantedMore(recorded, replayed); !more.empty()) {
            return more;
        }
        size_t const same = commonSteps(operation);
        if (same < recorded.steps.size() || same < replayed.steps.size()) {
            return fmt::format(
                "on the device {}, in the replay {}",
                same < recorded.steps.size() ? describe(recorded.steps[same]) : "nothing more",
                same < replayed.steps.size() ? describe(replayed.steps[same]) : "nothing more");
        }
        // Never negative: more tries than the device's were told above.
        if (size_t const left = recorded.tries.size() - replayed.tries.size(); left > 0) {
            return fmt::format("the device asked for the history {} more times", left);
        }
        return differingOutcome(recorded.outcome, replayed.outcome);
    }

    std::string differingOutcome(device::DeviceOutcome const& recorded,
                                 device::DeviceOutcome const& replayed) const {
        if (recorded.failure.has_value() != replayed.failure.has_value()) {
            return fmt::format("the device {}, the replay {}", ending(recorded.failure),
                               ending(replayed.failure));
        }
        if (recorded.status != replayed.status) {
            return fmt::format("the device returned {}, the replay {}", recorded.status,
                               replayed.status);
        }
        if (recorded.builders != replayed.builders) {
            return fmt::format("the device returned {}, the replay {}", describe(recorded.builders),
                               describe(replayed.builders));
        }
        if (recorded.timestampsLeft != replayed.timestampsLeft) {
            return "the device removed the sensor timestamp of other metadata";
        }
        return {};
    }

    size_t commonSteps(size_t operation) const {
        device::DeviceOperation const* const replay = replayOf(operation);
        auto const& recorded = mRecorded.operations[operation].steps;
        size_t const most = replay != nullptr ? std::min(recorded.size(), replay->steps.size()) : 0;
        size_t same = 0;
        while (same < most && isSame(recorded[same], replay->steps[same])) {
            ++same;
        }
        return same;
    }

    bool isSame(device::DeviceStep const& recorded, device::DeviceStep const& replayed) const {
        auto const* const recordedBuilt = std::get_if<device::BuiltStep>(&recorded);
        auto const* const replayedBuilt = std::get_if<device::BuiltStep>(&replayed);
        if (recordedBuilt != nullptr && replayedBuilt != nullptr) {
            return isSame(*recordedBuilt, *replayedBuilt);
        }
        auto const* const replayedReturn = std::get_if<device::ReturnStep>(&replayed);
        if (replayedReturn == nullptr) {
            return false;
        }
        device::ReturnStep step = *replayedReturn;
        auto const provider = mProviders.find(step.provider);
        step.provider = provider != mProviders.end() ? provider->second : step.provider;
        return recorded == device::DeviceStep(step);
    }

    bool isSame(device::BuiltStep const& recorded, device::BuiltStep const& replayed) const {
        device::BuiltStep expected = recorded;
        if (recorded.isFromHistory && !recorded.frameNo) {  // without images it may be unknown
            expected.frameNo = replayed.frameNo;
            expected.isClone = replayed.isClone;
        }
        // Early shutters before any history count from when the processor was made, which is known
        // only as before the recorder was.
        record::ClockReading const& begun = mRecorded.begun;
        int64_t const madeNs =
            mRecorded.timestampSource.value_or(1) != 0 ? begun.bootNs : begun.monotonicNs;
        if (recorded.timestampNs < replayed.timestampNs && replayed.timestampNs > madeNs &&
            replayed.timestampNs < madeNs + kNsPerS && recorded.timestampNs != 0) {
            expected.timestampNs = replayed.timestampNs;
        }
        return expected == replayed;
    }

    std::string name(uint64_t builder) const {
        return builder < mNames.size() ? fmt::format("frame {} of request {}",
                                                     mNames[builder].second, mNames[builder].first)
                                       : "an unknown frame";
    }

    std::string describe(device::DeviceStep const& step) const {
        if (auto const* const returned = std::get_if<device::ReturnStep>(&step)) {
            return fmt::format("F{}{} goes back {}", returned->frameNo,
                               returned->isClone ? " (clone)" : "",
                               returned->isUnused ? "unused" : "for good");
        }
        device::BuiltStep const& built = std::get<device::BuiltStep>(step);
        std::string const from =
            !built.isFromHistory ? "an ordinary capture"
            : built.frameNo ? fmt::format("F{}{}", *built.frameNo, built.isClone ? " (clone)" : "")
                            : "an unknown history frame";
        return fmt::format("{} becomes {} at {} ns", name(built.builder), from, built.timestampNs);
    }

    std::string describe(std::vector<std::vector<uint64_t>> const& lists) const {
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

    device::DeviceRecording const& mRecorded;
    device::DeviceRecording const& mReplayed;
    std::vector<std::pair<uint32_t, size_t>> mNames;  ///< request and frame, by builder
    std::map<uint64_t, uint64_t> mProviders;          ///< the device's, by the replay's
};

}  // namespace

DeviceComparison compareDecisions(device::DeviceRecording const& recorded,
                                  device::DeviceRecording const& replayed, size_t operations) {
    return Comparer(recorded, replayed).compare(operations);
}

}  // namespace zebcam::tool::run
