#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

#include "device/DeviceRecording.h"
#include "run/DeviceScript.h"

namespace zebcam::tool::run {

/// How far a replay did what the device did.
struct DeviceAgreement {
    size_t operations = 0;  ///< that were the same, up to the first that was not
    size_t steps = 0;       ///< of that one, likewise

    bool operator>(DeviceAgreement const& other) const {
        return std::tie(operations, steps) > std::tie(other.operations, other.steps);
    }
};

/// Holds what a replay does against what the device did.
class DeviceComparison {
public:
    explicit DeviceComparison(device::DeviceRecording const& recording);

    /// An operation is over; `outcome` is the replay's, whose builders are numbered as recorded.
    void add(DeviceScript const& script, device::DeviceOutcome const& outcome);

    size_t frames() const { return mFrames; }          ///< that the device built
    size_t sameFrames() const { return mSameFrames; }  ///< that the replay built just so
    /// The first differences, one an operation, and how many there are in all.
    std::vector<std::string> const& differences() const { return mDifferences; }
    size_t operationsThatDiffer() const { return mOperationsThatDiffer; }
    bool isSame() const { return mOperationsThatDiffer == 0; }
    DeviceAgreement agreement() const { return mAgreement; }

private:
    std::string firstDifference(DeviceScript const& script,
                                device::DeviceOutcome const& outcome) const;
    std::string differingStep(DeviceScript const& script) const;
    size_t commonSteps(DeviceScript const& script) const;
    bool isSame(device::DeviceStep const& recorded, device::DeviceStep const& replayed) const;
    bool isSame(device::BuiltStep const& recorded, device::BuiltStep const& replayed) const;
    std::string name(uint64_t builder) const;
    std::string describe(device::DeviceStep const& step) const;
    std::string describe(std::vector<std::vector<uint64_t>> const& lists) const;

    struct Frame {
        uint32_t requestNo = 0;
        size_t index = 0;
    };

    device::DeviceRecording const& mRecording;
    std::vector<Frame> mNames;  ///< by builder
    size_t mFrames = 0;
    size_t mSameFrames = 0;
    size_t mOperationsThatDiffer = 0;
    DeviceAgreement mAgreement;
    std::vector<std::string> mDifferences;
};

}  // namespace zebcam::tool::run
