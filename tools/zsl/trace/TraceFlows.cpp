#include "trace/TraceFlows.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace zebcam::tool {

/// A point of an arrow and the list of marks that it belongs to.
struct TraceFlows::Place {
    int64_t timeNs;
    std::vector<FlowMark>* marks;
};

TraceFlows::TraceFlows(Recording const& recording, std::vector<int64_t> const& frameEndsNs,
                       std::vector<CaptureRecord> const& captures)
    : mAtPress(captures.size()), mAtResult(captures.size()) {
    auto const& sensor = recording.frames;
    for (size_t c = 0; c < captures.size(); ++c) {
        CaptureRecord const& capture = captures[c];
        mAtResult[c].resize(capture.frames.size());
        for (size_t i = 0; i < capture.frames.size(); ++i) {
            FrameOutcome const& frame = capture.frames[i];
            std::vector<Place> places{{capture.pressNs, &mAtPress[c]}};
            auto const chosen = std::lower_bound(
                sensor.begin(), sensor.end(), frame.historyFrame.value_or(0),
                [](SensorFrame const& f, uint32_t number) { return f.frameNo < number; });
            if (frame.historyFrame && chosen != sensor.end() &&
                chosen->frameNo == *frame.historyFrame) {
                int64_t const endNs = frameEndsNs[static_cast<size_t>(chosen - sensor.begin())];
                // Just after the press in a frame that was under way then.
                int64_t const lastNs = std::max(chosen->timestampNs, endNs - 1);
                places.push_back({std::clamp(capture.pressNs + 1, chosen->timestampNs, lastNs),
                                  &mAtFrame[chosen->frameNo]});
            }
            if (frame.resultNs) {
                places.push_back({*frame.resultNs, &mAtResult[c][i]});
            }
            addFlow(std::move(places), fmt::format("capture {} frame {}", capture.requestNo, i));
        }
    }
}

void TraceFlows::addFlow(std::vector<Place> places, std::string const& name) {
    if (places.size() < 2) {
        return;
    }
    ++mFlows;
    std::stable_sort(places.begin(), places.end(),
                     [](Place const& a, Place const& b) { return a.timeNs < b.timeNs; });
    for (size_t i = 0; i < places.size(); ++i) {
        auto const phase = i == 0                  ? FlowMark::Phase::Start
                           : i + 1 < places.size() ? FlowMark::Phase::Step
                                                   : FlowMark::Phase::End;
        places[i].marks->push_back({phase, mFlows, name, places[i].timeNs});
    }
}

std::vector<FlowMark> TraceFlows::atFrame(uint32_t frameNo) const {
    auto const found = mAtFrame.find(frameNo);
    if (found == mAtFrame.end()) {
        return {};
    }
    std::vector<FlowMark> marks = found->second;
    std::stable_sort(marks.begin(), marks.end(),
                     [](FlowMark const& a, FlowMark const& b) { return a.timeNs < b.timeNs; });
    return marks;
}

}  // namespace zebcam::tool
