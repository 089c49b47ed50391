#include "Recorder.h"

#include <android/log.h>

#include <exception>
#include <utility>

#include "Calls.h"
#include "RecordedBuilder.h"
#include "RecordedSelector.h"

namespace NSCam::v3::pipeline::model {

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
    auto tape = std::make_shared<record::Tape>(std::move(file), options);
    tape->start(openId);
    return new record::Recorder(std::move(processor), std::move(tape));
}

namespace record {

using NSPipelineContext::IFrameBuilder;

namespace {

/// The tape is at an operation, on this thread.
class Recording {
public:
    Recording(Tape& tape, Operation operation) : mTape(tape) { mTape.begin(operation); }
    ~Recording() { mTape.end(); }
    Recording(Recording const&) = delete;
    Recording& operator=(Recording const&) = delete;

private:
    Tape& mTape;
};

/// Puts the caller's own builders in the place of those that record.
void giveBackOwn(ZslFrameBuilders& lists) {
    for (auto& list : lists) {
        for (auto& builder : list) {
            if (auto const* const recorded = dynamic_cast<RecordedBuilder*>(builder.get())) {
                builder = std::shared_ptr<IFrameBuilder>(recorded->builder());
            }
        }
    }
}

}  // namespace

/// Carries an operation out behind the gate. What it throws is recorded and passes on.
template <typename Call>
void Recorder::carryOut(Operation operation, Call call) {
    std::lock_guard const lock(mGate);
    Recording const recording(*mTape, operation);
    try {
        call();
    } catch (...) {
        mTape->note([](Tape& tape) { putFailure(tape, currentExceptionText()); });
        throw;
    }
}

/// The part of an operation that gives frame builders.
template <typename Call>
ZslFrameBuilders Recorder::build(Call call) {
    ZslFrameBuilders lists = call();
    mTape->note([&](Tape& tape) { putBuilders(tape, lists); });
    giveBackOwn(lists);
    return lists;
}

int Recorder::configure(ZslConfigParams const& params) {
    int status = 0;
    carryOut(Operation::CONFIGURE, [&] {
        mTape->note([&](Tape& tape) { putConfiguration(tape, params); });
        ZslConfigParams own = params;
        android::sp<RecordedCallback> callback;
        if (params.pCallback.promote() != nullptr) {
            callback = new RecordedCallback(params.pCallback, mTape);
            own.pCallback = callback;
        }
        // Of an exception nobody knows what was taken before it: the new one must live.
        std::swap(mCallback, callback);
        status = mProcessor->configure(own);
        if (status != 0) {
            std::swap(mCallback, callback);
        }
        mTape->note([&](Tape& tape) { putStatus(tape, status); });
    });
    return status;
}

ZslFrameBuilders Recorder::submitZslRequest(ZslRequestParams&& params) {
    ZslFrameBuilders lists;
    carryOut(Operation::SUBMIT, [&] {
        dropCallbackIfGone();
        if (!mTape->isRunning()) {
            lists = build([&] { return mProcessor->submitZslRequest(std::move(params)); });
            return;
        }
        ZslRequestParams own = recorded(params, mNextBuilder);
        auto const* const provider =
            static_cast<RecordedProvider const*>(own.pHistoryBufferProvider.get());
        mTape->note([&](Tape& tape) {
            putSubmission(tape, params, mCallback != nullptr,
                          provider != nullptr ? provider->number() : 0);
        });
        mNextBuilder += params.vFrameBuilder.size();
        lists = build([&] { return mProcessor->submitZslRequest(std::move(own)); });
    });
    return lists;
}

ZslFrameBuilders Recorder::processZslPendingRequest(unsigned int requestNo) {
    ZslFrameBuilders lists;
    carryOut(Operation::RETRY, [&] {
        mTape->note([&](Tape& tape) { tape.out().number(requestNo); });
        lists = build([&] { return mProcessor->processZslPendingRequest(requestNo); });
    });
    return lists;
}

void Recorder::onFrameUpdated(unsigned int requestNo,
                              IPipelineBufferSetFrameControl::IAppCallback::Result const& result) {
    carryOut(Operation::RESULT, [&] {
        mTape->note([&](Tape& tape) { putResult(tape, requestNo, result); });
        mProcessor->onFrameUpdated(requestNo, result);
        mTape->note([&](Tape& tape) {
            putTimestampsLeft(tape, result);
            putStatus(tape, 0);
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

ZslRequestParams Recorder::recorded(ZslRequestParams const& params, uint64_t firstBuilder) {
    ZslRequestParams own = params;
    for (size_t i = 0; i < own.vFrameBuilder.size(); ++i) {
        auto& builder = own.vFrameBuilder[i];
        if (builder != nullptr) {
            builder =
                std::make_shared<RecordedBuilder>(std::move(builder), firstBuilder + i, mTape);
        }
    }
    if (own.pSelector != nullptr) {
        own.pSelector = std::make_shared<RecordedSelector>(std::move(own.pSelector), mTape);
    }
    own.pHistoryBufferProvider = recorded(params.pHistoryBufferProvider);
    return own;
}

std::shared_ptr<RecordedProvider> Recorder::recorded(
    std::shared_ptr<IHistoryBufferProvider> const& provider) {
    std::erase_if(mProviders, [](auto const& known) { return known.second.expired(); });
    if (provider == nullptr) {
        return nullptr;
    }
    std::weak_ptr<RecordedProvider>& known = mProviders[provider.get()];
    std::shared_ptr<RecordedProvider> own = known.lock();
    if (own == nullptr) {
        own = std::make_shared<RecordedProvider>(provider, mNextProvider++, mTape);
        known = own;
    }
    return own;
}

ZslRecorderStatus Recorder::finish() {
    {
        std::lock_guard const lock(mGate);
        mTape->file().end(ZslRecordingEnd::FINISHED);
    }
    mTape->file().finish();
    return status();
}

}  // namespace record
}  // namespace NSCam::v3::pipeline::model
