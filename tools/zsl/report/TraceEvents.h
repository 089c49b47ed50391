#pragma once

#include <nlohmann/json.hpp>

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "pipeline/CaptureRecord.h"
#include "recording/Recording.h"

namespace zebcam::tool::report {

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
    char phase = 's';  ///< s: the arrow starts, t: it goes on, f: it ends
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

/**
 * The arrows of a trace: one for each frame of a capture, through its press, the sensor frame that
 * was chosen and its result. An arrow goes forward in time, so that one to a frame which arrived
 * before the press begins at that frame.
 */
class TraceFlows {
public:
    /// `frameEndsNs`: where the slices of the recording's frames end.
    TraceFlows(recording::Recording const& recording, std::vector<int64_t> const& frameEndsNs,
               std::vector<pipeline::CaptureRecord> const& captures);

    /// The marks inside a slice, ascending in time.
    std::vector<FlowMark> const& atPress(size_t capture) const { return mAtPress[capture]; }
    std::vector<FlowMark> atFrame(uint32_t frameNo) const;
    /// Of one frame of the capture.
    std::vector<FlowMark> const& atResult(size_t capture, size_t frame) const {
        return mAtResult[capture][frame];
    }

private:
    /// A point of an arrow in time, and the marks that it goes to.
    using Place = std::pair<int64_t, std::vector<FlowMark>*>;
    void addFlow(std::vector<Place> places, std::string const& name);

    uint64_t mFlows = 0;
    std::vector<std::vector<FlowMark>> mAtPress;
    std::unordered_map<uint32_t, std::vector<FlowMark>> mAtFrame;  ///< by frame number
    std::vector<std::vector<std::vector<FlowMark>>> mAtResult;     ///< by capture and frame
};

}  // namespace zebcam::tool::report
