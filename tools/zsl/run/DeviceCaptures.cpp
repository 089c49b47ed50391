#include "run/DeviceCaptures.h"

#include <algorithm>

#include "run/DeviceScript.h"

#include "pipeline/ReplayOptions.h"

namespace zebcam::tool::run {

size_t DeviceCaptures::open(device::SubmitCall const& call, Builders const& builders) {
    std::map<uint32_t, uint32_t> modes;
    for (auto const& [sensor, mode] : call.sensorModes) {
        if (std::find(call.requiredSensors.begin(), call.requiredSensors.end(), sensor) !=
            call.requiredSensors.end()) {
            modes.emplace(sensor, mode);
        }
    }
    Builders servable;
    for (size_t i = 0; i < builders.size(); ++i) {
        // Builders go by number, so that those that nobody answers have a place too.
        mPlaces.emplace_back(mSize, std::nullopt);
        if (isServable(call.frames[i])) {
            mPlaces.back().second = servable.size();
            servable.push_back(builders[i]);
        }
    }
    mBuilders.insert(mBuilders.end(), builders.begin(), builders.end());
    mBook.setBuilders(mBook.open(std::move(modes), servable.size(), call.requestNo), servable);
    // Request numbers may come again; results are then the newest capture's.
    mBuilt.erase(call.requestNo);
    return mSize++;
}

void DeviceCaptures::take(NSCam::v3::pipeline::model::ZslFrameBuilders const& lists, bool isFlush,
                          pipeline::CaptureBook::Operation& operation) {
    for (pipeline::BuiltFrame const& frame : operation.take(lists, isFlush, mProblems)) {
        mBuilt[mBook.requestNoOf(frame.capture)].first.push_back(frame);
    }
}

void DeviceCaptures::tellResult(device::ResultCall const& call, std::optional<int64_t> reportedNs) {
    auto const built = mBuilt.find(call.requestNo);
    if (built == mBuilt.end()) {
        return;
    }
    auto& [frames, told] = built->second;
    // Results come in the order of the frames; what comes after the last one is of none.
    if (told < frames.size()) {
        mBook.endResult(frames[told++], reportedNs);
    }
    if (call.isFrameEnd) {
        for (pipeline::BuiltFrame const& frame : frames) {
            frame.builder->finish();
        }
    }
}

std::vector<pipeline::CaptureRecord> DeviceCaptures::identify(
    device::DeviceRecording& replayed) const {
    std::map<uint32_t, int64_t> timestamps;  // by frame number
    for (device::DeviceFrame const& frame : mRecording.frames) {
        timestamps.emplace(frame.frameNo, frame.timestampNs);
    }
    std::vector<pipeline::CaptureRecord> records = mBook.records();
    for (device::DeviceOperation& operation : replayed.operations) {
        for (device::DeviceStep& step : operation.steps) {
            auto* const built = std::get_if<device::BuiltStep>(&step);
            if (built == nullptr || !mPlaces.at(built->builder).second) {
                continue;
            }
            auto const [capture, frame] = mPlaces[built->builder];
            pipeline::FrameOutcome& outcome = records[capture].frames[*frame];
            // They complete each other: the ledger knows a frame by its images, the recorder by its
            // time.
            if (outcome.historyFrame) {
                built->frameNo = outcome.historyFrame;
            } else if (outcome.answeredNs && built->frameNo) {
                outcome.historyFrame = built->frameNo;
                outcome.timestampNs = timestamps.at(*built->frameNo);
            }
        }
    }
    return records;
}

void DeviceCaptures::finish() {
    for (auto const& builder : mBuilders) {
        if (builder != nullptr) {
            builder->finish();
        }
    }
}

}  // namespace zebcam::tool::run
