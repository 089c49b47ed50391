#include "CaptureScene.h"

#include <host/FrameBuilder.h>
#include <host/ImageStreamBuffer.h>
#include <host/MetaStreamBuffer.h>
#include <host/StreamInfos.h>
#include <ulog/ULogger.h>

#include <limits>
#include <utility>

#include "SampleMetadata.h"

using namespace NSCam::v3;
using NSCam::IMetadata;
using NSCam::Utils::ULog::ULogger;
using NSCam::v3::pipeline::model::IZslProcessor;
using NSCam::v3::pipeline::model::ZslRecorder;
using NSCam::v3::pipeline::model::ZslRecordingEnd;
using NSCam::v3::pipeline::model::ZslRequestParams;
using NSCam::ZslPolicy::ISelector;

namespace zebcam::bench {

namespace {

constexpr StreamId_T FULL_RAW = 0x1;
constexpr StreamId_T RESIZED_RAW = 0x2;
constexpr int64_t FRAME_NS = 33'333'333;

template <typename Info>
android::sp<Info> streamInfo(StreamId_T id, char const* name) {
    return android::sp<Info>(new Info(id, name));
}

struct Streams {
    android::sp<host::ImageStreamInfo> fullRaw =
        streamInfo<host::ImageStreamInfo>(FULL_RAW, "FullRaw");
    android::sp<host::ImageStreamInfo> resizedRaw =
        streamInfo<host::ImageStreamInfo>(RESIZED_RAW, "ResizedRaw");
    android::sp<host::MetaStreamInfo> halResult =
        streamInfo<host::MetaStreamInfo>(STREAM_ID_HAL_META_P1_0, "HalMetaP1");
    android::sp<host::MetaStreamInfo> appResult =
        streamInfo<host::MetaStreamInfo>(STREAM_ID_APP_META_P1_0, "AppMetaP1");
    android::sp<host::MetaStreamInfo> halControl =
        streamInfo<host::MetaStreamInfo>(STREAM_ID_HAL_META_CONTROL_0, "HalMetaControl");
    android::sp<host::MetaStreamInfo> appControl =
        streamInfo<host::MetaStreamInfo>(STREAM_ID_APP_META_CONTROL, "AppMetaControl");
};

Streams const& streams() {
    static Streams const instance;
    return instance;
}

android::sp<IMetaStreamBuffer> metaBuffer(android::sp<host::MetaStreamInfo> const& info,
                                          IMetadata metadata) {
    return new host::MetaStreamBuffer(info, std::move(metadata));
}

std::shared_ptr<host::FrameBuilder> makeBuilder(uint32_t requestNo, IMetadata const& control) {
    auto builder = std::make_shared<host::FrameBuilder>(
        requestNo, pipeline::NSPipelineContext::FRAME_TYPE_MAIN);
    builder->setAppMetaStreamBuffer(STREAM_ID_APP_META_CONTROL,
                                    metaBuffer(streams().appControl, control));
    builder->setHalMetaStreamBuffer(STREAM_ID_HAL_META_CONTROL_0,
                                    metaBuffer(streams().halControl, control));
    return builder;
}

class IdleSelector final : public ISelector {
public:
    char const* getName() const override { return "IdleSelector"; }
    SelectOutputParams select(SelectInputParams const&) const override { return {}; }
};

}  // namespace

std::optional<std::list<HistoryBufferSet>> PlainHistory::getHistoryBufferSets() {
    return std::exchange(mSets, {});
}

void PlainHistory::returnBufferSet(ReturnedBufferSet& returned) {
    mReturned.push_back(std::move(*returned.pSet));
}

void PlainHistory::takeReturned() {
    // Older than any that arrived in the meantime. The vector keeps its room.
    mSets.insert(mSets.begin(), std::make_move_iterator(mReturned.begin()),
                 std::make_move_iterator(mReturned.end()));
    mReturned.clear();
}

CaptureScene::CaptureScene(SceneSize size, Provider provider, bool canServe)
    : mSize(size), mServed(canServe ? size.requestedFrames : 0) {
    ULogger::sMode = 0;
    ULogger::sDetailsLevel = 0;
    if (provider == Provider::Plain) {
        mpPlain = std::make_shared<PlainHistory>();
    } else {
        mpHost = std::make_shared<host::HistoryProvider>(size.historyFrames);
    }
    mpProcessor = IZslProcessor::createInstance(0, "bench");
    mpProcessor->configure({});
    mClock.advance(static_cast<int64_t>(size.historyFrames) * FRAME_NS);
    for (size_t frame = 0; frame < size.historyFrames; ++frame) {
        mpPlain ? mpPlain->arrive(makeSet(frame)) : mpHost->arrive(makeSet(frame));
    }
}

void CaptureScene::record() {
    mpRecorder = ZslRecorder::create(0, mpProcessor,
                                     {.path = "/dev/null",
                                      .memoryBytes = size_t{64} << 20,
                                      .maxFileBytes = std::numeric_limits<uint64_t>::max()});
    mpProcessor = mpRecorder;
}

bool CaptureScene::isRecording() const {
    return mpRecorder != nullptr && mpRecorder->status().end == ZslRecordingEnd::RUNNING;
}

HistoryBufferSet CaptureScene::makeSet(size_t frame) const {
    IMetadata appResult = makeSample(mSize.entries, SampleKind::Result);
    addFocusTags(appResult);
    IMetadata halResult = makeSample(mSize.entries, SampleKind::Result);
    addSensorTags(halResult, frame >= firstStable());
    HistoryBufferSet set;
    set.frameNo = static_cast<uint32_t>(frame);
    set.requestNo = set.frameNo;
    // After the press, which keeps the test of the time from hiding the others.
    set.timestamp = static_cast<int64_t>(mSize.historyFrames + frame) * FRAME_NS;
    set.halImage = {new host::ImageStreamBuffer(streams().fullRaw),
                    new host::ImageStreamBuffer(streams().resizedRaw)};
    set.halMeta = {metaBuffer(streams().halResult, std::move(halResult))};
    set.appMeta = {metaBuffer(streams().appResult, std::move(appResult))};
    return set;
}

ZslRequestParams CaptureScene::makeCapture(std::shared_ptr<ISelector> selector) {
    static auto const needs = [] {
        auto params = std::make_shared<pipeline::policy::RequestResultParams>();
        params->required = {{FULL_RAW}, {STREAM_ID_HAL_META_P1_0}, {STREAM_ID_APP_META_P1_0}};
        return params;
    }();
    ZslRequestParams params;
    params.requestNo = ++mRequestNo;
    params.pSelector = std::move(selector);
    params.pHistoryBufferProvider = mpPlain;
    if (mpHost) {
        params.pHistoryBufferProvider = mpHost;
    }
    IMetadata const control = makeSample(mSize.entries / 2, SampleKind::Control);
    for (size_t i = 0; i < mSize.requestedFrames; ++i) {
        params.vReqResult.push_back(needs);
        params.vFrameBuilder.push_back(makeBuilder(mRequestNo, control));
    }
    params.pStreamIdMap = &mSensorModes;
    params.pvRequiredSensorIds = &mSensors;
    return params;
}

void CaptureScene::refill() {
    if (mpPlain) {
        mpPlain->takeReturned();
    }
    for (size_t frame = firstStable(); frame < mSize.historyFrames; ++frame) {
        mpPlain ? mpPlain->arrive(makeSet(frame)) : mpHost->arrive(makeSet(frame));
    }
}

std::shared_ptr<ISelector> makeIdleSelector() {
    return std::make_shared<IdleSelector>();
}

}  // namespace zebcam::bench
