#include "run/DeviceRun.h"

#include <IZslProcessor.h>
#include <fmt/format.h>
#include <host/DeviceRegistration.h>
#include <host/LogCapture.h>
#include <metadata/MetadataTags.h>

#include <algorithm>
#include <exception>
#include <memory>
#include <stdexcept>
#include <unordered_map>
#include <utility>

#include "base/InputError.h"
#include "pipeline/MetadataAccess.h"
#include "pipeline/ProcessorLog.h"
#include "run/DeviceCaptures.h"
#include "run/DeviceComparison.h"
#include "run/DeviceFacts.h"
#include "run/DeviceParams.h"
#include "run/DeviceScript.h"
#include "run/ScriptedParts.h"

namespace zebcam::tool::run {

namespace v3 = NSCam::v3;
namespace model = NSCam::v3::pipeline::model;
using NSCam::IMetadata;
using NSCam::v3::pipeline::IPipelineBufferSetFrameControl;
using NSCam::v3::pipeline::policy::ParsedStreamInfoMap_P1;

namespace {

IMetadata deviceFacts(device::DeviceRecording const& recording) {
    IMetadata facts;
    pipeline::put(facts, NSCam::ZEB_SENSOR_INFO_TIMESTAMP_SOURCE, recording.timestampSource);
    return facts;
}

platform::VirtualClock::Start startOf(record::ClockReading const& reading) {
    return {
        .bootTimeNs = reading.bootNs, .monotonicNs = reading.monotonicNs, .wallNs = reading.wallNs};
}

/// Hears the early shutters, and throws where the device's application did.
class ShutterListener final : public IPipelineBufferSetFrameControl::IAppCallback {
public:
    ShutterListener(DeviceScript& script, DeviceCaptures& captures)
        : mScript(script), mCaptures(captures) {}

    void updateFrame(Result const& result) override {
        for (auto const& buffer : result.outputAppMetas) {
            mCaptures.setEarlyShutter(result.requestNo, pipeline::readSensorTimestamp(buffer));
        }
        if (auto const& failure = mScript.operation().callbackFailure) {
            throw std::runtime_error(*failure);
        }
    }

private:
    DeviceScript& mScript;
    DeviceCaptures& mCaptures;
};

/// Drives the processor through a recording.
class DeviceRun {
public:
    DeviceRun(device::DeviceRecording const& recording, AssumedInstants const& instants,
              uint32_t logLevel, ReplayListener const& listener)
        : mRecording(recording),
          mInstants(instants),
          mListener(listener),
          mFrames(sensorFramesOf(recording)),
          mStartNs(mFrames.frames.empty() ? recording.begun.bootNs
                                          : mFrames.frames.front().timestampNs),
          mServingOperations(servingOperations(recording)),
          mClock(startOf(recording.begun)),
          mLog(logLevel, logSink()),
          mDevice(static_cast<int32_t>(recording.openId), deviceFacts(recording)),
          mScript(recording, mClock),
          mCaptures(recording),
          mComparison(recording),
          mProcessor(model::IZslProcessor::createInstance(static_cast<int32_t>(recording.openId),
                                                          "DeviceReplay")) {
        if (mProcessor == nullptr) {
            throw base::InputError("the processor cannot be made");
        }
    }

    DeviceReplayResult run() {
        for (size_t i = 0; i < mRecording.operations.size(); ++i) {
            carryOut(i);
            tellListener(i);
        }
        DeviceReplayResult result = finishResult();
        letGo(result.replay);
        return result;
    }

    DeviceAgreement runToADifference() {
        for (size_t i = 0; i < mRecording.operations.size() && mComparison.isSame(); ++i) {
            carryOut(i);
        }
        ReplayResult unused;
        letGo(unused);
        return mComparison.agreement();
    }

private:
    using Lists = model::ZslFrameBuilders;

    void carryOut(size_t operation) {
        mScript.begin(operation);
        mComparison.add(mScript, carryOut(mRecording.operations[operation]));
    }

    pipeline::ProcessorLog::Sink logSink() {
        if (!mListener.log) {
            return {};
        }
        return [this](host::LogLine const& line) {
            mListener.log(mClock.bootTimeNs() - mStartNs, line);
        };
    }

