#include "report/TraceEvents.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace zebcam::tool::report {

namespace {

// The format counts in us; a double holds those of a day to the ns.
constexpr double NS_PER_US = 1000;

std::string textOf(TraceEvents::Json const& json) {
    // A path need not be UTF-8.
    return json.dump(-1, ' ', false, TraceEvents::Json::error_handler_t::replace);
}

TraceEvents::Json named(TraceEvents::Json event, std::string_view category, std::string const& name,
                        TraceEvents::Json args) {
    event["cat"] = category;
    event["name"] = name;
    event["args"] = std::move(args);
    return event;
}

}  // namespace

TraceEvents::TraceEvents(std::ostream& out, int64_t originNs) : mOut(out), mOriginNs(originNs) {
    mOut << R"({"displayTimeUnit":"ms","traceEvents":[)";
}

// Rows are sorted by name where no index is told, and 10 comes before 2.

void TraceEvents::nameProcess(int process, std::string const& name) {
    write({{"ph", "M"}, {"pid", process}, {"name", "process_name"}, {"args", {{"name", name}}}});
    write({{"ph", "M"},
           {"pid", process},
           {"name", "process_sort_index"},
           {"args", {{"sort_index", process}}}});
}

void TraceEvents::nameThread(Track track, std::string const& name, int64_t sortIndex) {
    write({{"ph", "M"},
           {"pid", track.process},
           {"tid", track.thread},
           {"name", "thread_name"},
           {"args", {{"name", name}}}});
    write({{"ph", "M"},
           {"pid", track.process},
           {"tid", track.thread},
           {"name", "thread_sort_index"},
           {"args", {{"sort_index", sortIndex}}}});
}

void TraceEvents::begin(Track track, int64_t timeNs, std::string_view category,
                        std::string const& name, Json args) {
    write(named(event("B", track, timeNs), category, name, std::move(args)));
}

void TraceEvents::end(Track track, int64_t timeNs) {
    write(event("E", track, timeNs));
}

void TraceEvents::instant(Track track, int64_t timeNs, std::string_view category,
                          std::string const& name, Json args) {
    Json json = event("i", track, timeNs);
    json["s"] = "t";  // it concerns its track, and is drawn no higher than that
    write(named(std::move(json), category, name, std::move(args)));
}

void TraceEvents::counter(int process, int64_t timeNs, std::string const& name, size_t frames) {
    Json json = event("C", {process, 0}, timeNs);
    json.erase("tid");  // counters belong to a process
    json["name"] = name;
    json["args"] = {{"frames", frames}};
    write(json);
}

void TraceEvents::flow(Track track, FlowMark const& mark) {
    Json json = event(std::string_view(&mark.phase, 1), track, mark.timeNs);
    json["cat"] = "flow";
    json["name"] = mark.name;
    json["id"] = mark.id;
    json["bp"] = "e";  // to the slice that is open then, not to the next that begins
    write(json);
}

void TraceEvents::finish(Json const& about) {
    mOut << "\n],\"otherData\":" << textOf(about) << "}\n";
}

TraceEvents::Json TraceEvents::event(std::string_view phase, Track track, int64_t timeNs) const {
    return {{"ph", phase},
            {"pid", track.process},
            {"tid", track.thread},
            {"ts", static_cast<double>(timeNs - mOriginNs) / NS_PER_US}};
}

void TraceEvents::write(Json const& event) {
    mOut << (mIsFirst ? "\n" : ",\n") << textOf(event);
    mIsFirst = false;
}

TraceFlows::TraceFlows(recording::Recording const& recording,
                       std::vector<int64_t> const& frameEndsNs,
                       std::vector<pipeline::CaptureRecord> const& captures)
    : mAtPress(captures.size()), mAtResult(captures.size()) {
    auto const& sensor = recording.frames;
    for (size_t c = 0; c < captures.size(); ++c) {
        pipeline::CaptureRecord const& capture = captures[c];
        mAtResult[c].resize(capture.frames.size());
        for (size_t i = 0; i < capture.frames.size(); ++i) {
            pipeline::FrameOutcome const& frame = capture.frames[i];
            std::vector<Place> places{{capture.pressNs, &mAtPress[c]}};
            auto const chosen =
                std::lower_bound(sensor.begin(), sensor.end(), frame.historyFrame.value_or(0),
                                 [](recording::SensorFrame const& f, uint32_t number) {
                                     return f.frameNo < number;
                                 });
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
    // A press that was never answered has nothing to be tied to.
    if (places.size() < 2) {
        return;
    }
    ++mFlows;
    // Stable: at one instant the press comes before the frame, and the frame before the result.
    std::stable_sort(places.begin(), places.end(),
                     [](Place const& a, Place const& b) { return a.first < b.first; });
    for (size_t i = 0; i < places.size(); ++i) {
        char const phase = i == 0 ? 's' : i + 1 < places.size() ? 't' : 'f';
        auto const& [timeNs, marks] = places[i];
        marks->push_back({phase, mFlows, name, timeNs});
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

}  // namespace zebcam::tool::report
