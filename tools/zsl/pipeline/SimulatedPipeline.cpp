#include "pipeline/SimulatedPipeline.h"

#include <fmt/format.h>
#include <host/Debuggees.h>
#include <metadata/MetadataTags.h>

#include <algorithm>
#include <cctype>
#include <exception>
#include <iterator>
#include <sstream>
#include <type_traits>
#include <unordered_map>
#include <utility>

#include "base/InputError.h"
#include "base/Text.h"
#include "pipeline/MetadataAccess.h"
#include "pipeline/PolicyWatch.h"

namespace zebcam::tool::pipeline {

namespace v3 = NSCam::v3;
namespace model = NSCam::v3::pipeline::model;
using NSCam::IMetadata;
using NSCam::v3::pipeline::IPipelineBufferSetFrameControl;
using NSCam::ZslPolicy::ISelector;

namespace {

constexpr int32_t kOpenId = 0;
constexpr char kUser[] = "zsl";
constexpr uint8_t kTimestampsAreBootTime = 1;

IMetadata deviceFacts() {
    IMetadata facts;
    put(facts, NSCam::ZEB_SENSOR_INFO_TIMESTAMP_SOURCE, kTimestampsAreBootTime);
    return facts;
}

/// A policy of the user's, who wants to hear what it throws: the processor logs that and takes it
/// for an empty answer.
class ToldSelector final : public ISelector {
public:
    using Tell = std::function<void(char const* thrown)>;
    ToldSelector(std::shared_ptr<ISelector> policy, Tell tell)
        : mPolicy(std::move(policy)), mTell(std::move(tell)) {}

    char const* getName() const override {
        PolicyQuestion const question("getName()");
        return told([&] { return mPolicy->getName(); });
    }
    SelectOutputParams select(SelectInputParams const& in) const override {
        PolicyQuestion const question("select()", in.requestNo);
        return told([&] { return mPolicy->select(in); });
    }

private:
    template <typename Call>
    std::invoke_result_t<Call const&> told(Call const& call) const {
        try {
            return call();
        } catch (std::exception const& thrown) {
            mTell(thrown.what());
            throw;
        } catch (...) {
            mTell("unknown exception");
            throw;
        }
    }

