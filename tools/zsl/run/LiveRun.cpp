#include "run/LiveRun.h"

#include <fmt/format.h>
#include <zebcam/ThreadSafety.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <deque>
#include <queue>
#include <set>
#include <stop_token>
#include <thread>
#include <tuple>
#include <utility>

#include "base/InputError.h"
#include "base/Text.h"
#include "log/Logcat.h"
#include "pipeline/FaultInjector.h"
#include "pipeline/PipelineSetup.h"
#include "pipeline/Schedule.h"

namespace zebcam::tool::run {

namespace model = NSCam::v3::pipeline::model;
using pipeline::BuiltFrame;
using pipeline::SensorEventKind;

namespace {

constexpr int32_t kOpenId = 0;

/// Time for the threads to begin before the first frame is due.
constexpr int64_t kLeadNs = 50'000'000;

/// The recorder, made for a device, tells why a file cannot be written in the log only.
void requireWritable(std::string const& path) {
    std::FILE* const file = std::fopen(path.c_str(), "ab");
    if (file == nullptr) {
        throw base::InputError(
            fmt::format("--record {}: cannot be written: {}", path, std::strerror(errno)));
    }
    std::fclose(file);
}

/// Waits until boot time `bootNs`, or not at all when that has passed. False when the thread is to
/// stop.
bool waitUntil(int64_t bootNs, std::stop_token const& stop) {
    // Only the stop token ever wakes it, so that the mutex guards nothing.
    Mutex mutex;
    std::condition_variable_any wake;
    LockGuard const lock(mutex);
    while (!stop.stop_requested()) {
        // Again and again: the wait is by a clock that does not count a suspended host's time.
        std::chrono::nanoseconds const left(bootNs - pipeline::nowNs());
        if (left.count() <= 0) {
            return true;
        }
        wake.wait_for(mutex, stop, left, [] { return false; });
    }
    return false;
}

/// Built frames on their way through the pipeline: each comes out `delayNs` after it went in.
/// Thread-safe.
class ResultQueue {
public:
    explicit ResultQueue(int64_t delayNs) : mDelayNs(delayNs) {}

    void push(std::vector<BuiltFrame> const& frames) {
        {
            // The clock is read under the lock, so that the entries stay in order.
            LockGuard const lock(mLock);
            int64_t const dueNs = pipeline::nowNs() + mDelayNs;
            for (BuiltFrame const& frame : frames) {
                mEntries.emplace_back(dueNs, frame);
            }
        }
        mWake.notify_one();
    }

    /// Nothing more goes in; what is left comes out at once.
    void close() {
        {
            LockGuard const lock(mLock);
            mIsClosed = true;
        }
        mWake.notify_one();
    }

    /// Waits for the next frame that is due; none once the queue is closed and empty.
    std::optional<BuiltFrame> pop() {
        LockGuard const lock(mLock);
        while (true) {
            if (mEntries.empty()) {
                if (mIsClosed) {
                    return std::nullopt;
                }
                mWake.wait(mLock);
                continue;
            }
            auto const& [dueNs, next] = mEntries.front();
            std::chrono::nanoseconds const left(dueNs - pipeline::nowNs());
            if (mIsClosed || left.count() <= 0) {
                BuiltFrame frame = next;
                mEntries.pop_front();
                return frame;
            }
            // What comes meanwhile is due later; only an end changes anything.
            mWake.wait_for(mLock, left);
        }
    }

private:
    int64_t const mDelayNs;
    Mutex mLock;
    std::condition_variable_any mWake;
    /// With the boot times at which they are due, ascending.
    std::deque<std::pair<int64_t, BuiltFrame>> mEntries GUARDED_BY(mLock);
    bool mIsClosed GUARDED_BY(mLock) = false;
};

/// A recording as a sensor that delivers it from a given moment on, over and over. Of one thread.
class LiveFeed {
public:
    /// What the sensor does next.
    struct Event {
        int64_t timeNs = 0;  ///< boot time
        SensorEventKind kind = SensorEventKind::Announce;
        pipeline::ReportedFrame frame;

        /// For a queue whose top is what comes next.
        bool operator<(Event const& other) const {
            return std::tie(timeNs, kind) > std::tie(other.timeNs, other.kind);
        }
    };

    /// All but `startNs` is borrowed for the life of the feed; `faults` may be null. The first
    /// frame's exposure begins at boot time `startNs`.
    LiveFeed(recording::Recording const& recording, LiveOptions const& options, int64_t startNs,
             pipeline::FaultInjector* faults)
        : mRecording(recording), mOptions(options), mStartNs(startNs), mFaults(faults) {}

