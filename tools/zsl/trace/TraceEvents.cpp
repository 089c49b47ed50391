#include "trace/TraceEvents.h"

#include <utility>

namespace zebcam::tool {
namespace {

constexpr double NS_PER_US = 1000;

std::string_view letterOf(FlowMark::Phase phase) {
    switch (phase) {
        case FlowMark::Phase::Start:
            return "s";
        case FlowMark::Phase::Step:
            return "t";
        case FlowMark::Phase::End:
            break;
    }
    return "f";
}

std::string textOf(TraceEvents::Json const& json) {
    // A path need not be UTF-8.
    return json.dump(-1, ' ', false, TraceEvents::Json::error_handler_t::replace);
}

}  // namespace

TraceEvents::TraceEvents(std::ostream& out, int64_t originNs) : mOut(out), mOriginNs(originNs) {
    mOut << R"({"displayTimeUnit":"ms","traceEvents":[)";
}

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
    Json json = event("B", track, timeNs);
    json["cat"] = category;
    json["name"] = name;
    json["args"] = std::move(args);
    write(json);
}

void TraceEvents::end(Track track, int64_t timeNs) {
    write(event("E", track, timeNs));
}

void TraceEvents::instant(Track track, int64_t timeNs, std::string_view category,
                          std::string const& name, Json args) {
    Json json = event("i", track, timeNs);
    json["s"] = "t";
    json["cat"] = category;
    json["name"] = name;
    json["args"] = std::move(args);
    write(json);
}

void TraceEvents::counter(int process, int64_t timeNs, std::string const& name, size_t frames) {
    Json json = event("C", {process, 0}, timeNs);
    json.erase("tid");  // counters belong to a process
    json["name"] = name;
    json["args"] = {{"frames", frames}};
    write(json);
}

void TraceEvents::flow(Track track, FlowMark const& mark) {
    Json json = event(letterOf(mark.phase), track, mark.timeNs);
    json["cat"] = "flow";
    json["name"] = mark.name;
    json["id"] = mark.id;
    json["bp"] = "e";
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

}  // namespace zebcam::tool
