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
#include <limits>
#include <set>
#include <stop_token>
#include <thread>
#include <utility>

#include "base/InputError.h"
#include "base/Text.h"
#include "log/Logcat.h"
#include "pipeline/FaultInjector.h"
#include "pipeline/PipelineSetup.h"
#include "run/CapturePictures.h"

namespace zebcam::tool::run {

namespace model = NSCam::v3::pipeline::model;
using pipeline::BuiltFrame;
using pipeline::SensorEventKind;

namespace {

constexpr int32_t kOpenId = 0;

/// Time for the threads to begin before the first frame is due.
constexpr int64_t kLeadNs = 50'000'000;

constexpr int64_t kNever = std::numeric_limits<int64_t>::max();

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
    /// A frame, and what was known of its capture when it was built.
    using Result = std::pair<BuiltFrame, pipeline::CaptureRecord>;

    explicit ResultQueue(int64_t delayNs) : mDelayNs(delayNs) {}

    void push(std::vector<Result> results) {
        {
            // The clock is read under the lock, so that the entries stay in order.
            LockGuard const lock(mLock);
            int64_t const dueNs = pipeline::nowNs() + mDelayNs;
            for (Result& result : results) {
                mEntries.emplace_back(dueNs, std::move(result));
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
    std::optional<Result> pop() {
        LockGuard const lock(mLock);
        while (true) {
            if (mEntries.empty()) {
                if (mIsClosed) {
                    return std::nullopt;
                }
                mWake.wait(mLock);
                continue;
            }
            auto& [dueNs, next] = mEntries.front();
            std::chrono::nanoseconds const left(dueNs - pipeline::nowNs());
            if (mIsClosed || left.count() <= 0) {
                Result result = std::move(next);
                mEntries.pop_front();
                return result;
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
    std::deque<std::pair<int64_t, Result>> mEntries GUARDED_BY(mLock);
    bool mIsClosed GUARDED_BY(mLock) = false;
};

/// Waited for by one thread, pressed by any.
class Button {
public:
    void press() {
        {
            LockGuard const lock(mLock);
            ++mPresses;
        }
        mPressed.notify_one();
    }

    /// Waits for a press, which it takes, until boot time `bootNs` or `stop`. Whether it got one.
    bool awaitPress(int64_t bootNs, std::stop_token const& stop) {
        std::stop_callback const wake(stop, [this] {
            LockGuard const lock(mLock);  // or it comes between a look at `stop` and the wait
            mPressed.notify_one();
        });
        LockGuard const lock(mLock);
        while (mPresses == 0 && !stop.stop_requested()) {
            int64_t const leftNs = bootNs - pipeline::nowNs();
            if (leftNs <= 0) {
                return false;
            }
            // What lies too far off would be beyond the wait's own clock.
            mPressed.wait_for(mLock, std::chrono::nanoseconds(std::min(leftNs, kLongestWaitNs)));
        }
        bool const isPressed = mPresses > 0 && !stop.stop_requested();
        mPresses -= isPressed ? 1 : 0;
        return isPressed;
    }

private:
    static constexpr int64_t kLongestWaitNs = 3600 * base::NS_PER_SECOND;

    Mutex mLock;
    std::condition_variable_any mPressed;
    size_t mPresses GUARDED_BY(mLock) = 0;  ///< that nobody has taken
};

}  // namespace

/// The pipeline, what it is fed with, and the threads that do so.
class LiveRun::Threads {
public:
    Threads(FrameSource& source, LiveOptions const& options, LiveListener listener)
        : mSource(source),
          mOptions(options),
          mListener(std::move(listener)),
          mProperties(pipeline::propertiesOf(options.replay)),
          mStartNs(pipeline::nowNs() + kLeadNs),
          mFaults(
              pipeline::makeFaultInjector(options.replay.faults, mStartNs, source.intervalNs())),
          mResults(options.replay.reprocessDelayNs.value_or(source.intervalNs())),
          mPipeline(listeningOptions()) {
        mSource.start(mStartNs, mFaults.get());
    }
    ~Threads() { stop(); }

    void start() {
        mResultThread = std::jthread([this] { runResults(); });
        mSensorThread = std::jthread([this](std::stop_token const& stop) { runSensor(stop); });
        mCaptureThread = std::jthread([this](std::stop_token const& stop) { runCaptures(stop); });
        mDumpThread = std::jthread([this](std::stop_token const& stop) { runDumps(stop); });
    }
    void press() { mButton.press(); }
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
    void reprocess(std::vector<BuiltFrame> const& frames);
    void stop();

    FrameSource& mSource;
    LiveOptions const& mOptions;
    LiveListener const mListener;
    pipeline::PropertyScope const mProperties;
    int64_t const mStartNs;  ///< boot time from which the source counts
    std::shared_ptr<pipeline::FaultInjector> const mFaults;  ///< null: none
    ResultQueue mResults;
    Button mButton;
    SectionRecorder mSections{SectionRecorder::Kept::Times};
    android::sp<model::ZslRecorder> mRecorder;  ///< null: none
    pipeline::SimulatedPipeline mPipeline;

    // Counts for people to look at; nothing is concluded from one about another.
    std::atomic<bool> mIsOver = false;
    std::atomic<uint64_t> mArrived = 0;
    std::atomic<uint64_t> mDumps = 0;
    mutable Mutex mLatenessLock;
    base::Distribution mLateness GUARDED_BY(mLatenessLock);

    std::shared_ptr<host::ImageContent const> mContent;  ///< the sensor's, of what arrives

    std::jthread mResultThread;
    std::jthread mSensorThread;
    std::jthread mCaptureThread;
    std::jthread mDumpThread;
};

pipeline::PipelineOptions LiveRun::Threads::listeningOptions() {
    pipeline::PipelineOptions options = pipeline::pipelineOptions(mOptions.replay);
    options.tries = pipeline::CaptureBook::Tries::Newest;
    options.faults = mFaults;
    options.contentOf = [this](recording::SensorFrame const&) { return mContent; };
    options.pause = [](int64_t ns) { std::this_thread::sleep_for(std::chrono::nanoseconds(ns)); };
    options.logSink = [this](host::LogLine const& line) {
        mListener.log(log::toThreadtime(log::fromLogLine(line), pipeline::nowNs() - mStartNs));
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
    while (auto const event = mSource.next(stop)) {
        if (mOptions.durationNs && event->timeNs > mStartNs + *mOptions.durationNs) {
            break;
        }
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
        mContent = event->content;
        reprocess(mPipeline.arrive(event->frame));
        mContent.reset();  // from here on the history's
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
    int64_t const everyNs = mOptions.pressEveryNs.value_or(0);
    int64_t pressNs = mOptions.pressEveryNs ? mStartNs + everyNs : kNever;
    for (size_t capture = 0; !stop.stop_requested();) {
        int64_t const flushNs = flushes.empty() ? kNever : *flushes.begin();
        if (mButton.awaitPress(std::min(flushNs, pressNs), stop)) {
            press(capture++, pipeline::nowNs(), flushes);
        } else if (stop.stop_requested()) {
            return;
        } else if (flushNs <= pressNs) {
            flushes.erase(flushes.begin());
            mFaults->count(pipeline::FaultKind::Flush);
            reprocess(mPipeline.flush());
        } else {
            press(capture++, pressNs, flushes);
            // By the schedule, not by the clock: a late press makes no other one late.
            pressNs += everyNs;
        }
    }
}

void LiveRun::Threads::press(size_t capture, int64_t pressNs, std::multiset<int64_t>& flushes) {
    if (mListener.press) {
        mListener.press(static_cast<uint32_t>(capture + 1), pipeline::nowNs());
    }
    reprocess(mPipeline.submit(mOptions.replay.framesPerCapture,
                               mSource.sensorModesAt(pressNs - mStartNs)));
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

void LiveRun::Threads::reprocess(std::vector<BuiltFrame> const& frames) {
    std::vector<ResultQueue::Result> results;
    results.reserve(frames.size());
    for (BuiltFrame const& frame : frames) {
        // Now, while the try that built it is the newest.
        results.emplace_back(frame, mListener.frame ? mPipeline.captures().recordOf(frame)
                                                    : pipeline::CaptureRecord{});
    }
    mResults.push(std::move(results));
}

void LiveRun::Threads::runResults() {
    while (auto result = mResults.pop()) {
        auto& [frame, capture] = *result;
        // Before the buffers are let go.
        auto content = mListener.frame ? pictureIn(*frame.builder) : nullptr;
        mPipeline.finish(frame);
        if (mListener.frame) {
            mListener.frame({std::move(capture), frame.index, std::move(content)});
        }
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
    reprocess(mPipeline.flush());
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
    result.source = mSource.name();
    result.fps = 1e9 / static_cast<double>(mSource.intervalNs());
    result.options = mOptions;
    result.startNs = mStartNs;
    result.plannedNs = mOptions.durationNs ? mOptions.durationNs : mSource.lengthNs();
    result.offsetMs = pipeline::offsetInForceMs();
    result.status = status();
    // The results that came in after the last frame are no part of the run's time.
    result.status.elapsedNs = std::max<int64_t>(elapsedNs, 0);
    {
        LockGuard const lock(mLatenessLock);
        result.lateness = mLateness;
    }
    if (mListener.frame) {
        result.captures = mPipeline.captures().records();
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

LiveRun::LiveRun(FrameSource& source, LiveOptions const& options, LiveListener listener)
    : mThreads(std::make_unique<Threads>(source, options, std::move(listener))) {
}

LiveRun::~LiveRun() = default;

void LiveRun::start() {
    mThreads->start();
}

void LiveRun::press() {
    mThreads->press();
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
    ReplaySummary summary = summarize(captures, offsetMs);
    summary.captures = totals.captures;
    summary.answeredCaptures = totals.answeredCaptures;
    summary.frames = totals.frames;
    summary.atOnce = frames(pipeline::Served::AtOnce);
    summary.waited = frames(pipeline::Served::Waited);
    summary.timedOut = frames(pipeline::Served::TimedOut);
    summary.flushed = frames(pipeline::Served::Flushed);
    summary.unanswered = frames(pipeline::Served::Unanswered);
    summary.withoutHistory = totals.withoutHistory;
    if (captures.empty()) {
        summary.lag = totals.lag.spread();
        summary.wait = totals.wait.spread();
    }
    return summary;
}

bool LiveResult::isClean() const {
    return status.captures.answeredCaptures == status.captures.captures &&
           status.ledger.balances() && failures.empty() &&
           (!recorder || recorder->end == model::ZslRecordingEnd::FINISHED) &&
           (!camera || !camera->hasBrokenOff);
}

}  // namespace zebcam::tool::run
