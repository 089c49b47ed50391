#include "run/Replay.h"

#include <fmt/format.h>
#include <platform/VirtualClock.h>

#include <algorithm>
#include <queue>
#include <tuple>
#include <utility>

#include "base/Text.h"
#include "pipeline/PipelineSetup.h"
#include "pipeline/Schedule.h"
#include "pipeline/SimulatedPipeline.h"
#include "recording/FrameStates.h"

namespace zebcam::tool::run {

namespace {

/// What happens, in the order in which it happens at one instant.
enum class EventKind { Announce, Arrival, Result, Press, Dump, Flush, FaultFlush };

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
    ReplayRun(recording::Recording const& recording, pipeline::ReplayOptions const& options,
              ReplayListener const& listener)
        : mRecording(recording),
          mOptions(options),
          mListener(listener),
          mStartNs(recording.frames.front().timestampNs),
          mReprocessNs(options.reprocessDelayNs.value_or(recording.medianIntervalNs)),
          mFaults(
              pipeline::makeFaultInjector(options.faults, mStartNs, recording.medianIntervalNs)),
          mClock({.bootTimeNs = mStartNs}),
          mPresses(pipeline::pressTimes(recording, options)),
          mPictures(listener.pictures,
                    std::min(mPresses.size() * (options.history + 1), recording.frames.size())),
          mPipeline(listeningOptions()) {
        schedule();
    }

    ReplayResult run() {
        while (!mQueue.empty()) {
            Event const event = mQueue.top();
            mQueue.pop();
            // A slow policy makes what was due meanwhile come late.
            mClock.advanceTo(std::max(event.timeNs, mClock.bootTimeNs()));
            handle(event);
            if (mListener.occupancy != nullptr) {
                mListener.addOccupancy(mClock.bootTimeNs(), mPipeline.occupancy());
            }
        }
        return finishResult();
    }

private:
    pipeline::PipelineOptions listeningOptions() {
        pipeline::PipelineOptions options = pipeline::pipelineOptions(mOptions);
        if (options.pSelector != nullptr) {
            mPolicyName = pipeline::nameOf(*options.pSelector);
        }
        options.faults = mFaults;
        options.isRepeat = mListener.isRepeat;
        options.skipRepeat = mListener.skipRepeat;
        options.pause = [this](int64_t ns) { mClock.advance(ns); };
        if (mPictures.areWanted()) {
            options.contentOf = [this](recording::SensorFrame const& frame) {
                return mPictures.of(frame.frameNo);
            };
        }
        if (mListener.log) {
            options.logSink = [this](host::LogLine const& line) {
                mListener.log(mClock.bootTimeNs() - mStartNs, line);
            };
        }
        return options;
    }

    void schedule() {
        int64_t const endNs = scheduleSensor();
        for (size_t i = 0; i < mPresses.size(); ++i) {
            mQueue.push({mStartNs + mPresses[i], EventKind::Press, i});
            mPictures.expectPress(static_cast<uint32_t>(i + 1), pressFrame(mPresses[i]),
                                  mStartNs + mPresses[i]);
        }
        for (size_t i = 0; i < mOptions.dumpsNs.size(); ++i) {
            mQueue.push({mStartNs + mOptions.dumpsNs[i], EventKind::Dump, i});
        }
        for (size_t i = 0; i < mOptions.flushesNs.size(); ++i) {
            mQueue.push({mStartNs + mOptions.flushesNs[i], EventKind::Flush, i});
        }
        // What still waits will never get a frame. Results that are due later come all the same.
        mQueue.push({endNs, EventKind::Flush, mOptions.flushesNs.size()});
        if (mFaults != nullptr) {
            for (int64_t const timeNs : mFaults->flushTimes()) {
                mQueue.push({timeNs, EventKind::FaultFlush, 0});
            }
        }
    }

