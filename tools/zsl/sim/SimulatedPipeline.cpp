#include "sim/SimulatedPipeline.h"

#include <fmt/format.h>
#include <host/MetaStreamBuffer.h>
#include <metadata/MetadataTags.h>
#include <utils/Timers.h>

#include <algorithm>
#include <exception>
#include <functional>
#include <sstream>
#include <utility>

#include "sim/InputError.h"
#include "sim/MetadataWriter.h"
#include "sim/ObservedProvider.h"

namespace zebcam::tool {

namespace v3 = NSCam::v3;
namespace model = NSCam::v3::pipeline::model;
using NSCam::IMetadata;
using NSCam::v3::pipeline::IPipelineBufferSetFrameControl;

namespace {

constexpr int32_t kOpenId = 0;
constexpr char kUser[] = "zsl";
constexpr int64_t kNsPerMs = 1'000'000;
constexpr uint8_t kTimestampsAreBootTime = 1;

int64_t nowNs() {
    return systemTime(SYSTEM_TIME_BOOTTIME);
}

IMetadata deviceFacts() {
    IMetadata facts;
    put(facts, NSCam::ZEB_SENSOR_INFO_TIMESTAMP_SOURCE, kTimestampsAreBootTime);
    return facts;
}

template <typename Answer>
Answer readMetadata(android::sp<v3::IMetaStreamBuffer> const& buffer,
                    Answer (*read)(IMetadata const&)) {
    IMetadata* const metadata = buffer != nullptr ? buffer->tryReadLock(kUser) : nullptr;
    if (metadata == nullptr) {
        return {};
    }
    Answer answer = read(*metadata);
    buffer->unlock(kUser, metadata);
    return answer;
}

std::optional<int64_t> timestampIn(IMetadata const& metadata) {
    return itemOf<int64_t>(metadata, NSCam::ZEB_SENSOR_TIMESTAMP);
}

}  // namespace

/// Hears the early shutters.
class SimulatedPipeline::ShutterListener final
    : public IPipelineBufferSetFrameControl::IAppCallback {
public:
    explicit ShutterListener(std::deque<CaptureRecord>& captures) : mCaptures(captures) {}

    void updateFrame(Result const& result) override {
        CaptureRecord& capture = mCaptures.at(result.requestNo - 1);
        for (auto const& buffer : result.outputAppMetas) {
            capture.earlyShutterNs = readMetadata(buffer, timestampIn);
        }
    }

private:
    std::deque<CaptureRecord>& mCaptures;
};

/// The working side of a capture.
struct SimulatedPipeline::Capture {
    std::vector<std::shared_ptr<host::FrameBuilder>> builders;
    size_t timedOutFrames = 0;  ///< served because of the time-out, but not yet returned
    size_t unfinished = 0;      ///< frames whose result is still to come
};

SimulatedPipeline::SimulatedPipeline(PipelineOptions options)
    : mOptions(std::move(options)),
      mLog(mOptions.logLevel, mOptions.logSink),
      mDevice(kOpenId, deviceFacts()),
      mProvider(std::make_shared<host::HistoryProvider>(mOptions.history)),
      mListener(new ShutterListener(mRecords)),
      mProcessor(model::IZslProcessor::createInstance(kOpenId, kUser)) {
    if (mProcessor == nullptr) {
        throw InputError("the processor cannot be made");
    }
    auto const streams = mFactory.streams().describe(0);
    int status = 0;
    try {
        status = mProcessor->configure({.pParsedStreamInfo_P1 = &streams, .pCallback = mListener});
    } catch (std::exception const& error) {
        throw InputError(fmt::format("the processor cannot be configured: {}", error.what()));
    }
    if (status != 0) {
        throw InputError(fmt::format("the processor cannot be configured: status {}", status));
    }
}

SimulatedPipeline::~SimulatedPipeline() = default;

std::vector<BuiltFrame> SimulatedPipeline::arrive(SensorFrame const& frame) {
    mProvider->arrive(mFactory.sensorFrame(frame));
    return collect("retry", false,
                   [&] { return mProcessor->processZslPendingRequest(frame.frameNo); });
}

std::vector<BuiltFrame> SimulatedPipeline::submit(CaptureOrder const& order) {
    size_t const capture = mRecords.size();
    CaptureRecord& record = mRecords.emplace_back();
    record.requestNo = static_cast<uint32_t>(capture + 1);
    record.pressNs = nowNs();
    record.sensorModes = order.sensorModes;
    record.frames.resize(order.frames);
    mCaptures.emplace_back().unfinished = order.frames;

    std::unordered_map<uint32_t, uint32_t> const modes(order.sensorModes.begin(),
                                                       order.sensorModes.end());
    std::vector<uint32_t> sensors;
    for (auto const& [sensor, mode] : order.sensorModes) {
        sensors.push_back(sensor);
    }
    model::ZslRequestParams params = requestOf(capture, order);
    params.pStreamIdMap = &modes;
    params.pvRequiredSensorIds = &sensors;
    return collect("capture", false,
                   [&] { return mProcessor->submitZslRequest(std::move(params)); });
}

std::vector<BuiltFrame> SimulatedPipeline::flush() {
    return collect("flush", true, [&] { return mProcessor->flush(); });
}

model::ZslRequestParams SimulatedPipeline::requestOf(size_t capture, CaptureOrder const& order) {
    model::ZslRequestParams params;
    params.requestNo = mRecords[capture].requestNo;
    params.pPolicyParams = mOptions.pPolicy;
    params.pSelector = mOptions.pSelector;
    params.needFrameSync = mOptions.frameSync;
    params.pHistoryBufferProvider = std::make_shared<ObservedProvider>(
        mProvider, params.requestNo,
        [this, capture](Offer offer) { beginTry(capture, std::move(offer)); });
    auto const settings = std::make_shared<v3::pipeline::policy::RequestResultParams>();
    settings->required = mFactory.streams().required();
    params.vReqResult.assign(order.frames, settings);
    for (size_t index = 0; index < order.frames; ++index) {
        mCaptures[capture].builders.push_back(mFactory.captureFrame(params.requestNo, index));
    }
    params.vFrameBuilder.assign(mCaptures[capture].builders.begin(),
                                mCaptures[capture].builders.end());
    return params;
}

void SimulatedPipeline::beginTry(size_t capture, Offer offer) {
    endTry();
    mTried = capture;
    CaptureRecord& record = mRecords[capture];
    TryRecord attempt;
    attempt.timeNs = nowNs();
    attempt.ageMs = (attempt.timeNs - record.pressNs) / kNsPerMs;
    attempt.isRetry = !record.tries.empty();
    attempt.historyFrames = std::move(offer.history);
    attempt.inFlightFrames = std::move(offer.inFlight);
    attempt.lockedFrames = std::move(offer.locked);
    mLog.watchTimeout(attempt.ageMs >= mOptions.timeoutMs);
    record.tries.push_back(std::move(attempt));
}

void SimulatedPipeline::endTry() {
    if (size_t const timedOut = mLog.takeTimedOutFrames(); timedOut > 0) {
        mCaptures[mTried].timedOutFrames += timedOut;
    }
    mLog.watchTimeout(false);
}

template <typename Call>
void SimulatedPipeline::guard(char const* what, Call call) {
    try {
        call();
    } catch (std::exception const& error) {
        fail(fmt::format("{}: exception: {}", what, error.what()));
    } catch (...) {
        fail(fmt::format("{}: exception", what));
    }
}

template <typename Call>
std::vector<BuiltFrame> SimulatedPipeline::collect(char const* what, bool isFlush, Call call) {
    FrameBuilders lists;
    guard(what, [&] { lists = call(); });
    endTry();
    std::vector<BuiltFrame> built;
    for (auto const& list : lists) {
        take(list, isFlush, built);
    }
    return built;
}

void SimulatedPipeline::take(FrameBuilders::value_type const& list, bool isFlush,
                             std::vector<BuiltFrame>& out) {
    for (size_t i = 0; i < list.size(); ++i) {
        auto const builder = std::dynamic_pointer_cast<host::FrameBuilder>(list[i]);
        size_t const capture = builder != nullptr ? builder->requestNo() - 1 : mCaptures.size();
        if (capture >= mCaptures.size()) {
            fail("a frame came back that nobody asked for");
            continue;
        }
        auto const& builders = mCaptures[capture].builders;
        auto const found = std::find(builders.begin(), builders.end(), builder);
        BuiltFrame const frame{capture, static_cast<size_t>(found - builders.begin()), builder};
        if (found == builders.end() ||
            mRecords[capture].frames[frame.index].served != Served::Unanswered) {
            fail(fmt::format("a frame of capture {} came back twice", builder->requestNo()));
            continue;
        }
        // The frames that the time-out served come last.
        size_t& timedOut = mCaptures[capture].timedOutFrames;
        if (isFlush) {
            note(frame, Served::Flushed);
        } else if (timedOut > 0 && list.size() - i <= timedOut) {
            --timedOut;
            note(frame, Served::TimedOut);
        } else {
            bool const isRetry = mRecords[capture].tries.size() > 1;
            note(frame, isRetry ? Served::Waited : Served::AtOnce);
        }
        out.push_back(frame);
    }
}

void SimulatedPipeline::note(BuiltFrame const& frame, Served served) {
    CaptureRecord& record = mRecords[frame.capture];
    FrameOutcome& outcome = record.frames[frame.index];
    outcome.served = served;
    outcome.answeredNs = nowNs();
    if (served != Served::Flushed && !record.tries.empty()) {
        outcome.tryIndex = record.tries.size() - 1;
        record.tries.back().builtFrames.push_back(frame.index);
    }
    if (frame.builder->builtFromHistory().value_or(false)) {
        auto const identity = readMetadata(
            frame.builder->appMeta(mFactory.streams().pAppResult->getStreamId()), identityOf);
        outcome.historyFrame = identity.frameNo;
        outcome.timestampNs = identity.timestampNs;
    }
}

void SimulatedPipeline::finish(BuiltFrame const& frame) {
    CaptureRecord& record = mRecords[frame.capture];
    Capture& capture = mCaptures[frame.capture];
    --capture.unfinished;
    IPipelineBufferSetFrameControl::IAppCallback::Result result;
    result.requestNo = record.requestNo;
    result.nAppOutMetaLeft = static_cast<uint32_t>(capture.unfinished);
    result.isFrameEnd = capture.unfinished == 0;
    if (auto const buffer = resultOf(frame); buffer != nullptr) {
        result.outputAppMetas.push_back(buffer);
    }
    guard("result", [&] { mProcessor->onFrameUpdated(record.requestNo, result); });
    FrameOutcome& outcome = record.frames[frame.index];
    outcome.resultNs = nowNs();
    for (auto const& buffer : result.outputAppMetas) {
        outcome.reportedNs = readMetadata(buffer, timestampIn);
    }
    frame.builder->finish();
}

android::sp<v3::IMetaStreamBuffer> SimulatedPipeline::resultOf(BuiltFrame const& frame) const {
    if (frame.builder->builtFromHistory().value_or(false)) {
        return frame.builder->appMeta(mFactory.streams().pAppResult->getStreamId());
    }
    // An ordinary capture is exposed now.
    IMetadata metadata;
    put(metadata, NSCam::ZEB_SENSOR_TIMESTAMP, nowNs());
    return new host::MetaStreamBuffer(mFactory.streams().pAppResult, std::move(metadata));
}

std::vector<std::string> SimulatedPipeline::dump() {
    struct Lines final : android::Printer {
        void printLine(char const* string) override {
            // A printed "line" may hold several.
            std::istringstream text(string);
            for (std::string line; std::getline(text, line);) {
                lines.push_back(line);
            }
        }
        std::vector<std::string> lines;
    };
    Lines printer;
    host::dumpDebuggees(printer);
    return printer.lines;
}

Occupancy SimulatedPipeline::occupancy() const {
    auto const out = mProvider->ledger()->unsettled();
    auto const locked = std::count_if(out.begin(), out.end(), [](host::LedgerLine const& line) {
        return line.holder == host::BufferHolder::Processor;
    });
    return {.history = mProvider->frameNumbers().size(),
            .inFlight = mProvider->getInFlightInfos().size(),
            .locked = static_cast<size_t>(locked)};
}

std::vector<PipelineFailure> SimulatedPipeline::failures() const {
    std::vector<PipelineFailure> failures = mFailures;
    if (uint64_t const strays = mProvider->strayReturns(); strays > 0) {
        failures.push_back(
            {nowNs(), fmt::format("{} buffer sets came back that were not out", strays)});
    }
    for (std::string const& lock : host::MetaStreamBuffer::outstandingLocks()) {
        failures.push_back({nowNs(), fmt::format("a metadata lock is held: {}", lock)});
    }
    return failures;
}

void SimulatedPipeline::fail(std::string text) {
    mFailures.push_back({nowNs(), std::move(text)});
}

}  // namespace zebcam::tool