    std::shared_ptr<ISelector> const mPolicy;
    Tell const mTell;
};

}  // namespace

/// Hears the early shutters.
class SimulatedPipeline::ShutterListener final
    : public IPipelineBufferSetFrameControl::IAppCallback {
public:
    explicit ShutterListener(CaptureBook& book) : mBook(book) {}

    void updateFrame(Result const& result) override {
        for (auto const& buffer : result.outputAppMetas) {
            mBook.setEarlyShutter(result.requestNo, readSensorTimestamp(buffer));
        }
    }

private:
    CaptureBook& mBook;
};

SimulatedPipeline::SimulatedPipeline(PipelineOptions options)
    : mOptions(std::move(options)),
      mLog(mOptions.logLevel, mOptions.logSink),
      mDevice(kOpenId, deviceFacts()),
      mProvider(std::make_shared<host::HistoryProvider>(mOptions.history)),
      mBook(mOptions.tries),
      mListener(new ShutterListener(mBook)),
      mProcessor(model::IZslProcessor::createInstance(kOpenId, kUser)) {
    if (mProcessor == nullptr) {
        throw base::InputError("the processor cannot be made");
    }
    if (mOptions.wrap) {
        mProcessor = mOptions.wrap(mProcessor);
    }
    auto const streams = mFactory.streams().describe(0);
    int status = 0;
    try {
        status = mProcessor->configure({.pParsedStreamInfo_P1 = &streams, .pCallback = mListener});
    } catch (std::exception const& error) {
        throw base::InputError(fmt::format("the processor cannot be configured: {}", error.what()));
    }
    if (status != 0) {
        throw base::InputError(
            fmt::format("the processor cannot be configured: status {}", status));
    }
}

SimulatedPipeline::~SimulatedPipeline() = default;

void SimulatedPipeline::announce(ReportedFrame const& reported) {
    if (mOptions.faults != nullptr) {
        // Here, because the schedule has frames that a run which ends early never starts on.
        mOptions.faults->count(reported.faults);
    }
    mProvider->announce(reported.frame.frameNo);
}

std::vector<BuiltFrame> SimulatedPipeline::arrive(ReportedFrame const& reported) {
    auto set = mFactory.sensorFrame(
        reported.frame, mOptions.contentOf ? mOptions.contentOf(reported.frame) : nullptr);
    if (reported.faults.has(FaultKind::LockedMetadata)) {
        LockGuard const lock(mLock);
        for (auto const* buffers : {&set.halMeta, &set.appMeta}) {
            for (auto const& buffer : *buffers) {
                // Noted before the history has the frame. The factory's buffers are all the host's.
                mHeldMetadata.emplace_back(static_cast<host::MetaStreamBuffer*>(buffer.get()));
            }
        }
    }
    mProvider->arrive(std::move(set));
    return collect("retry", false,
                   [&] { return mProcessor->processZslPendingRequest(reported.frame.frameNo); });
}

std::vector<BuiltFrame> SimulatedPipeline::submit(size_t frames,
                                                  std::map<uint32_t, uint32_t> const& sensorModes) {
    bool const isGone = isListenerGone();
    // Booked before it is submitted: its first try comes while the call is under way.
    size_t const capture = mBook.open(sensorModes, frames);
    if (isGone) {
        mBook.addFault(capture, FaultKind::CallbackGone);
    }
    std::unordered_map<uint32_t, uint32_t> const modes(sensorModes.begin(), sensorModes.end());
    std::vector<uint32_t> sensors;
    sensors.reserve(sensorModes.size());
    for (auto const& [sensor, mode] : sensorModes) {
        sensors.push_back(sensor);
    }
    model::ZslRequestParams params = requestOf(capture, frames);
    params.pStreamIdMap = &modes;
    params.pvRequiredSensorIds = &sensors;
    return collect("capture", false,
                   [&] { return mProcessor->submitZslRequest(std::move(params)); });
}

std::vector<BuiltFrame> SimulatedPipeline::flush(bool isFault) {
    std::vector<BuiltFrame> built = collect("flush", true, [&] { return mProcessor->flush(); });
    for (BuiltFrame const& frame : built) {
        if (isFault) {
            mBook.addFault(frame.capture, FaultKind::Flush);
        }
    }
    return built;
}

model::ZslRequestParams SimulatedPipeline::requestOf(size_t capture, size_t frames) {
    model::ZslRequestParams params;
    params.requestNo = mBook.requestNoOf(capture);
    params.pPolicyParams = mOptions.pPolicy;
    params.pSelector = selectorOf(capture);
    params.needFrameSync = mOptions.frameSync;
    params.pHistoryBufferProvider = providerOf(capture);
    auto const settings = std::make_shared<v3::pipeline::policy::RequestResultParams>();
    settings->required = mFactory.streams().required();
    params.vReqResult.assign(frames, settings);
    CaptureBook::Builders builders;
    for (size_t index = 0; index < frames; ++index) {
        builders.push_back(mFactory.captureFrame(params.requestNo, index));
    }
    params.vFrameBuilder.assign(builders.begin(), builders.end());
    mBook.setBuilders(capture, builders);
    return params;
}

std::shared_ptr<v3::pipeline::NSPipelineContext::IHistoryBufferProvider>
SimulatedPipeline::providerOf(size_t capture) {
    ObservedProvider::Observer observer;
    observer.begin = [this, capture](TryRecord offer) { beginTry(capture, std::move(offer)); };
    observer.end = [this] { endTry(); };
    observer.pause = [this, capture](int64_t ns) {
        if (mOptions.pause) {
            mOptions.pause(ns);
        }
        watchTimeout(capture);
    };
    if (mOptions.faults != nullptr) {
        observer.faults = [this, capture] {
            return mOptions.faults->ofTry(capture, mBook.triesOf(capture), nowNs());
        };
    }
    return std::make_shared<ObservedProvider>(mProvider, mBook.requestNoOf(capture),
                                              std::move(observer));
}

std::shared_ptr<ISelector> SimulatedPipeline::selectorOf(size_t capture) {
    std::optional<FaultKind> const fault =
        mOptions.faults != nullptr ? mOptions.faults->ofPolicy(capture, nowNs()) : std::nullopt;
    if (fault) {
        mBook.addFault(capture, *fault);
        return makeFaultySelector(*fault, capture, mOptions.faults);
    }
    return mOptions.pSelector == nullptr
               ? nullptr
               : std::make_shared<ToldSelector>(mOptions.pSelector, [this](char const* thrown) {
                     fail(fmt::format("policy: exception: {}", thrown));
                 });
}

// Only a submission tells the listener of anything, so that this is early enough.
bool SimulatedPipeline::isListenerGone() {
    if (mOptions.faults == nullptr || !mOptions.faults->isCallbackGone(nowNs())) {
        return false;
    }
    LockGuard const lock(mLock);
    if (mListener != nullptr) {
        mListener = nullptr;
        mOptions.faults->count(FaultKind::CallbackGone);
    }
    return true;
}

void SimulatedPipeline::beginTry(size_t capture, TryRecord offer) {
    setMetadataLockable(false);
    // Only now the try before is whole.
    foldRepeat(capture);
    if (skipRepeat(capture, offer)) {
        return;
    }
    offer.ageMs = mBook.ageMs(capture);
    mBook.beginTry(capture, std::move(offer));
    watchTimeout(capture);
}

void SimulatedPipeline::foldRepeat(size_t capture) {
    CaptureBook::Repeat const repeat = mBook.repeatOf(capture);
    bool const isUnlike = repeat == CaptureBook::Repeat::Unlike;
    if (repeat != CaptureBook::Repeat::None &&
        (!mOptions.isRepeat || mOptions.isRepeat(mBook.requestNoOf(capture), isUnlike))) {
        mBook.foldRepeat(capture, repeat);
    }
}

/// A built-in policy decides by what it is offered alone. With captures that wait, nearly all tries
/// are such repeats, and their lines would take most of a replay's time.
bool SimulatedPipeline::skipRepeat(size_t capture, TryRecord const& offer) {
    bool const mayDifferBy = mOptions.pSelector != nullptr || mOptions.faults != nullptr;
    bool const isSkipped = mOptions.skipRepeat && !mayDifferBy && !maySoonTimeOut(capture) &&
                           mBook.addRepeat(capture, offer);
    if (isSkipped) {
        mOptions.skipRepeat(mBook.requestNoOf(capture), mBook.ageMs(capture));
        // The next one is younger, so that it times out no sooner. Its first line comes before
        // anything tells of it, and is wanted if it is no repeat.
        mLog.setQuiet(mBook.isNextRepeat(capture, offer) ? ProcessorLog::Quiet::On
                                                         : ProcessorLog::Quiet::ThisTry);
    } else {
        mLog.setQuiet(ProcessorLog::Quiet::Off);
    }
    return isSkipped;
}

// The processor looks at the age once the policy has answered, which takes its time.
bool SimulatedPipeline::maySoonTimeOut(size_t capture) const {
    constexpr int64_t kPolicyMs = 20;
    return mBook.ageMs(capture) + kPolicyMs >= mOptions.timeoutMs;
}

void SimulatedPipeline::watchTimeout(size_t capture) {
    mLog.watchTimeout(maySoonTimeOut(capture));
}

void SimulatedPipeline::setMetadataLockable(bool isLockable) {
    // Strong for a moment, and destroyed after the lock where they turn out to be the last: that
    // ends a hand-out, which the ledger books under its own.
    std::vector<android::sp<host::MetaStreamBuffer>> alive;
    LockGuard const lock(mLock);
    std::erase_if(mHeldMetadata, [&](android::wp<host::MetaStreamBuffer> const& buffer) {
        alive.push_back(buffer.promote());
        return alive.back() == nullptr;
    });
    for (auto const& buffer : alive) {
        if (buffer != nullptr) {
            buffer->setLockable(isLockable);
        }
    }
}

void SimulatedPipeline::endTry() {
    // Before the frames are built: the processor waits for ever on the result of a frame that it
    // must build with and cannot lock.
    setMetadataLockable(true);
    mBook.endTry(mLog.takeTimedOutFrames());
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
    // The processor serves any capture in any call, so that the answers are booked by the tries
    // that this thread has seen, not by what was called.
    CaptureBook::Operation operation(mBook);
    model::ZslFrameBuilders lists;
    guard(what, [&] { lists = call(); });
    if (mOptions.skipRepeat) {
        mLog.setQuiet(ProcessorLog::Quiet::Off);
    }
    std::vector<std::string> problems;
    std::vector<BuiltFrame> built = operation.take(lists, isFlush, problems);
    for (std::string& problem : problems) {
        fail(std::move(problem));
    }
    return built;
}

void SimulatedPipeline::finish(BuiltFrame const& frame) {
    size_t const unfinished = mBook.beginResult(frame);
    IPipelineBufferSetFrameControl::IAppCallback::Result result;
    result.requestNo = mBook.requestNoOf(frame.capture);
    result.nAppOutMetaLeft = static_cast<uint32_t>(unfinished);
    result.isFrameEnd = unfinished == 0;
    android::sp<v3::IMetaStreamBuffer> const buffer = resultOf(frame);
    if (buffer != nullptr) {
        result.outputAppMetas.push_back(buffer);
    }
    guard("result", [&] { mProcessor->onFrameUpdated(result.requestNo, result); });
    // After the processor, which takes the timestamp away where the early shutter has told it.
    mBook.endResult(frame, readSensorTimestamp(buffer));
    frame.builder->finish();
}

android::sp<v3::IMetaStreamBuffer> SimulatedPipeline::resultOf(BuiltFrame const& frame) const {
    if (frame.builder->builtFromHistory().value_or(false)) {
        return frame.builder->appMeta(mFactory.streams().pAppResult->getStreamId());
    }
    // An ordinary capture is exposed now; its result has nothing but the time.
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

std::vector<std::string> SimulatedPipeline::failures(int64_t startNs) const {
    std::vector<std::string> failures;
    auto const add = [&](int64_t timeNs, std::string const& text) {
        failures.push_back(fmt::format("at {} s: {}", base::formatSeconds(timeNs - startNs), text));
    };
    {
        LockGuard const lock(mLock);
        std::vector<Failure> kinds;
        for (auto const& [kind, failure] : mFailures) {
            kinds.push_back(failure);
        }
        std::stable_sort(kinds.begin(), kinds.end(),
                         [](Failure const& a, Failure const& b) { return a.firstNs < b.firstNs; });
        for (Failure const& failure : kinds) {
            if (failure.count == 1) {
                add(failure.firstNs, failure.text);
            } else {
                failures.push_back(fmt::format("{} times, from {} to {} s: {}", failure.count,
                                               base::formatSeconds(failure.firstNs - startNs),
                                               base::formatSeconds(failure.lastNs - startNs),
                                               failure.text));
            }
        }
    }
    if (uint64_t const strays = mProvider->strayReturns(); strays > 0) {
        add(nowNs(), fmt::format("{} buffer sets came back that were not out", strays));
    }
    // Asked at the end only, when nobody is inside the processor who may hold one rightly.
    for (std::string const& lock : host::MetaStreamBuffer::outstandingLocks()) {
        add(nowNs(), fmt::format("a metadata lock is held: {}", lock));
    }
    return failures;
}

void SimulatedPipeline::fail(std::string text) {
    // Captures and frames have numbers, by which the failures of one kind differ.
    std::string kind;
    std::copy_if(text.begin(), text.end(), std::back_inserter(kind),
                 [](unsigned char c) { return std::isdigit(c) == 0; });
    int64_t const timeNs = nowNs();
    LockGuard const lock(mLock);
    Failure& failure =
        mFailures.try_emplace(kind, Failure{std::move(text), 0, timeNs, 0}).first->second;
    ++failure.count;
    failure.lastNs = timeNs;
}

}  // namespace zebcam::tool::pipeline
