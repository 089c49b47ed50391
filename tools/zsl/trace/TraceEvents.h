#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <ostream>
#include <string>
#include <string_view>

namespace zebcam::tool {

/// A row of a trace.
struct Track {
    int process = 0;
    int64_t thread = 0;
};

/// Row `row` of a process, below a million. Thread numbers are unique over the processes, as on a
/// real machine.
constexpr Track rowOf(int process, int64_t row) {
    return {process, process * int64_t{1'000'000} + row};
}

/// Where an arrow goes through a slice: it binds to the innermost one that is open then.
struct FlowMark {
    enum class Phase { Start, Step, End } phase = Phase::Start;
    uint64_t id = 0;
    std::string name;
    int64_t timeNs = 0;
};

/**
 * Writes a file in the Trace Event Format (a JSON object), event by event. Times are boot times in
 * ns; in the file they are us from the origin.
 *
 * Slices are pairs of B and E rather than complete events: a reader that rounds the times still
 * nests them rightly, as equal times stay equal. A track's slices and marks must be written in the
 * order of its time, a slice's end before the begin of the next.
 */
class TraceEvents {
public:
    using Json = nlohmann::ordered_json;

    TraceEvents(std::ostream& out, int64_t originNs);

    /// Processes are shown by number, the threads of one by `sortIndex`.
    void nameProcess(int process, std::string const& name);
    void nameThread(Track track, std::string const& name, int64_t sortIndex);

    void begin(Track track, int64_t timeNs, std::string_view category, std::string const& name,
               Json args);
    void end(Track track, int64_t timeNs);
    void instant(Track track, int64_t timeNs, std::string_view category, std::string const& name,
                 Json args);
    void counter(int process, int64_t timeNs, std::string const& name, size_t frames);
    void flow(Track track, FlowMark const& mark);

    /// Completes the file; `about` is told of the whole.
    void finish(Json const& about);

private:
    Json event(std::string_view phase, Track track, int64_t timeNs) const;
    void write(Json const& event);

    std::ostream& mOut;
    int64_t const mOriginNs;
    bool mIsFirst = true;
};

}  // namespace zebcam::tool