    /// Gives the boot time at which everything has arrived.
    int64_t scheduleSensor() {
        pipeline::SensorEvents sensor =
            pipeline::sensorEvents(mRecording, mOptions, mFaults.get(), mStartNs);
        mFrames = std::move(sensor.frames);
        // Without faults the schedule tells when a frame arrives.
        mArrivalsNs.resize(mFaults != nullptr ? mFrames.size() : 0);
        int64_t endNs = mStartNs + mPresses.back();
        for (pipeline::SensorEvent const& event : sensor.events) {
            bool const isArrival = event.kind == pipeline::SensorEventKind::Arrival;
            mQueue.push(
                {event.timeNs, isArrival ? EventKind::Arrival : EventKind::Announce, event.frame});
            endNs = std::max(endNs, event.timeNs);
            mArrivals += isArrival ? 1 : 0;
        }
        return endNs;
    }

    void handle(Event const& event) {
        switch (event.kind) {
            case EventKind::Announce:
                mPipeline.announce(mFrames[event.which]);
                break;
            case EventKind::Arrival:
                arrive(event.which);
                break;
            case EventKind::Result:
                mPipeline.finish(mBuilt[event.which]);
                break;
            case EventKind::Press:
                press(event.which);
                break;
            case EventKind::Dump:
                mDumps.push_back(
                    {mClock.bootTimeNs() - mStartNs, pipeline::SimulatedPipeline::dump()});
                break;
            case EventKind::FaultFlush:
                mFaults->count(pipeline::FaultKind::Flush);
                reprocess(mPipeline.flush(true));
                break;
            case EventKind::Flush:
                reprocess(mPipeline.flush());
                break;
        }
        mPictures.release();
    }

    /// That was being exposed then, or else the last one before. No press is before the first.
    recording::SensorFrame const& pressFrame(int64_t pressNs) const {
        return *std::prev(std::ranges::upper_bound(mRecording.frames, mStartNs + pressNs, {},
                                                   &recording::SensorFrame::timestampNs));
    }

    void arrive(size_t which) {
        if (mFaults != nullptr && !mArrivalsNs[which]) {  // not the second time, of a duplicate
            mArrivalsNs[which] = mClock.bootTimeNs();
        }
        mPictures.hold();
        mPictures.arrive(mFrames[which].frame);
        reprocess(mPipeline.arrive(mFrames[which]));
        if (mListener.progress) {
            mListener.progress(++mArrived, mArrivals);
        }
    }

    void press(size_t which) {
        int64_t const pressNs = mStartNs + mPresses[which];
        if (mFaults != nullptr) {
            if (auto const flushNs = mFaults->flushAfter(which, pressNs)) {
                mQueue.push({*flushNs, EventKind::FaultFlush, which});
            }
        }
        mPictures.hold();
        reprocess(mPipeline.submit(mOptions.framesPerCapture,
                                   pipeline::sensorModesAt(mRecording, mPresses[which])));
    }

    void reprocess(std::vector<pipeline::BuiltFrame> const& frames) {
        for (pipeline::BuiltFrame const& frame : frames) {
            // From now, not from when the event was due: what served it may have come late.
            mQueue.push({mClock.bootTimeNs() + mReprocessNs, EventKind::Result, mBuilt.size()});
            mBuilt.push_back(frame);
            if (mPictures.areWanted()) {
                pipeline::CaptureRecord const capture = mPipeline.captures().recordOf(frame);
                auto const historyFrame = capture.frames[frame.index].historyFrame;
                mPictures.built(frame, capture, historyFrame ? findFrame(*historyFrame) : nullptr);
            }
        }
    }

    recording::SensorFrame const* findFrame(uint32_t frameNo) const {
        auto const found = std::ranges::lower_bound(
            mFrames, frameNo, {},
            [](pipeline::ReportedFrame const& reported) { return reported.frame.frameNo; });
        bool const isThere = found != mFrames.end() && found->frame.frameNo == frameNo;
        return isThere ? &found->frame : nullptr;
    }

