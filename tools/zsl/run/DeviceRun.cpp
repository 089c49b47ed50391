#include <IZslProcessor.h>
#include <ZslRecorder.h>
#include <fmt/format.h>
#include <host/DeviceRegistration.h>
#include <host/LogCapture.h>
#include <metadata/MetadataTags.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <memory>
#include <stdexcept>
#include <thread>
#include <unordered_map>
#include <utility>

#include "base/InputError.h"
#include "device/DeviceRecordingReader.h"
#include "pipeline/MetadataAccess.h"
#include "pipeline/PipelineSetup.h"
#include "pipeline/ProcessorLog.h"
#include "run/DeviceCaptures.h"
#include "run/DeviceReplay.h"
#include "run/DeviceScript.h"

namespace zebcam::tool::run {

namespace v3 = NSCam::v3;
namespace model = NSCam::v3::pipeline::model;
using NSCam::v3::pipeline::IPipelineBufferSetFrameControl;

namespace {

constexpr int64_t kFixedTimeoutMs = 3000;
constexpr uint64_t kLeastRecordingBytes = uint64_t{1} << 20;

NSCam::IMetadata deviceFacts(device::DeviceRecording const& recording) {
    NSCam::IMetadata facts;
    pipeline::put(facts, NSCam::ZEB_SENSOR_INFO_TIMESTAMP_SOURCE, recording.timestampSource);
    return facts;
}

/// How long a capture may wait, ms.
int64_t timeoutMs(device::SubmitCall const& call) {
    bool const isMultiframe = !call.hasSelector && call.policy &&
                              call.policy->policy != NSCam::ZslPolicy::POLICY_CONTINUOUS_SHOT &&
                              (call.policy->policy & NSCam::ZslPolicy::POLICY_MULTIFRAME_BIT) != 0;
    return isMultiframe ? call.policy->timeoutMs : kFixedTimeoutMs;
}

/// A file without a place on a disk, which goes with this object.
class MemoryFile {
public:
    MemoryFile() : mFile(memfd_create("zsl-replay", MFD_CLOEXEC)) {
        if (mFile < 0) {
            throw base::InputError(
                fmt::format("the replay cannot be recorded: {}", std::strerror(errno)));
        }
    }
    ~MemoryFile() { close(mFile); }
    MemoryFile(MemoryFile const&) = delete;
    MemoryFile& operator=(MemoryFile const&) = delete;

    std::string path() const { return fmt::format("/proc/self/fd/{}", mFile); }

private:
    int const mFile;
};

/// Hears the early shutters, and throws where the device's application did.
class ShutterListener final : public IPipelineBufferSetFrameControl::IAppCallback {
public:
    ShutterListener(DeviceScript& script, pipeline::CaptureBook& book)
        : mScript(script), mBook(book) {}

    void updateFrame(Result const& result) override {
        for (auto const& buffer : result.outputAppMetas) {
            mBook.setEarlyShutter(result.requestNo, pipeline::readSensorTimestamp(buffer));
        }
        if (auto const& failure = mScript.operation().callbackFailure) {
            throw std::runtime_error(*failure);
        }
    }

private:
    DeviceScript& mScript;
    pipeline::CaptureBook& mBook;
};

/// Drives the processor through a recording.
class DeviceRun {
public:
    DeviceRun(device::DeviceRecording const& recording, AssumedInstants const& instants,
              uint32_t logLevel, ReplayListener const& listener)
        : mRecording(recording),
          mInstants(instants),
          mListener(listener),
          mServingOperations(servingOperations(recording)),
          mClock({.bootTimeNs = recording.begun.bootNs,
                  .monotonicNs = recording.begun.monotonicNs,
                  .wallNs = recording.begun.wallNs}),
          mLog(logLevel, logSink()),
          mDevice(static_cast<int32_t>(recording.openId), deviceFacts(recording)),
          mScript(recording, mClock),
          mCaptures(recording),
          mRecorder(makeRecorder()) {}

