#include <ZslRecorder.h>
#include <android/log.h>
#include <zebcam/ThreadSafety.h>

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "OperationEncoding.h"
#include "RecordingProxies.h"
#include "RecordingSession.h"

namespace NSCam::v3::pipeline::model {

namespace record {
namespace {

using NSPipelineContext::IFrameBuilder;

/// Describes each operation, replaces what goes into the processor by what records,
/// and takes the caller's own out of what comes back.
class Recorder final : public ZslRecorder {
public:
    Recorder(android::sp<IZslProcessor> processor, std::shared_ptr<RecordingSession> session)
        : mProcessor(std::move(processor)), mSession(std::move(session)) {}
    ~Recorder() override { Recorder::finish(); }

    int configure(ZslConfigParams const& params) override;
    ZslFrameBuilders submitZslRequest(ZslRequestParams&& params) override;
    ZslFrameBuilders processZslPendingRequest(unsigned int requestNo) override;
    bool hasZslPendingRequest() const override { return mProcessor->hasZslPendingRequest(); }
    void onFrameUpdated(
        unsigned int requestNo,
        IPipelineBufferSetFrameControl::IAppCallback::Result const& result) override;
    ZslFrameBuilders flush() override;
    void debug(android::Printer& printer, std::vector<std::string> const& options) override {
        mProcessor->debug(printer, options);
    }

    ZslRecorderStatus finish() override;
    ZslRecorderStatus status() const override { return mSession->file().status(); }

private:
    using IHistoryBufferProvider = NSPipelineContext::IHistoryBufferProvider;

    template <typename Call>
    void carryOut(Operation operation, Call call) EXCLUDES(mGate);
    template <typename Call>
    ZslFrameBuilders build(Call call);
    void dropCallbackIfGone() REQUIRES(mGate);
    ZslRequestParams withRecordingParts(ZslRequestParams const& params) REQUIRES(mGate);
    std::shared_ptr<RecordingProvider> recordingProvider(
        std::shared_ptr<IHistoryBufferProvider> const& provider) REQUIRES(mGate);

    android::sp<IZslProcessor> const mProcessor;
    std::shared_ptr<RecordingSession> const mSession;