    /// What is known of each capture, with what the sensor told of its frames.
    std::vector<pipeline::CaptureRecord> finishCaptures() const {
        std::vector<pipeline::CaptureRecord> captures = mPipeline.captures().records();
        addChosenFrames(captures, [this](uint32_t frameNo) { return findFrame(frameNo); });
        for (size_t i = 0; i < captures.size(); ++i) {
            captures[i].pressFrame = pressFrame(mPresses[i]).frameNo;
            for (pipeline::FrameOutcome& frame : captures[i].frames) {
                if (frame.chosen) {
                    frame.chosen = recording::withoutAssumed(*frame.chosen, mRecording);
                }
            }
        }
        return captures;
    }

    ReplayResult finishResult() {
        ReplayResult result;
        result.path = mRecording.path;
        result.notes = mRecording.notes;
        result.facts = recording::computeFacts(mRecording);
        result.firstTimestampNs = mStartNs;
        result.options = mOptions;
        result.options.policy.ownName = mPolicyName;
        result.offsetMs = pipeline::offsetInForceMs();
        result.captures = finishCaptures();
        mPictures.finish(result);
        result.summary = summarize(result.captures, result.offsetMs);
        result.ledger = mPipeline.ledger().totals();
        result.unsettled = mPipeline.ledger().unsettled();
        result.longestHeldNs = mPipeline.ledger().longestHeldNs();
        result.droppedFrames = mPipeline.droppedFrames();
        result.errorLines = mPipeline.errorLines();
        result.dumps = std::move(mDumps);
        if (mFaults != nullptr) {
            result.faults = mFaults->tally();
            result.arrivalsNs = std::move(mArrivalsNs);
            result.reported = std::move(mFrames);
        }
        result.failures = mPipeline.failures(mStartNs);
        if (size_t const unlike = mPipeline.captures().unlikeRepeats(); unlike > 0) {
            result.notes.push_back(fmt::format(
                "{} that got nothing are counted with the one before, whatever they found: all "
                "that differ would take too much memory",
                base::counted(unlike, "try", "tries")));
        }
        return result;
    }

    recording::Recording const& mRecording;
    pipeline::ReplayOptions const& mOptions;
    ReplayListener const& mListener;
    int64_t const mStartNs;
    int64_t const mReprocessNs;
    std::shared_ptr<pipeline::FaultInjector> const mFaults;
    std::string mPolicyName;  ///< of a library's policy
    platform::VirtualClock mClock;
    std::vector<int64_t> const mPresses;
    CapturePictures mPictures;
    pipeline::SimulatedPipeline mPipeline;
    std::priority_queue<Event> mQueue;
    std::vector<pipeline::ReportedFrame> mFrames;
    std::vector<std::optional<int64_t>> mArrivalsNs;  ///< with faults
    size_t mArrivals = 0;                             ///< that are due, over the whole replay
    std::vector<pipeline::BuiltFrame> mBuilt;
    std::vector<DebugDump> mDumps;
    size_t mArrived = 0;
};

}  // namespace

void ReplayListener::addOccupancy(int64_t bootTimeNs, pipeline::Occupancy const& now) const {
    if (occupancy == nullptr) {
        return;
    }
    // Of several events at one instant only what they lead to together is seen.
    if (occupancy->empty() || occupancy->back().bootTimeNs != bootTimeNs) {
        occupancy->push_back({bootTimeNs, {}});
    }
    occupancy->back().occupancy = now;
}

ReplayResult replay(recording::Recording const& recording, pipeline::ReplayOptions const& options,
                    ReplayListener const& listener) {
    pipeline::PropertyScope const properties(pipeline::propertiesOf(options));
    return ReplayRun(recording, options, listener).run();
}

void addDefaultOutcomes(recording::Recording const& recording, ReplayResult& result) {
    if (!result.mayDefaultDoBetter() || !result.options.faults.rules.empty() || result.device) {
        return;
    }
    pipeline::ReplayOptions options = result.options;
    options.policy = {};
    options.policyParameters.clear();
    options.dumpsNs.clear();
    options.logLevel = 0;
    for (pipeline::CaptureRecord& capture : replay(recording, options).captures) {
        result.byDefault.push_back(std::move(capture.frames));
    }
}

}  // namespace zebcam::tool::run
