#include "replay/Replay.h"

#include <fmt/format.h>
#include <platform/VirtualClock.h>

#include <algorithm>
#include <queue>
#include <tuple>
#include <utility>

#include "replay/PipelineSetup.h"
#include "replay/PropertyScope.h"
#include "replay/Schedule.h"
#include "sim/SimulatedPipeline.h"
#include "text/Duration.h"

namespace zebcam::tool {
namespace {

/// What happens, in the order in which it happens at one instant.
enum class EventKind { Announce, Arrival, Result, Press, Dump, Flush };

struct Event {
    int64_t timeNs = 0;
    EventKind kind = EventKind::Announce;
    size_t which = 0;  ///< of its kind, in the order of one instant

    /// For a queue whose top is what comes next.
    bool operator<(Event const& other) const {
        return std::tie(timeNs, kind, which) > std::tie(other.timeNs, other.kind, other.which);
    }
};

/// Drives a simulated pipeline by the recording's clock.
class ReplayRun {
public:
    ReplayRun(Recording const& recording, ReplayOptions const& options,
              ReplayListener const& listener)
        : mRecording(recording),
          mOptions(options),
          mListener(listener),
          mStartNs(recording.frames.front().timestampNs),
          mReprocessNs(options.reprocessDelayNs.value_or(recording.medianIntervalNs)),
          mClock({.bootTimeNs = mStartNs}),
          mPipeline(listeningOptions()) {
        schedule();
    }

    ReplayResult run() {
        while (!mQueue.empty()) {
            Event const event = mQueue.top();
            mQueue.pop();
            mClock.advanceTo(event.timeNs);
            handle(event);
            if (mListener.occupancy) {
                mListener.occupancy(event.timeNs, mPipeline.occupancy());
            }
        }
        return finishResult();
    }

private:
    PipelineOptions listeningOptions() {
        PipelineOptions options = pipelineOptions(mOptions);
        if (mListener.log) {
            options.logSink = [this](host::LogLine const& line) {
                mListener.log(mClock.bootTimeNs() - mStartNs, line);
            };
        }
        return options;
    }

    void schedule() {
        mPresses = pressTimes(mRecording, mOptions);
        std::vector<FrameTimes> const times = frameTimes(mRecording, mOptions);
        int64_t endNs = mStartNs;
        for (size_t i = 0; i < times.size(); ++i) {
            mQueue.push({times[i].announceNs, EventKind::Announce, i});
            mQueue.push({times[i].arrivalNs, EventKind::Arrival, i});
            endNs = std::max(endNs, times[i].arrivalNs);
        }
        for (size_t i = 0; i < mPresses.size(); ++i) {
            mQueue.push({mStartNs + mPresses[i], EventKind::Press, i});
        }
        for (size_t i = 0; i < mOptions.dumpsNs.size(); ++i) {
            mQueue.push({mStartNs + mOptions.dumpsNs[i], EventKind::Dump, i});
        }
        for (size_t i = 0; i < mOptions.flushesNs.size(); ++i) {
            mQueue.push({mStartNs + mOptions.flushesNs[i], EventKind::Flush, i});
        }
        mQueue.push({endNs, EventKind::Flush, mOptions.flushesNs.size()});
    }

    void handle(Event const& event) {
        switch (event.kind) {
            case EventKind::Announce:
                mPipeline.announce(mRecording.frames[event.which]);
                break;
            case EventKind::Arrival:
                reprocess(mPipeline.arrive(mRecording.frames[event.which]));
                if (mListener.progress) {
                    mListener.progress(++mArrived, mRecording.frames.size());
                }
                break;
            case EventKind::Result:
                mPipeline.finish(mBuilt[event.which]);
                break;
            case EventKind::Press: {
                int64_t const pressNs = mStartNs + mPresses[event.which];
                reprocess(mPipeline.submit({.frames = mOptions.framesPerCapture,
                                            .sensorModes = sensorModesAt(mRecording, pressNs)}));
                break;
            }
            case EventKind::Dump:
                mDumps.push_back({mClock.bootTimeNs() - mStartNs, SimulatedPipeline::dump()});
                break;
            case EventKind::Flush:
                reprocess(mPipeline.flush());
                break;
        }
    }

    void reprocess(std::vector<BuiltFrame> const& frames) {
        for (BuiltFrame const& frame : frames) {
            mQueue.push({mClock.bootTimeNs() + mReprocessNs, EventKind::Result, mBuilt.size()});
            mBuilt.push_back(frame);
        }
    }

    ReplayResult finishResult() {
        ReplayResult result;
        result.path = mRecording.path;
        result.notes = mRecording.notes;
        result.facts = computeFacts(mRecording);
        result.firstTimestampNs = mStartNs;
        result.options = mOptions;
        result.offsetMs = offsetInForceMs();
        result.captures = mPipeline.captures().records();
        result.summary = summarize(result.captures);
        result.ledger = mPipeline.ledger().totals();
        result.unsettled = mPipeline.ledger().unsettled();
        result.longestHeldNs = mPipeline.ledger().longestHeldNs();
        result.droppedFrames = mPipeline.droppedFrames();
        result.errorLines = mPipeline.errorLines();
        result.dumps = std::move(mDumps);
        for (PipelineFailure const& failure : mPipeline.failures()) {
            result.failures.push_back(
                fmt::format("at {} s: {}", formatSeconds(failure.timeNs - mStartNs), failure.text));
        }
        return result;
    }

    Recording const& mRecording;
    ReplayOptions const& mOptions;
    ReplayListener const& mListener;
    int64_t const mStartNs;
    int64_t const mReprocessNs;
    platform::VirtualClock mClock;
    SimulatedPipeline mPipeline;
    std::priority_queue<Event> mQueue;
    std::vector<int64_t> mPresses;
    std::vector<BuiltFrame> mBuilt;
    std::vector<DebugDump> mDumps;
    size_t mArrived = 0;
};

}  // namespace

ReplayResult replay(Recording const& recording, ReplayOptions const& options,
                    ReplayListener const& listener) {
    PropertyScope const properties(propertiesOf(options));
    return ReplayRun(recording, options, listener).run();
}

}  // namespace zebcam::tool