    device::DeviceOutcome carryOut(device::DeviceOperation const& operation) {
        device::DeviceOutcome outcome;
        try {
            std::visit([&](auto const& call) { carryOut(operation, call, outcome); },
                       operation.call);
        } catch (std::exception const& error) {
            outcome = {};
            outcome.failure = error.what();
        }
        return outcome;
    }

    void carryOut(device::DeviceOperation const&, device::ConfigureCall const& call,
                  device::DeviceOutcome& outcome) {
        ParsedStreamInfoMap_P1 const sensors = sensorsOf(
            mScript.buffers.streams(), call.sensors.value_or(std::vector<device::DeviceSensor>()));
        android::sp<ShutterListener> const shutters =
            call.hasCallback ? new ShutterListener(mScript, mCaptures) : nullptr;
        outcome.status = mProcessor->configure(
            {.pParsedStreamInfo_P1 = call.sensors ? &sensors : nullptr, .pCallback = shutters});
        if (outcome.status == 0) {
            mShutters = shutters;
        }
    }

    void carryOut(device::DeviceOperation const& operation, device::SubmitCall const& call,
                  device::DeviceOutcome& outcome) {
        if (!call.callbackLives) {
            mShutters = nullptr;
        }
        size_t const capture = mCaptures.open(
            mScript, call,
            submissionOf(mRecording, operation, mServingOperations.at(mSubmissions++)));
        record::ClockReading& assumed = mCaptures.at(capture).submission.assumed;
        if (auto const found = mInstants.find(capture); found != mInstants.end()) {
            assumed = found->second;
        }
        mScript.set(assumed);
        std::unordered_map<uint32_t, uint32_t> const modes(call.sensorModes.begin(),
                                                           call.sensorModes.end());
        model::ZslRequestParams params = requestOf(capture, call);
        params.pStreamIdMap = &modes;
        params.pvRequiredSensorIds = &call.requiredSensors;
        take(operation, mProcessor->submitZslRequest(std::move(params)), outcome);
    }

    model::ZslRequestParams requestOf(size_t position, device::SubmitCall const& call) {
        DeviceCaptures::Capture& capture = mCaptures.at(position);
        model::ZslRequestParams params;
        params.requestNo = call.requestNo;
        params.checkPureRaw = call.checksPureRaw;
        params.needFrameSync = call.needsFrameSync;
        if (call.policy) {
            params.pPolicyParams =
                std::make_shared<NSCam::ZslPolicy::ZslPolicyParams>(*call.policy);
        }
        if (call.hasSelector) {
            params.pSelector = std::make_shared<ScriptedSelector>(mScript, call);
        }
        if (call.provider) {
            params.pHistoryBufferProvider = std::make_shared<ScriptedProvider>(
                mScript, *call.provider, capture.submission,
                ScriptedProvider::Observer{
                    .begin = [this, position](
                                 device::DeviceTry const* attempt) { beginTry(position, attempt); },
                    .end = [this] { endTry(); }});
        }
        for (device::RequestedFrame const& frame : call.frames) {
            auto& required = params.vReqResult.emplace_back();
            if (frame.required) {
                required = std::make_shared<v3::pipeline::policy::RequestResultParams>();
                required->required = *frame.required;
            }
        }
        params.vFrameBuilder.assign(capture.builders.begin(), capture.builders.end());
        return params;
    }

    void beginTry(size_t capture, device::DeviceTry const* attempt) {
        record::ClockReading const now =
            attempt != nullptr ? attempt->offered : mScript.operation().begun;
        pipeline::TryRecord entry;
        entry.timeNs = now.bootNs;
        entry.ageMs = mCaptures.ageMs(capture, now);
        for (host::LedgerLine const& line : mScript.buffers.ledger()->unsettled()) {
            if (line.holder == host::BufferHolder::Processor) {
                entry.lockedFrames.push_back(line.frameNo);
            }
        }
        if (attempt != nullptr) {
            entry.inFlightFrames = attempt->inFlight;
            for (size_t const frame : attempt->frames.value_or(std::vector<size_t>())) {
                entry.historyFrames.push_back(mRecording.frames.at(frame).frameNo);
            }
        }
        mOffered = {entry.historyFrames.size(), entry.inFlightFrames.size(),
                    entry.lockedFrames.size()};
        // Whether it times out is decided a little later than this.
        mLog.watchTimeout(entry.ageMs + 1 >= mCaptures.timeoutMs(capture));
        mCaptures.beginTry(capture, std::move(entry));
    }