    /// None at the end of the run.
    std::optional<Event> next() {
        // The first events of a pass may come before the last ones of the pass before it.
        constexpr size_t kEventsAhead = 64;
        while (mEvents.size() < kEventsAhead && (mPasses == 0 || mOptions.durationNs)) {
            loadPass();
        }
        if (mEvents.empty()) {
            return std::nullopt;
        }
        Event event = mEvents.top();
        mEvents.pop();
        if (mOptions.durationNs && event.timeNs > mStartNs + *mOptions.durationNs) {
            return std::nullopt;
        }
        return event;
    }

private:
    void loadPass() {
        pipeline::SensorEvents const pass =
            pipeline::sensorEvents(mRecording, mOptions.replay, mFaults, mStartNs, mPasses++);
        for (pipeline::SensorEvent const& event : pass.events) {
            mEvents.push({event.timeNs, event.kind, pass.frames[event.frame]});
        }
    }

    recording::Recording const& mRecording;
    LiveOptions const& mOptions;
    int64_t const mStartNs;
    pipeline::FaultInjector* const mFaults;
    std::priority_queue<Event> mEvents;
    uint32_t mPasses = 0;  ///< loaded so far
};

}  // namespace

/// The pipeline, what it is fed with, and the threads that do so.
class LiveRun::Threads {
public:
    Threads(recording::Recording const& recording, LiveOptions const& options, LogSink log)
        : mRecording(recording),
          mOptions(options),
          mLog(std::move(log)),
          mProperties(pipeline::propertiesOf(options.replay)),
          mStartNs(pipeline::nowNs() + kLeadNs),
          mFaults(pipeline::makeFaultInjector(options.replay.faults, mStartNs,
                                              recording.medianIntervalNs)),
          mResults(options.replay.reprocessDelayNs.value_or(recording.medianIntervalNs)),
          mPipeline(listeningOptions()) {}
    ~Threads() { stop(); }

    void start() {
        mResultThread = std::jthread([this] { runResults(); });
        mSensorThread = std::jthread([this](std::stop_token const& stop) { runSensor(stop); });
        mCaptureThread = std::jthread([this](std::stop_token const& stop) { runCaptures(stop); });
        mDumpThread = std::jthread([this](std::stop_token const& stop) { runDumps(stop); });
    }
    bool isOver() const { return mIsOver; }
    LiveStatus status() const;
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
    ResultQueue mResults;
    SectionRecorder mSections{SectionRecorder::Kept::Times};
    android::sp<model::ZslRecorder> mRecorder;  ///< null: none
    pipeline::SimulatedPipeline mPipeline;

    // Counts for people to look at; nothing is concluded from one about another.
    std::atomic<bool> mIsOver = false;
    std::atomic<uint64_t> mArrived = 0;
    std::atomic<uint64_t> mDumps = 0;
    mutable Mutex mLatenessLock;
    base::Distribution mLateness GUARDED_BY(mLatenessLock);

