#include "report/Reports.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <map>

#include "Version.h"
#include "report/JsonParts.h"
#include "report/TraceTracks.h"

namespace zebcam::tool::report {

namespace {

// The page shows processes by number: what happens first comes first.
constexpr int VERDICT = 1;
constexpr int SENSOR = 2;
constexpr int OCCUPANCY = 3;
constexpr int CAPTURES = 4;
constexpr int PROCESSOR = 5;

constexpr int64_t MARKS_PER_FRAME = 20;  // thin enough to tell two in neighbouring frames apart

/// The times in which no frame is drawn by itself and nothing happens to captures; what is steady
/// there is left out.
class QuietTimes {
public:
    QuietTimes(recording::Recording const& recording, std::vector<FrameSlice> const& frames) {
        for (size_t i = 0; i < frames.size(); ++i) {
            if (frames[i].frames > 1) {
                mRanges.emplace(recording.frames[i].timestampNs, frames[i].endNs);
            }
        }
    }
    bool contain(int64_t timeNs) const {
        auto const after = mRanges.upper_bound(timeNs);
        return after != mRanges.begin() && timeNs < std::prev(after)->second;
    }

private:
    std::map<int64_t, int64_t> mRanges;  ///< their ends by their begins
};

/// What each try found and what each instant left behind, in the order of time.
std::vector<run::OccupancySample> occupancyOf(TraceInput const& input) {
    std::vector<run::OccupancySample> samples;
    for (pipeline::CaptureRecord const& capture : input.result.captures) {
        for (pipeline::TryRecord const& attempt : capture.tries) {
            samples.push_back({attempt.timeNs,
                               {attempt.historyFrames.size(), attempt.inFlightFrames.size(),
                                attempt.lockedFrames.size()}});
        }
    }
    samples.insert(samples.end(), input.occupancy.begin(), input.occupancy.end());
    // What a try found comes before what its instant left behind.
    std::stable_sort(samples.begin(), samples.end(),
                     [](run::OccupancySample const& a, run::OccupancySample const& b) {
                         return a.bootTimeNs < b.bootTimeNs;
                     });
    return samples;
}

void writeOccupancy(TraceEvents& events, TraceInput const& input, QuietTimes const& quiet) {
    std::map<std::string, size_t> shown;
    auto const show = [&](int64_t timeNs, std::string const& name, size_t frames) {
        auto const [counter, isNew] = shown.try_emplace(name, frames);
        // Each try adds a sample, and most find what was there before.
        if (isNew || counter->second != frames) {
            counter->second = frames;
            events.counter(OCCUPANCY, timeNs, name, frames);
        }
    };
    for (run::OccupancySample const& sample : occupancyOf(input)) {
        if (quiet.contain(sample.bootTimeNs)) {
            continue;
        }
        show(sample.bootTimeNs, "history", sample.occupancy.history);
        show(sample.bootTimeNs, "in flight", sample.occupancy.inFlight);
        show(sample.bootTimeNs, "locked", sample.occupancy.locked);
    }
}

/**
 * Draws the sections of one thread. The platform's clock stands still in a section, so that slices
 * get their real lengths: an outermost one begins at its instant, or where the one before ends, and
 * what is inside keeps its real distance from that begin.
 */
class SectionRow {
public:
    SectionRow(TraceEvents& events, Track track) : mEvents(events), mTrack(track) {}

    void add(run::ProcessorSection const& section) {
        closeTo(section.depth);
        if (section.depth == 0) {
            int64_t const beginNs = std::max(section.bootTimeNs, mLastEndNs);
            mShiftNs = beginNs - section.realBeginNs;
        }
        int64_t const beginNs = section.realBeginNs + mShiftNs;
        mEvents.begin(
            mTrack, beginNs, "processor", section.name,
            {{"bootTimeNs", section.bootTimeNs}, {"realDurationNs", section.realDurationNs}});
        mEndsNs.push_back(beginNs + section.realDurationNs);
    }