    Mutex mGate;  ///< an operation is carried out; guards the session, too
    /// Lives as long as the caller's; null: none.
    android::sp<RecordingCallback> mCallback GUARDED_BY(mGate);
    std::unordered_map<IHistoryBufferProvider*, std::weak_ptr<RecordingProvider>> mProviders
        GUARDED_BY(mGate);
    uint64_t mNextProvider GUARDED_BY(mGate) = 0;
    uint64_t mNextBuilder GUARDED_BY(mGate) = 0;
};

/// Puts the caller's own builders in the place of those that record.
void giveBackOwn(ZslFrameBuilders& lists) {
    for (auto& list : lists) {
        for (auto& builder : list) {
            if (auto const* const recording = dynamic_cast<RecordingBuilder*>(builder.get())) {
                // A copy first: the assignment may destroy the one that holds it.
                builder = std::shared_ptr<IFrameBuilder>(recording->builder());
            }
        }
    }
}

/// Carries an operation out behind the gate. What it throws is recorded and passes on: the
/// processor throws out of `configure`, and otherwise what its surroundings throw where they must
/// not.
template <typename Call>
void Recorder::carryOut(Operation operation, Call call) {
    LockGuard const lock(mGate);
    mSession->begin(operation);
    try {
        call();
    } catch (...) {
        mSession->note(
            [](RecordingSession& session) { putFailure(session, currentExceptionText()); });
        mSession->end();
        throw;
    }
    mSession->end();
}

/// The part of an operation that gives frame builders.
template <typename Call>
ZslFrameBuilders Recorder::build(Call call) {
    ZslFrameBuilders lists = call();
    // Written down as what the processor gave: its stand-ins know their numbers.
    mSession->note([&](RecordingSession& session) { putBuilders(session, lists); });
    giveBackOwn(lists);
    return lists;
}

int Recorder::configure(ZslConfigParams const& params) {
    int status = 0;
    carryOut(Operation::CONFIGURE, [&]() REQUIRES(mGate) {
        mSession->note([&](RecordingSession& session) { putConfiguration(session, params); });
        ZslConfigParams own = params;
        android::sp<RecordingCallback> callback;
        if (params.pCallback.promote() != nullptr) {
            callback = new RecordingCallback(params.pCallback, mSession);
            own.pCallback = callback;
        }
        // The processor holds it weakly, so that it lives here. Of an exception nobody knows what
        // was taken before it: the new one must live.
        std::swap(mCallback, callback);
        status = mProcessor->configure(own);
        if (status != 0) {
            std::swap(mCallback, callback);
        }
        mSession->note([&](RecordingSession& session) { putStatus(session, status); });
    });
    return status;
}

ZslFrameBuilders Recorder::submitZslRequest(ZslRequestParams&& params) {
    ZslFrameBuilders lists;
    carryOut(Operation::SUBMIT, [&]() REQUIRES(mGate) {
        dropCallbackIfGone();
        if (!mSession->isRunning()) {
            // From here on the processor gets the caller's own; stand-ins are left in what waits.
            lists = build([&] { return mProcessor->submitZslRequest(std::move(params)); });
            return;
        }
        ZslRequestParams own = withRecordingParts(params);
        auto const* const provider =
            static_cast<RecordingProvider const*>(own.pHistoryBufferProvider.get());
        bool const callbackLives = mCallback != nullptr;
        // The caller's own objects: what their stand-ins tell would be recorded as the processor's.
        mSession->note([&](RecordingSession& session) {
            putSubmission(session, params, callbackLives,
                          provider != nullptr ? provider->number() : 0);
        });
        lists = build([&] { return mProcessor->submitZslRequest(std::move(own)); });
    });
    return lists;
}

ZslFrameBuilders Recorder::processZslPendingRequest(unsigned int requestNo) {
    ZslFrameBuilders lists;
    carryOut(Operation::RETRY, [&] {
        mSession->note([&](RecordingSession& session) { session.out().number(requestNo); });
        lists = build([&] { return mProcessor->processZslPendingRequest(requestNo); });
    });
    return lists;
}

void Recorder::onFrameUpdated(unsigned int requestNo,
                              IPipelineBufferSetFrameControl::IAppCallback::Result const& result) {
    carryOut(Operation::RESULT, [&] {
        mSession->note([&](RecordingSession& session) { putResult(session, requestNo, result); });
        mProcessor->onFrameUpdated(requestNo, result);
        // Only if nothing was thrown: a failure has a DONE of its own.
        mSession->note([&](RecordingSession& session) {
            putTimestampsLeft(session, result);
            putStatus(session, 0);
        });
    });
}

ZslFrameBuilders Recorder::flush() {
    ZslFrameBuilders lists;
    carryOut(Operation::FLUSH, [&] { lists = build([&] { return mProcessor->flush(); }); });
    return lists;
}

/// The processor finds nobody where the caller's callback is no more. Only a submission asks.
void Recorder::dropCallbackIfGone() {
    if (mCallback != nullptr && !mCallback->lives()) {
        mCallback = nullptr;
    }
}

ZslRequestParams Recorder::withRecordingParts(ZslRequestParams const& params) {
    ZslRequestParams own = params;
    for (auto& builder : own.vFrameBuilder) {
        uint64_t const number =
            mNextBuilder++;  // a missing builder has one, too: numbers are places
        if (builder != nullptr) {
            builder = std::make_shared<RecordingBuilder>(std::move(builder), number, mSession);
        }
    }
    if (own.pSelector != nullptr) {
        own.pSelector = std::make_shared<RecordingSelector>(std::move(own.pSelector), mSession);
    }
    own.pHistoryBufferProvider = recordingProvider(params.pHistoryBufferProvider);
    return own;
}

std::shared_ptr<RecordingProvider> Recorder::recordingProvider(
    std::shared_ptr<IHistoryBufferProvider> const& provider) {
    // One stand-in for a provider while anybody holds it: its number is who it is in the recording.
    std::erase_if(mProviders, [](auto const& known) { return known.second.expired(); });
    if (provider == nullptr) {
        return nullptr;
    }
    std::weak_ptr<RecordingProvider>& known = mProviders[provider.get()];
    std::shared_ptr<RecordingProvider> own = known.lock();
    if (own == nullptr) {
        own = std::make_shared<RecordingProvider>(provider, mNextProvider++, mSession);
        known = own;
    }
    return own;
}

ZslRecorderStatus Recorder::finish() {
    {
        LockGuard const lock(mGate);
        // Behind the gate: an operation that runs belongs to the recording.
        mSession->file().end(ZslRecordingEnd::FINISHED);
    }
    // Not behind it: the camera must not wait for the file.
    mSession->file().finish();
    return status();
}

}  // namespace
}  // namespace record

ZslRecorder::~ZslRecorder() = default;

android::sp<ZslRecorder> ZslRecorder::create(int openId, android::sp<IZslProcessor> processor,
                                             ZslRecorderOptions const& options) {
    if (processor == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, "ZebCam/ZslRec", "%s: no processor to record",
                            options.path.c_str());
        return nullptr;
    }
    auto file = record::RecordFile::create(options);
    if (file == nullptr) {
        return nullptr;
    }
    auto session = std::make_shared<record::RecordingSession>(std::move(file), options);
    session->start(openId);
    return new record::Recorder(std::move(processor), std::move(session));
}

}  // namespace NSCam::v3::pipeline::model