    std::jthread mResultThread;
    std::jthread mSensorThread;
    std::jthread mCaptureThread;
    std::jthread mDumpThread;
};

pipeline::PipelineOptions LiveRun::Threads::listeningOptions() {
    pipeline::PipelineOptions options = pipeline::pipelineOptions(mOptions.replay);
    options.tries = pipeline::CaptureBook::Tries::Newest;
    options.faults = mFaults;
    options.pause = [](int64_t ns) { std::this_thread::sleep_for(std::chrono::nanoseconds(ns)); };
    options.logSink = [this](host::LogLine const& line) {
        mLog(log::toThreadtime(log::fromLogLine(line), pipeline::nowNs() - mStartNs));
    };
    if (mOptions.recordPath) {
        requireWritable(*mOptions.recordPath);
        options.wrap = [this](android::sp<model::IZslProcessor> const& processor) {
            mRecorder =
                model::ZslRecorder::create(kOpenId, processor, {.path = *mOptions.recordPath});
            if (mRecorder == nullptr) {
                throw base::InputError(
                    fmt::format("--record {}: cannot be written", *mOptions.recordPath));
            }
            return mRecorder;
        };
    }
    return options;
}

void LiveRun::Threads::runSensor(std::stop_token const& stop) {
    LiveFeed feed(mRecording, mOptions, mStartNs, mFaults.get());
    while (auto const event = feed.next()) {
        if (!waitUntil(event->timeNs, stop)) {
            return;
        }
        if (event->kind == SensorEventKind::Announce) {
            mPipeline.announce(event->frame);
            continue;
        }
        {
            LockGuard const lock(mLatenessLock);
            mLateness.add(pipeline::nowNs() - event->timeNs);
        }
        mResults.push(mPipeline.arrive(event->frame));
        ++mArrived;
    }
    mIsOver = true;
}

void LiveRun::Threads::runCaptures(std::stop_token const& stop) {
    std::multiset<int64_t> flushes;
    if (mFaults != nullptr) {
        for (int64_t const flushNs : mFaults->flushTimes()) {
            flushes.insert(flushNs);
        }
    }
    int64_t pressNs = mStartNs + mOptions.pressEveryNs;
    for (size_t capture = 0;;) {
        bool const isFlush = !flushes.empty() && *flushes.begin() <= pressNs;
        if (!waitUntil(isFlush ? *flushes.begin() : pressNs, stop)) {
            return;
        }
        if (isFlush) {
            flushes.erase(flushes.begin());
            mFaults->count(pipeline::FaultKind::Flush);
            mResults.push(mPipeline.flush());
        } else {
            press(capture++, pressNs, flushes);
            // By the schedule, not by the clock: a late press makes no other one late.
            pressNs += mOptions.pressEveryNs;
        }
    }
}

void LiveRun::Threads::press(size_t capture, int64_t pressNs, std::multiset<int64_t>& flushes) {
    mResults.push(mPipeline.submit(mOptions.replay.framesPerCapture,
                                   pipeline::sensorModesAt(mRecording, pressNs - mStartNs)));
    if (mFaults != nullptr) {
        if (auto const flushNs = mFaults->flushAfter(capture, pressNs)) {
            flushes.insert(*flushNs);
        }
    }
}

void LiveRun::Threads::runDumps(std::stop_token const& stop) {
    for (int64_t dumpNs = mStartNs; waitUntil(dumpNs, stop); dumpNs += mOptions.dumpEveryNs) {
        pipeline::SimulatedPipeline::dump();
        ++mDumps;
    }
}

void LiveRun::Threads::runResults() {
    while (auto const frame = mResults.pop()) {
        mPipeline.finish(*frame);
    }
}

void LiveRun::Threads::stop() {
    for (std::jthread* const thread : {&mSensorThread, &mCaptureThread, &mDumpThread}) {
        thread->request_stop();
    }
    for (std::jthread* const thread : {&mSensorThread, &mCaptureThread, &mDumpThread}) {
        if (thread->joinable()) {
            thread->join();
        }
    }
    // Nothing is submitted any more, so that the flush answers everything; the results follow it.
    mResults.push(mPipeline.flush());
    mResults.close();
    if (mResultThread.joinable()) {
        mResultThread.join();
    }
}

LiveStatus LiveRun::Threads::status() const {
    return {.elapsedNs = std::max<int64_t>(pipeline::nowNs() - mStartNs, 0),
            .arrivedFrames = mArrived,
            .dumps = mDumps,
            .captures = mPipeline.captures().totals(),
            .occupancy = mPipeline.occupancy(),
            .ledger = mPipeline.ledger().totals()};
}

LiveResult LiveRun::Threads::finish() {
    int64_t const elapsedNs = pipeline::nowNs() - mStartNs;
    stop();
    LiveResult result;
    result.source = mRecording.path;
    result.fps = 1e9 / static_cast<double>(mRecording.medianIntervalNs);
    result.options = mOptions;
    result.startNs = mStartNs;
    result.plannedNs = mOptions.durationNs.value_or(mRecording.frames.back().timestampNs -
                                                    mRecording.frames.front().timestampNs);
    result.offsetMs = pipeline::offsetInForceMs();
    result.status = status();
    // The results that came in after the last frame are no part of the run's time.
    result.status.elapsedNs = std::max<int64_t>(elapsedNs, 0);
    {
        LockGuard const lock(mLatenessLock);
        result.lateness = mLateness;
    }
    result.times = mSections.times();
    result.unsettled = mPipeline.ledger().unsettled();
    result.longestHeldNs = mPipeline.ledger().longestHeldNs();
    result.droppedFrames = mPipeline.droppedFrames();
    result.errorLines = mPipeline.errorLines();
    result.failures = mPipeline.failures(mStartNs);
    if (mFaults != nullptr) {
        result.faults = mFaults->tally();
    }
    if (mRecorder != nullptr) {
        result.recorder = mRecorder->finish();
    }
    return result;
}

LiveRun::LiveRun(recording::Recording const& recording, LiveOptions const& options, LogSink log)
    : mThreads(std::make_unique<Threads>(recording, options, std::move(log))) {
}

LiveRun::~LiveRun() = default;

void LiveRun::start() {
    mThreads->start();
}

bool LiveRun::isOver() const {
    return mThreads->isOver();
}

LiveStatus LiveRun::status() const {
    return mThreads->status();
}

LiveResult LiveRun::finish() {
    return mThreads->finish();
}

ReplaySummary LiveResult::summary() const {
    pipeline::CaptureTotals const& totals = status.captures;
    auto const frames = [&](pipeline::Served served) {
        auto const found = totals.served.find(served);
        return found != totals.served.end() ? found->second : 0;
    };
    return {.captures = totals.captures,
            .answeredCaptures = totals.answeredCaptures,
            .frames = totals.frames,
            .atOnce = frames(pipeline::Served::AtOnce),
            .waited = frames(pipeline::Served::Waited),
            .timedOut = frames(pipeline::Served::TimedOut),
            .flushed = frames(pipeline::Served::Flushed),
            .unanswered = frames(pipeline::Served::Unanswered),
            .withoutHistory = totals.withoutHistory,
            .lag = totals.lag.spread(),
            .wait = totals.wait.spread()};
}

bool LiveResult::isClean() const {
    return status.captures.answeredCaptures == status.captures.captures &&
           status.ledger.balances() && failures.empty() &&
           (!recorder || recorder->end == model::ZslRecordingEnd::FINISHED);
}

}  // namespace zebcam::tool::run
