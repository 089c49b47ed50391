#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <queue>
#include <set>
#include <stop_token>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "pipeline/CaptureBook.h"
#include "pipeline/FaultInjector.h"
#include "pipeline/PipelineSetup.h"
#include "pipeline/Schedule.h"
#include "pipeline/SimulatedPipeline.h"
#include "recording/Recording.h"
#include "run/LiveResult.h"
#include "run/ProcessorSections.h"

namespace zebcam::tool::run {

/// Waits, in one thread, for moments of the boot-time clock.
class Pacer {
public:
    explicit Pacer(std::stop_token stop) : mStop(std::move(stop)) {}

    /// Waits until `bootNs`, or not at all when that has passed. False when the thread is to stop.
    bool waitUntil(int64_t bootNs);

private:
    std::stop_token const mStop;
    std::mutex mLock;
    std::condition_variable_any mWake;
};

/// Built frames on their way through the pipeline: each comes out `delayNs` after it went in.
/// Thread-safe.
class ResultQueue {
public:
    explicit ResultQueue(int64_t delayNs) : mDelayNs(delayNs) {}

    void push(std::vector<pipeline::BuiltFrame> const& frames);

    /// Nothing more goes in; what is left comes out at once.
    void close();

    /// Waits for the next frame that is due; none once the queue is closed and empty.
    std::optional<pipeline::BuiltFrame> pop();

private:
    struct Entry {
        int64_t dueNs = 0;  ///< boot time
        pipeline::BuiltFrame frame;
    };

    int64_t const mDelayNs;
    std::mutex mLock;
    std::condition_variable mWake;
    std::deque<Entry> mEntries;  ///< by the time that they are due
    bool mIsClosed = false;
};

/// A recording as a sensor that delivers it from a given moment on, over and over: each pass goes
/// on in frame numbers and time where the one before ended.
class LiveFeed {
public:
    /// What the sensor does next.
    struct Event {
        int64_t timeNs = 0;  ///< boot time
        pipeline::SensorEventKind kind = pipeline::SensorEventKind::Announce;
        pipeline::ReportedFrame frame;

        /// For a queue whose top is what comes next.
        bool operator<(Event const& other) const {
            return std::tie(timeNs, kind) > std::tie(other.timeNs, other.kind);
        }
    };

    /// All but `startNs` is borrowed for the life of the feed; `faults` may be null. The first
    /// frame's exposure begins at boot time `startNs`.
    LiveFeed(recording::Recording const& recording, LiveOptions const& options, int64_t startNs,
             pipeline::FaultInjector* faults);

    /// None at the end of the run.
    std::optional<Event> next();

    /// What a capture pressed at boot time `pressNs` requires, by sensor id.
    std::map<uint32_t, uint32_t> sensorModesAt(int64_t pressNs) const;

private:
    void loadPass();

    recording::Recording const& mRecording;
    LiveOptions const& mOptions;
    int64_t const mStartNs;
    pipeline::FaultInjector* const mFaults;
    int64_t const mPassNs;      ///< from a pass to the next
    uint32_t const mPassCount;  ///< likewise, in frame numbers
    std::priority_queue<Event> mEvents;
    uint32_t mPasses = 0;  ///< loaded so far
};

/**
 * A pipeline in real time, with the threads that a pipeline model has: the sensor's frames come
 * from one, captures from a second, results from a third, dumps from a fourth.
 *
 * At most one at a time, beside no replay.
 */
class LiveRun {
public:
    /// Gets logcat lines; called on any thread, one line at a time.
    using LogSink = std::function<void(std::string const& lines)>;

    /// Recording and options are borrowed for the life of the run. `log` gets the processor's log
    /// up to the level that the options ask for. Throws InputError when the options cannot be
    /// carried out.
    LiveRun(recording::Recording const& recording, LiveOptions const& options, LogSink log);
    /// Stops the threads; a run that was not finished is flushed.
    ~LiveRun();
    LiveRun(LiveRun const&) = delete;
    LiveRun& operator=(LiveRun const&) = delete;

    void start();

    /// The sensor has no more frames.
    bool isOver() const { return mIsOver; }
    LiveStatus status() const;

    /// Stops sensor and captures, flushes, waits for the results and tells everything. Once.
    LiveResult finish();

private:
    pipeline::PipelineOptions listeningOptions();
    void runSensor(std::stop_token const& stop);
    void runCaptures(std::stop_token const& stop);
    void press(size_t capture, int64_t pressNs, std::multiset<int64_t>& flushes);
    void runDumps(std::stop_token const& stop);
    void runResults();
    void stop();

    recording::Recording const& mRecording;
    LiveOptions const& mOptions;
    LogSink const mLog;
    pipeline::PropertyScope const mProperties;
    int64_t const mStartNs;  ///< boot time at which the first frame is exposed
    std::shared_ptr<pipeline::FaultInjector> const mFaults;  ///< null: none
    LiveFeed mFeed;
    ResultQueue mResults;
    TimingProbe mProbe;
    android::sp<NSCam::v3::pipeline::model::ZslRecorder> mRecorder;  ///< null: none
    pipeline::SimulatedPipeline mPipeline;

    std::atomic<bool> mIsOver = false;
    std::atomic<uint64_t> mArrived = 0;
    std::atomic<uint64_t> mDumps = 0;
    mutable std::mutex mLatenessLock;
    base::Distribution mLateness;

    std::jthread mResultThread;
    std::jthread mSensorThread;
    std::jthread mCaptureThread;
    std::jthread mDumpThread;
};

}  // namespace zebcam::tool::run