    DeviceRunResult run(size_t operations) {
        for (size_t i = 0; i < operations; ++i) {
            carryOut(i);
            tellListener(i, operations);
        }
        DeviceRunResult result;
        // Its own thread writes the file, which is whole only then.
        mRecorder->finish();
        result.replayed = device::readDeviceRecording(mFile.path());
        result.replay.captures = mCaptures.identify(result.replayed);
        result.replay.failures = mCaptures.problems();
        result.replay.errorLines = mLog.errorLines();
        letGo(result.replay);
        return result;
    }

private:
    android::sp<model::ZslRecorder> makeRecorder() const {
        auto const openId = static_cast<int32_t>(mRecording.openId);
        android::sp<model::IZslProcessor> const processor =
            model::IZslProcessor::createInstance(openId, "DeviceReplay");
        if (processor == nullptr) {
            throw base::InputError("the processor cannot be made");
        }
        // The replay is over sooner than the file is written, so that the memory holds all of it.
        // It says what the device's recording says. Only one that no device made may say more.
        uint64_t const bytes = kLeastRecordingBytes + 2 * mRecording.fileBytes;
        auto recorder = model::ZslRecorder::create(openId, processor,
                                                   {.path = mFile.path(),
                                                    .memoryBytes = bytes,
                                                    .maxFileBytes = bytes,
                                                    .largestEntryBytes = 0});
        if (recorder == nullptr) {
            throw base::InputError("the replay cannot be recorded");
        }
        return recorder;
    }

    pipeline::ProcessorLog::Sink logSink() {
        if (!mListener.log) {
            return {};
        }
        return [this, self = std::this_thread::get_id()](host::LogLine const& line) {
            // The recorder's own thread may speak too, but not of the processor.
            if (std::this_thread::get_id() == self) {
                mListener.log(mClock.bootTimeNs(), line);
            }
        };
    }

    void carryOut(size_t position) {
        mScript.begin(position);
        device::DeviceOperation const& operation = mScript.operation();
        pipeline::CaptureBook::Operation booked(mCaptures.book());
        model::ZslFrameBuilders lists;
        try {
            lists = call(operation);
        } catch (std::exception const&) {
            // The recorder has it, and the comparison tells whether it was so on the device.
        }
        mScript.set(operation.ended);
        mCaptures.take(lists, operation.kind == record::Operation::FLUSH, booked);
    }

    model::ZslFrameBuilders call(device::DeviceOperation const& operation) {
        if (auto const* const submission = std::get_if<device::SubmitCall>(&operation.call)) {
            return submit(operation, *submission);
        }
        if (auto const* const retry = std::get_if<device::RetryCall>(&operation.call)) {
            return mRecorder->processZslPendingRequest(retry->requestNo);
        }
        if (auto const* const result = std::get_if<device::ResultCall>(&operation.call)) {
            tellResult(*result);
            return {};
        }
        if (auto const* const config = std::get_if<device::ConfigureCall>(&operation.call)) {
            configure(*config);
            return {};
        }
        return mRecorder->flush();
    }

    void configure(device::ConfigureCall const& call) {
        auto const sensors =
            mScript.buffers.sensors(call.sensors.value_or(std::vector<device::DeviceSensor>()));
        android::sp<ShutterListener> const shutters =
            call.hasCallback ? new ShutterListener(mScript, mCaptures.book()) : nullptr;
        if (mRecorder->configure({.pParsedStreamInfo_P1 = call.sensors ? &sensors : nullptr,
                                  .pCallback = shutters}) == 0) {
            mShutters = shutters;
        }
    }

    model::ZslFrameBuilders submit(device::DeviceOperation const& operation,
                                   device::SubmitCall const& call) {
        if (!call.callbackLives) {
            // The device's had died by then; the processor knows it weakly only.
            mShutters = nullptr;
        }
        size_t const position = mCaptures.size();
        DeviceSubmission submission =
            submissionOf(mRecording, operation, mServingOperations.at(position));
        if (auto const found = mInstants.find(position); found != mInstants.end()) {
            submission.assumed = found->second;
        }
        mScript.set(submission.assumed);
        std::unordered_map<uint32_t, uint32_t> const modes(call.sensorModes.begin(),
                                                           call.sensorModes.end());
        model::ZslRequestParams params = openRequest(call, submission);
        params.pStreamIdMap = &modes;
        params.pvRequiredSensorIds = &call.requiredSensors;
        return mRecorder->submitZslRequest(std::move(params));
    }

