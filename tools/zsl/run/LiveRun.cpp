#include "run/LiveRun.h"

#include <fmt/format.h>
#include <utils/Timers.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <utility>

#include "base/Duration.h"
#include "base/InputError.h"
#include "log/Logcat.h"
#include "pipeline/PipelineSetup.h"
#include "pipeline/Schedule.h"

namespace zebcam::tool::run {

bool Pacer::waitUntil(int64_t bootNs) {
    std::unique_lock lock(mLock);
    while (!mStop.stop_requested()) {
        std::chrono::nanoseconds const left(bootNs - systemTime(SYSTEM_TIME_BOOTTIME));
        if (left.count() <= 0) {
            return true;
        }
        mWake.wait_for(lock, mStop, left, [] { return false; });
    }
    return false;
}

void ResultQueue::push(std::vector<pipeline::BuiltFrame> const& frames) {
    if (frames.empty()) {
        return;
    }
    {
        // The clock is read under the lock, so that the entries stay in order.
        std::lock_guard lock(mLock);
        int64_t const dueNs = systemTime(SYSTEM_TIME_BOOTTIME) + mDelayNs;
        for (pipeline::BuiltFrame const& frame : frames) {
            mEntries.push_back({dueNs, frame});
        }
    }
    mWake.notify_one();
}

void ResultQueue::close() {
    {
        std::lock_guard lock(mLock);
        mIsClosed = true;
    }
    mWake.notify_one();
}

std::optional<pipeline::BuiltFrame> ResultQueue::pop() {
    std::unique_lock lock(mLock);
    while (true) {
        mWake.wait(lock, [this] { return mIsClosed || !mEntries.empty(); });
        if (mEntries.empty()) {
            return std::nullopt;
        }
        std::chrono::nanoseconds const left(mEntries.front().dueNs -
                                            systemTime(SYSTEM_TIME_BOOTTIME));
        if (mIsClosed || left.count() <= 0) {
            pipeline::BuiltFrame const frame = mEntries.front().frame;
            mEntries.pop_front();
            return frame;
        }
        mWake.wait_for(lock, left);
    }
}

namespace {

/// Enough for the frames that are in flight across the seam of two passes.
constexpr size_t kEventsAhead = 64;

int64_t lengthOf(recording::Recording const& recording) {
    return recording.frames.back().timestampNs - recording.frames.front().timestampNs;
}

}  // namespace

LiveFeed::LiveFeed(recording::Recording const& recording, LiveOptions const& options,
                   int64_t startNs, pipeline::FaultInjector* faults)
    : mRecording(recording),
      mOptions(options),
      mStartNs(startNs),
      mFaults(faults),
      mPassNs(lengthOf(recording) + recording.medianIntervalNs),
      mPassCount(recording.frames.back().frameNo - recording.frames.front().frameNo + 1) {
}

std::optional<LiveFeed::Event> LiveFeed::next() {
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

void LiveFeed::loadPass() {
    int64_t const shiftNs = mStartNs - mRecording.frames.front().timestampNs + mPasses * mPassNs;
    pipeline::SensorEvents const pass = pipeline::sensorEvents(
        mRecording, mOptions.replay,
        {.number = mPasses, .shiftNs = shiftNs, .frameNoShift = mPasses * mPassCount}, mFaults);
    for (pipeline::SensorEvent const& event : pass.events) {
        mEvents.push({event.timeNs, event.kind, pass.frames[event.frame]});
    }
    ++mPasses;
}

std::map<uint32_t, uint32_t> LiveFeed::sensorModesAt(int64_t pressNs) const {
    int64_t const intoPassNs = (pressNs - mStartNs) % mPassNs;
    return tool::pipeline::sensorModesAt(mRecording,
                                         mRecording.frames.front().timestampNs + intoPassNs);
}

namespace model = NSCam::v3::pipeline::model;

namespace {

constexpr int32_t kOpenId = 0;

/// Time for the threads to begin before the first frame is due.
constexpr int64_t kLeadNs = 50'000'000;

int64_t nowNs() {
    return systemTime(SYSTEM_TIME_BOOTTIME);
}

/// The recorder, made for a device, tells why a file cannot be written in the log only.
void requireWritable(std::string const& path) {
    std::FILE* const file = std::fopen(path.c_str(), "ab");
    if (file == nullptr) {
        throw base::InputError(
            fmt::format("--record {}: cannot be written: {}", path, std::strerror(errno)));
    }
    std::fclose(file);
}

}  // namespace

LiveRun::LiveRun(recording::Recording const& recording, LiveOptions const& options, LogSink log)
    : mRecording(recording),
      mOptions(options),
      mLog(std::move(log)),
      mProperties(pipeline::propertiesOf(options.replay)),
      mStartNs(nowNs() + kLeadNs),
      mFaults(
          pipeline::makeFaultInjector(options.replay.faults, mStartNs, recording.medianIntervalNs)),
      mFeed(recording, options, mStartNs, mFaults.get()),
      mResults(options.replay.reprocessDelayNs.value_or(recording.medianIntervalNs)),
      mPipeline(listeningOptions()) {
}

LiveRun::~LiveRun() {
    stop();
}

pipeline::PipelineOptions LiveRun::listeningOptions() {
    pipeline::PipelineOptions options = pipeline::pipelineOptions(mOptions.replay);
    options.tries = pipeline::CaptureBook::Tries::Newest;
    options.faults = mFaults;
    options.pause = [](int64_t ns) { std::this_thread::sleep_for(std::chrono::nanoseconds(ns)); };
    options.logSink = [this](host::LogLine const& line) {
        mLog(log::toThreadtime(log::fromLogLine(line), nowNs() - mStartNs));
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

void LiveRun::start() {
    mResultThread = std::jthread([this] { runResults(); });
    mSensorThread = std::jthread([this](std::stop_token const& stop) { runSensor(stop); });
    mCaptureThread = std::jthread([this](std::stop_token const& stop) { runCaptures(stop); });
    mDumpThread = std::jthread([this](std::stop_token const& stop) { runDumps(stop); });
}

void LiveRun::runSensor(std::stop_token const& stop) {
    Pacer pacer(stop);
    while (auto const event = mFeed.next()) {
        if (!pacer.waitUntil(event->timeNs)) {
            return;
        }
        if (event->kind == pipeline::SensorEventKind::Announce) {
            mPipeline.announce(event->frame);
            continue;
        }
        {
            std::lock_guard lock(mLatenessLock);
            mLateness.add(nowNs() - event->timeNs);
        }
        mResults.push(mPipeline.arrive(event->frame));
        ++mArrived;
    }
    mIsOver = true;
}

void LiveRun::runCaptures(std::stop_token const& stop) {
    Pacer pacer(stop);
    std::multiset<int64_t> flushes;
    if (mFaults != nullptr) {
        for (int64_t const flushNs : mFaults->flushTimes()) {
            flushes.insert(flushNs);
        }
    }
    int64_t pressNs = mStartNs + mOptions.pressEveryNs;
    for (size_t capture = 0;;) {
        bool const isFlush = !flushes.empty() && *flushes.begin() <= pressNs;
        if (!pacer.waitUntil(isFlush ? *flushes.begin() : pressNs)) {
            return;
        }
        if (isFlush) {
            flushes.erase(flushes.begin());
            mFaults->count(pipeline::FaultKind::Flush);
            mResults.push(mPipeline.flush());
        } else {
            press(capture++, pressNs, flushes);
            pressNs += mOptions.pressEveryNs;
        }
    }
}

void LiveRun::press(size_t capture, int64_t pressNs, std::multiset<int64_t>& flushes) {
    mResults.push(mPipeline.submit(
        {.frames = mOptions.replay.framesPerCapture, .sensorModes = mFeed.sensorModesAt(pressNs)}));
    if (mFaults != nullptr) {
        if (auto const flushNs = mFaults->flushAfter(capture, pressNs)) {
            flushes.insert(*flushNs);
        }
    }
}

void LiveRun::runDumps(std::stop_token const& stop) {
    Pacer pacer(stop);
    for (int64_t dumpNs = mStartNs; pacer.waitUntil(dumpNs); dumpNs += mOptions.dumpEveryNs) {
        pipeline::SimulatedPipeline::dump();
        ++mDumps;
    }
}

void LiveRun::runResults() {
    while (auto const frame = mResults.pop()) {
        mPipeline.finish(*frame);
    }
}

void LiveRun::stop() {
    for (std::jthread* const thread : {&mSensorThread, &mCaptureThread, &mDumpThread}) {
        thread->request_stop();
    }
    for (std::jthread* const thread : {&mSensorThread, &mCaptureThread, &mDumpThread}) {
        if (thread->joinable()) {
            thread->join();
        }
    }
    mResults.push(mPipeline.flush());
    mResults.close();
    if (mResultThread.joinable()) {
        mResultThread.join();
    }
}

LiveStatus LiveRun::status() const {
    return {.elapsedNs = std::max<int64_t>(nowNs() - mStartNs, 0),
            .arrivedFrames = mArrived,
            .dumps = mDumps,
            .captures = mPipeline.captures().totals(),
            .occupancy = mPipeline.occupancy(),
            .ledger = mPipeline.ledger().totals()};
}

LiveResult LiveRun::finish() {
    int64_t const elapsedNs = nowNs() - mStartNs;
    stop();
    LiveResult result;
    result.source = mRecording.path;
    result.fps = 1e9 / static_cast<double>(mRecording.medianIntervalNs);
    result.options = mOptions;
    result.startNs = mStartNs;
    result.offsetMs = pipeline::offsetInForceMs();
    result.status = status();
    result.status.elapsedNs = std::max<int64_t>(elapsedNs, 0);
    result.lateness = mLateness;
    result.times = mProbe.times();
    result.unsettled = mPipeline.ledger().unsettled();
    result.longestHeldNs = mPipeline.ledger().longestHeldNs();
    result.droppedFrames = mPipeline.droppedFrames();
    result.errorLines = mPipeline.errorLines();
    for (pipeline::PipelineFailure const& failure : mPipeline.failures()) {
        result.failures.push_back(fmt::format(
            "at {} s: {}", base::formatSeconds(failure.timeNs - mStartNs), failure.text));
    }
    if (mFaults != nullptr) {
        result.faults = mFaults->tally();
    }
    if (mRecorder != nullptr) {
        result.recorder = mRecorder->finish();
    }
    return result;
}

}  // namespace zebcam::tool::run
