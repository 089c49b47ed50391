#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>

#include "faults/FaultInjector.h"
#include "live/LiveFeed.h"
#include "live/LiveResult.h"
#include "live/ResultQueue.h"
#include "live/TimingProbe.h"
#include "replay/PropertyScope.h"
#include "sim/SimulatedPipeline.h"

namespace zebcam::tool {

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
    LiveRun(Recording const& recording, LiveOptions const& options, LogSink log);
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
    PipelineOptions listeningOptions();
    void runSensor(std::stop_token const& stop);
    void runCaptures(std::stop_token const& stop);
    void press(size_t capture, int64_t pressNs, std::multiset<int64_t>& flushes);
    void runDumps(std::stop_token const& stop);
    void runResults();
    void stop();

    Recording const& mRecording;
    LiveOptions const& mOptions;
    LogSink const mLog;
    PropertyScope const mProperties;
    int64_t const mStartNs;  ///< boot time at which the first frame is exposed
    std::shared_ptr<FaultInjector> const mFaults;  ///< null: none
    LiveFeed mFeed;
    ResultQueue mResults;
    TimingProbe mProbe;
    android::sp<NSCam::v3::pipeline::model::ZslRecorder> mRecorder;  ///< null: none
    SimulatedPipeline mPipeline;

    std::atomic<bool> mIsOver = false;
    std::atomic<uint64_t> mArrived = 0;
    std::atomic<uint64_t> mDumps = 0;
    mutable std::mutex mLatenessLock;
    Distribution mLateness;

    std::jthread mResultThread;
    std::jthread mSensorThread;
    std::jthread mCaptureThread;
    std::jthread mDumpThread;
};

}  // namespace zebcam::tool