    /// Opens the capture and gives what its submission needs.
    model::ZslRequestParams openRequest(device::SubmitCall const& call,
                                        DeviceSubmission const& submission) {
        model::ZslRequestParams params;
        params.requestNo = call.requestNo;
        params.checkPureRaw = call.checksPureRaw;
        params.needFrameSync = call.needsFrameSync;
        DeviceCaptures::Builders builders;
        for (device::RequestedFrame const& frame : call.frames) {
            builders.push_back(mScript.buffers.builder(call.requestNo, frame));
            auto& required = params.vReqResult.emplace_back();
            if (frame.required) {
                required = std::make_shared<v3::pipeline::policy::RequestResultParams>();
                required->required = *frame.required;
            }
        }
        params.vFrameBuilder.assign(builders.begin(), builders.end());
        size_t const capture = mCaptures.open(call, builders);
        if (call.policy) {
            params.pPolicyParams =
                std::make_shared<NSCam::ZslPolicy::ZslPolicyParams>(*call.policy);
        }
        if (call.hasSelector) {
            params.pSelector = makeScriptedSelector(mScript, call);
        }
        if (call.provider) {
            auto const begin = [this, capture, limitMs = timeoutMs(call)](auto offer) {
                beginTry(capture, limitMs, std::move(offer));
            };
            params.pHistoryBufferProvider = std::make_shared<ScriptedProvider>(
                mScript, *call.provider, submission, begin, [this] { endTry(); });
        }
        return params;
    }

    void beginTry(size_t capture, int64_t limitMs, pipeline::TryRecord offer) {
        mOffered = {offer.historyFrames.size(), offer.inFlightFrames.size(),
                    offer.lockedFrames.size()};
        // Whether it times out is decided a little later than this.
        mLog.watchTimeout(offer.ageMs + 1 >= limitMs);
        mCaptures.book().beginTry(capture, std::move(offer));
    }

    void endTry() {
        mCaptures.book().endTry(mLog.takeTimedOutFrames());
        mLog.watchTimeout(false);
    }

    void tellResult(device::ResultCall const& call) {
        auto const result = mScript.buffers.result(call);
        mRecorder->onFrameUpdated(call.requestNo, result);
        std::optional<int64_t> reportedNs;
        for (auto const& buffer : result.outputAppMetas) {
            reportedNs = reportedNs ? reportedNs : pipeline::readSensorTimestamp(buffer);
        }
        mCaptures.tellResult(call, reportedNs);
    }

    void tellListener(size_t operation, size_t operations) {
        if (mListener.progress) {
            mListener.progress(operation + 1, operations);
        }
        mListener.addOccupancy(mRecording.operations[operation].begun.bootNs, mOffered);
    }

    /// What the processor still has comes back, so that the ledger shows what is missing.
    void letGo(ReplayResult& result) {
        mScript.begin(mRecording.operations.size());
        mCaptures.finish();
        model::ZslFrameBuilders const pending = mRecorder->flush();
        host::BufferLedger const& ledger = mScript.buffers.ledger();
        result.ledger = ledger.totals();
        result.unsettled = ledger.unsettled();
        result.longestHeldNs = ledger.longestHeldNs();
        for (std::string const& lock : host::MetaStreamBuffer::outstandingLocks()) {
            result.failures.push_back(fmt::format("a metadata lock is held: {}", lock));
        }
    }

    device::DeviceRecording const& mRecording;
    AssumedInstants const& mInstants;
    ReplayListener const& mListener;
    std::vector<size_t> const mServingOperations;  ///< by capture
    MemoryFile const mFile;
    platform::VirtualClock mClock;
    pipeline::ProcessorLog mLog;
    host::DeviceRegistration const mDevice;
    DeviceScript mScript;
    DeviceCaptures mCaptures;
    android::sp<ShutterListener> mShutters;  ///< the device's callback, while it lived
    pipeline::Occupancy mOffered;
    android::sp<model::ZslRecorder> const mRecorder;  ///< around the processor; goes first
};

}  // namespace

DeviceRunResult runDevice(device::DeviceRecording const& recording, AssumedInstants const& instants,
                          size_t operations, uint32_t logLevel, ReplayListener const& listener) {
    return DeviceRun(recording, instants, logLevel, listener).run(operations);
}

}  // namespace zebcam::tool::run