    void closeTo(size_t depth) {
        for (; mEndsNs.size() > depth; mEndsNs.pop_back()) {
            mLastEndNs = mEndsNs.back();
            mEvents.end(mTrack, mLastEndNs);
        }
    }

private:
    TraceEvents& mEvents;
    Track const mTrack;
    std::vector<int64_t> mEndsNs;  ///< of the open sections, outermost first
    int64_t mLastEndNs = 0;
    int64_t mShiftNs = 0;  ///< from real to drawn times
};

void writeSections(TraceEvents& events, std::vector<run::ProcessorSection> const& sections,
                   QuietTimes const& quiet) {
    std::map<size_t, SectionRow> rows;
    for (run::ProcessorSection const& section : sections) {
        if (quiet.contain(section.bootTimeNs)) {
            continue;  // it looked whether a capture waits
        }
        auto const number = static_cast<int64_t>(section.thread);
        Track const track = rowOf(PROCESSOR, number);
        auto const [row, isNew] = rows.try_emplace(section.thread, events, track);
        if (isNew) {
            events.nameThread(track, fmt::format("sections of thread {}", number + 1), number);
        }
        row->second.add(section);
    }
    // A section is only known to have ended when the next one begins.
    for (auto& [thread, row] : rows) {
        row.closeTo(0);
    }
}

/// A slice above all others, as long as the replay.
void writeVerdict(TraceEvents& events, run::ReplayResult const& result, int64_t endNs) {
    run::Verdict const verdict = verdictOf(result);
    Track const track = rowOf(VERDICT, 0);
    events.nameThread(track, "verdict", 0);
    events.begin(track, result.firstTimestampNs, "verdict",
                 fmt::format("{}: {}", toString(verdict.level()), verdict.reasons.front().text),
                 verdictJson(verdict));
    events.end(track, std::max(endNs, result.firstTimestampNs + 1));
}

Json aboutOf(run::ReplayResult const& result, base::Provenance const& provenance) {
    Json about = {{"recording", result.path},
                  {"version", VERSION},
                  {"revision", orNull(provenance.revision)},
                  {"commandLine", orNull(provenance.commandLine)},
                  {"date", orNull(provenance.date)},
                  {"verdict", toString(verdictOf(result).level())},
                  {"policy", result.options.policy.name()},
                  {"historySize", result.options.history},
                  {"offsetNs", nsOfMs(result.offsetMs)},
                  {"bootTimeOfZeroNs", result.firstTimestampNs}};
    if (result.faults) {
        about["faults"] = result.faults->text();
    }
    return withoutNulls(about);
}

}  // namespace

void writeTracks(TraceInput const& input, Json const& about, std::ostream& out) {
    recording::Recording const& recording = input.recording;
    auto const& captures = input.result.captures;
    std::vector<FrameSlice> const frames = frameSlices(recording, input.result);
    std::vector<int64_t> frameEndsNs;
    int64_t replayEndNs = 0;
    for (FrameSlice const& frame : frames) {
        frameEndsNs.push_back(frame.endNs);
        replayEndNs = std::max(replayEndNs, frame.arrivalNs);
    }
    // A slice of no length would not be drawn, nor could an arrow bind to it.
    int64_t const markNs = std::max<int64_t>(1, recording.medianIntervalNs / MARKS_PER_FRAME);
    std::vector<CaptureShape> shapes;
    for (size_t i = 0; i < captures.size(); ++i) {
        // A log has no frames and no results: what is known of a capture ends with its last try.
        bool const isLog = frames.empty() && !captures[i].tries.empty();
        int64_t const endNs = isLog ? captures[i].tries.back().timeNs : replayEndNs;
        shapes.push_back(shapeOf(captures[i], i, markNs, endNs));
    }
    TraceFlows const flows(recording, frameEndsNs, captures);

    TraceEvents events(out, input.result.firstTimestampNs);
    events.nameProcess(VERDICT, "verdict");
    events.nameProcess(SENSOR, "sensor");
    events.nameProcess(OCCUPANCY, "occupancy");
    events.nameProcess(CAPTURES, "captures");
    events.nameProcess(PROCESSOR, "processor");
    // A log tells too little for one.
    if (about.contains("verdict")) {
        writeVerdict(events, input.result, replayEndNs);
    }
    // A press, the frame and the result may fall on one instant: the arrow then follows the order
    // of the file.
    writeCaptures(events, CAPTURES, captures, shapes, input.explanation, flows);
    writeFrames(events, SENSOR, recording, frames, flows);
    writeAnswers(events, CAPTURES, captures, shapes, flows);
    QuietTimes const quiet(recording, frames);
    writeOccupancy(events, input, quiet);
    writeSections(events, input.sections, quiet);
    events.finish(about);
}

void writeTrace(TraceInput const& input, std::ostream& out) {
    writeTracks(input, aboutOf(input.result, input.provenance), out);
}

}  // namespace zebcam::tool::report