    void endTry() {
        mCaptures.endTry(mLog.takeTimedOutFrames());
        mLog.watchTimeout(false);
    }

    void carryOut(device::DeviceOperation const& operation, device::RetryCall const& call,
                  device::DeviceOutcome& outcome) {
        take(operation, mProcessor->processZslPendingRequest(call.requestNo), outcome);
    }

    void carryOut(device::DeviceOperation const& operation, device::FlushCall const&,
                  device::DeviceOutcome& outcome) {
        take(operation, mProcessor->flush(), outcome);
    }

    void take(device::DeviceOperation const& operation, Lists const& lists,
              device::DeviceOutcome& outcome) {
        for (auto const& list : lists) {
            auto& numbers = outcome.builders.emplace_back();
            for (auto const& builder : list) {
                auto const* const own = dynamic_cast<ScriptedBuilder const*>(builder.get());
                numbers.push_back(own != nullptr ? own->number() + 1 : 0);
            }
        }
        mCaptures.answer(lists, operation.kind == record::Operation::FLUSH, operation.ended.bootNs);
    }

    void carryOut(device::DeviceOperation const& operation, device::ResultCall const& call,
                  device::DeviceOutcome& outcome) {
        auto const result = resultOf(mScript.buffers.streams(), call);
        mProcessor->onFrameUpdated(call.requestNo, result);
        std::optional<int64_t> reportedNs;
        for (auto const& buffer : result.outputAppMetas) {
            auto const left = pipeline::readSensorTimestamp(buffer);
            outcome.timestampsLeft.push_back(left.has_value());
            reportedNs = reportedNs ? reportedNs : left;
        }
        mCaptures.setResult(call, operation.begun.bootNs, reportedNs);
    }

    void tellListener(size_t operation) {
        if (mListener.progress) {
            mListener.progress(operation + 1, mRecording.operations.size());
        }
        if (mListener.occupancy) {
            mListener.occupancy(mRecording.operations[operation].begun.bootNs, mOffered);
        }
    }

    DeviceReplayResult finishResult() {
        DeviceReplayResult result;
        ReplayResult& replay = result.replay;
        replay.device = DeviceVerdict{.operations = mRecording.operations.size(),
                                      .builtFrames = mComparison.frames(),
                                      .sameFrames = mComparison.sameFrames(),
                                      .operationsThatDiffer = mComparison.operationsThatDiffer(),
                                      .differences = mComparison.differences()};
        replay.path = mRecording.path;
        replay.notes = mRecording.notes;
        replay.notes.emplace_back(
            "the frames are those that the history offered when captures were tried: a gap may be "
            "a time without captures");
        replay.facts = recording::computeFacts(mFrames);
        replay.firstTimestampNs = mStartNs;
        replay.options = optionsOf(mRecording);
        replay.offsetMs = offsetMsOf(mRecording);
        replay.captures = mCaptures.records();
        replay.summary = summarize(replay.captures);
        replay.errorLines = mLog.errorLines();
        result.frames = std::move(mFrames);
        return result;
    }

    /// What the processor still has comes back, so that the ledger shows what is missing.
    void letGo(ReplayResult& result) {
        mScript.begin(mRecording.operations.size());
        mCaptures.finishFrames();
        Lists const pending = mProcessor->flush();
        auto const& ledger = *mScript.buffers.ledger();
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
    recording::Recording mFrames;
    int64_t const mStartNs;
    std::vector<size_t> const mServingOperations;  ///< by capture
    platform::VirtualClock mClock;
    pipeline::ProcessorLog mLog;
    host::DeviceRegistration const mDevice;
    DeviceScript mScript;
    DeviceCaptures mCaptures;
    DeviceComparison mComparison;
    android::sp<ShutterListener> mShutters;  ///< the device's callback, while it lived
    size_t mSubmissions = 0;
    pipeline::Occupancy mOffered;
    android::sp<model::IZslProcessor> mProcessor;  ///< goes first
};

}  // namespace

DeviceReplayResult runDevice(device::DeviceRecording const& recording,
                             AssumedInstants const& instants, uint32_t logLevel,
                             ReplayListener const& listener) {
    return DeviceRun(recording, instants, logLevel, listener).run();
}

DeviceAgreement agreementOf(device::DeviceRecording const& recording,
                            AssumedInstants const& instants) {
    return DeviceRun(recording, instants, 0, {}).runToADifference();
}

}  // namespace zebcam::tool::run
