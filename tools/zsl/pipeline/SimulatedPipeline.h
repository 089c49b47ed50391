#pragma once

#include <IZslProcessor.h>
#include <host/DeviceRegistration.h>
#include <host/HistoryProvider.h>
#include <host/MetaStreamBuffer.h>
#include <utils/RefBase.h>
#include <zebcam/ThreadSafety.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "pipeline/CaptureBook.h"
#include "pipeline/FaultInjector.h"
#include "pipeline/FrameFactory.h"
#include "pipeline/ObservedProvider.h"
#include "pipeline/ProcessorLog.h"
#include "pipeline/Schedule.h"
#include "recording/Recording.h"

namespace zebcam::tool::pipeline {

/// How the pipeline is set up.
struct PipelineOptions {
    size_t history = 8;                                          ///< frames that the provider keeps
    std::shared_ptr<NSCam::ZslPolicy::ZslPolicyParams> pPolicy;  ///< of each capture
    std::shared_ptr<NSCam::ZslPolicy::ISelector> pSelector;      ///< of each capture
    int64_t timeoutMs = DEFAULT_TIMEOUT_MS;  ///< shortest time-out that a capture's policy implies
    bool frameSync = false;
    CaptureBook::Tries tries = CaptureBook::Tries::All;
    /// Whether the newest try of the capture with this number, which found what the one before
    /// did, told nothing else either, so that it need not be kept; `evenIfUnlike`: it is not kept
    /// whatever it told. Empty: it did not.
    std::function<bool(uint32_t requestNo, bool evenIfUnlike)> isRepeat;
    /// The try that begins, at this age, is a repeat of the one before, so sure that none of its
    /// further lines is told. Empty: every line is wanted.
    std::function<void(uint32_t requestNo, int64_t ageMs)> skipRepeat;
    /// Puts something between the pipeline and the processor; may be empty.
    std::function<android::sp<NSCam::v3::pipeline::model::IZslProcessor>(
        android::sp<NSCam::v3::pipeline::model::IZslProcessor>)>
        wrap;
    /// What the image of a frame shows, asked for as the frame reaches the history; null: nothing.
    /// Empty: no image shows anything.
    std::function<std::shared_ptr<host::ImageContent const>(recording::SensorFrame const&)>
        contentOf;
    std::shared_ptr<FaultInjector> faults;  ///< what goes wrong; may be empty
    std::function<void(int64_t ns)> pause;  ///< lets time pass while a policy is slow
    uint32_t logLevel = 0;                  ///< see ProcessorLog
    ProcessorLog::Sink logSink;
};

/// Where the sensor's frames are, in numbers.
struct Occupancy {
    size_t history = 0;   ///< with the provider, to be chosen from
    size_t inFlight = 0;  ///< on their way to the history
    size_t locked = 0;    ///< kept by policies

    bool operator==(Occupancy const&) const = default;
};

/**
 * The camera pipeline around one processor: a sensor whose frames go through a history, captures,
 * and results. It has no clock and no threads of its own: everything happens when it is called, at
 * the boot time that the platform tells. Whoever drives it decides when that is.
 *
 * Thread-safe, as a pipeline model is: arrivals, captures, results and dumps may come from threads
 * of their own. At most one at a time.
 */
class SimulatedPipeline {
public:
    /// Throws InputError when the processor cannot be made or configured.
    explicit SimulatedPipeline(PipelineOptions options);
    ~SimulatedPipeline();

    /// The sensor starts on a frame.
    void announce(ReportedFrame const& reported);
    /// A frame reaches the history; the captures that wait are tried again.
    std::vector<BuiltFrame> arrive(ReportedFrame const& reported);
    std::vector<BuiltFrame> arrive(recording::SensorFrame const& frame) {
        return arrive({frame, {}});
    }
    /// The user presses the button, for so many frames. `sensorModes` are required, by sensor id.
    std::vector<BuiltFrame> submit(size_t frames, std::map<uint32_t, uint32_t> const& sensorModes);
    /// `isFault`: nobody but an injected fault wanted it.
    std::vector<BuiltFrame> flush(bool isFault = false);
    /// A built frame is done: its result goes to the processor, its buffers are let go.
    void finish(BuiltFrame const& frame);
    /// What every debuggee prints, line by line.
    static std::vector<std::string> dump();

    CaptureBook const& captures() const { return mBook; }
    Occupancy occupancy() const;
    host::BufferLedger const& ledger() const { return *mProvider->ledger(); }
    uint64_t droppedFrames() const { return mProvider->droppedFrames(); }
    uint64_t errorLines() const { return mLog.errorLines(); }
    /// Exceptions (of policies, too, but for those of faults) and frames that came back wrongly so
    /// far, and what must not be at the end: metadata locks that are held, buffer sets that came
    /// back without having been out. Each with its time from boot time `startNs` on; those that
    /// differ in numbers only are one, with how often, and from when to when.
    std::vector<std::string> failures(int64_t startNs) const;

private:
    class ShutterListener;

    /// A failure, as often as it came.
    struct Failure {
        std::string text;  ///< of the first
        uint64_t count = 0;
        int64_t firstNs = 0;  ///< boot time
        int64_t lastNs = 0;
    };

    template <typename Call>
    void guard(char const* what, Call call);
    template <typename Call>
    std::vector<BuiltFrame> collect(char const* what, bool isFlush, Call call);
    void beginTry(size_t capture, TryRecord offer);
    void foldRepeat(size_t capture);
    bool skipRepeat(size_t capture, TryRecord const& offer);
    bool maySoonTimeOut(size_t capture) const;
    void endTry();
    void watchTimeout(size_t capture);
    NSCam::v3::pipeline::model::ZslRequestParams requestOf(size_t capture, size_t frames);
    std::shared_ptr<NSCam::v3::pipeline::NSPipelineContext::IHistoryBufferProvider> providerOf(
        size_t capture);
    std::shared_ptr<NSCam::ZslPolicy::ISelector> selectorOf(size_t capture);
    bool isListenerGone();
    void setMetadataLockable(bool isLockable);
    android::sp<NSCam::v3::IMetaStreamBuffer> resultOf(BuiltFrame const& frame) const;
    void fail(std::string text);

    PipelineOptions const mOptions;
    FrameFactory mFactory;
    ProcessorLog mLog;
    host::DeviceRegistration const mDevice;
    std::shared_ptr<host::HistoryProvider> const mProvider;
    CaptureBook mBook;
    mutable Mutex mLock;  ///< a leaf
    /// By their texts without numbers. A policy may fail at each frame of a run of days.
    std::map<std::string, Failure> mFailures GUARDED_BY(mLock);
    /// Results that somebody else holds whenever a policy looks at them; borrowed.
    std::vector<android::wp<host::MetaStreamBuffer>> mHeldMetadata GUARDED_BY(mLock);
    android::sp<ShutterListener> mListener GUARDED_BY(mLock);           ///< null once it is gone
    android::sp<NSCam::v3::pipeline::model::IZslProcessor> mProcessor;  ///< goes first
};

}  // namespace zebcam::tool::pipeline
