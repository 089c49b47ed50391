#include "ZslFixture.h"

#include <cutils/properties.h>
#include <host/ImageStreamBuffer.h>
#include <platform/Properties.h>
#include <ulog/ULogger.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <new>
#include <sstream>

namespace zebcam::test {
namespace {

constexpr int32_t OPEN_ID = 3;
constexpr uint64_t CAMERA_TRACE_TAG = 0x400;
constexpr uint32_t FRAME_NUMBER_TAG = 0xc0ff0001;  ///< in a frame's HAL result, for describe()

template <typename Info>
android::sp<Info> streamInfo(StreamId_T id, char const* kind) {
    alignas(Info) static std::byte memory[0x40][sizeof(Info)];
    static std::map<StreamId_T, Info*> infos;
    auto& pInfo = infos[id];
    if (pInfo == nullptr) {
        std::ostringstream name;
        name << kind << std::hex << id;
        pInfo = new (memory[id & 0x3f]) Info(id, name.str());
        pInfo->incStrong(memory);  // static storage: must never be deleted
    }
    return pInfo;
}

bool isHalStream(StreamId_T id) {
    return id < STREAM_ID_APP_META_P1_0 && id != APP_CONTROL;
}

}  // namespace

android::sp<IMetaStreamInfo> metaStream(StreamId_T id) {
    return streamInfo<MetaStreamInfo>(id, "meta:");
}

android::sp<IImageStreamInfo> imageStream(StreamId_T id) {
    return streamInfo<ImageStreamInfo>(id, "image:");
}

android::sp<MetaStreamBuffer> metaBuffer(StreamId_T id, IMetadata metadata) {
    return new MetaStreamBuffer(metaStream(id), std::move(metadata));
}

MetaStreamBuffer& hostBuffer(android::sp<IMetaStreamBuffer> const& buffer) {
    return dynamic_cast<MetaStreamBuffer&>(*buffer);
}

ExposedFrame::ExposedFrame(uint32_t number) : frameNo(number), timestamp(SHUTTER + number * MS) {
    tag<int32_t>(HAL, FRAME_NUMBER_TAG, static_cast<int32_t>(number));
    tag<int32_t>(HAL, ZEB_HAL_REQUEST_SENSOR_ID, 0);
    tag<int32_t>(HAL, ZEB_P1NODE_SENSOR_MODE, 0);
    tag<int32_t>(HAL, ZEB_3A_AE_SOFT_STABLE, 1);
    tag<int64_t>(HAL, ZEB_FRAME_SYNC_RESULT, 0);
    focus(AF_MODE_CONTINUOUS_PICTURE, AF_STATE_PASSIVE_FOCUSED, LENS_STATE_STATIONARY);
}

ExposedFrame& ExposedFrame::at(int64_t ms) {
    timestamp = SHUTTER + ms * MS;
    return *this;
}

ExposedFrame& ExposedFrame::with(std::set<StreamId_T> streams) {
    images = std::move(streams);
    return *this;
}

ExposedFrame& ExposedFrame::focus(uint8_t afMode, uint8_t afState, uint8_t lensState) {
    tag(APP, ANDROID_CONTROL_AF_MODE, afMode);
    tag(APP, ANDROID_CONTROL_AF_STATE, afState);
    return tag(APP, ANDROID_LENS_STATE, lensState);
}

HistoryBufferSet ExposedFrame::set() const {
    HistoryBufferSet set;
    set.frameNo = set.requestNo = frameNo;
    set.timestamp = timestamp;
    for (auto id : images) {
        android::sp<ImageStreamBuffer> image = new ImageStreamBuffer(imageStream(id));
        image->setError(hasImageError);
        set.halImage.push_back(image);
    }
    for (auto const& [id, metadata] : metas) {
        auto const buffer = metaBuffer(id, metadata);
        buffer->setLockable(unlockable.count(id) == 0);
        (isHalStream(id) ? set.halMeta : set.appMeta).push_back(buffer);
    }
    return set;
}

Capture& Capture::policy(uint32_t word, int64_t timeoutMs) {
    params.pPolicyParams = std::make_shared<ZslPolicy::ZslPolicyParams>();
    *params.pPolicyParams = {.policy = word, .timeoutMs = timeoutMs};
    return *this;
}

Capture& Capture::by(std::shared_ptr<ISelector> selector) {
    params.pSelector = std::move(selector);
    return *this;
}

Capture& Capture::sensorMode(uint32_t sensorId, uint32_t mode) {
    modes[sensorId] = mode;
    sensors.push_back(sensorId);
    return *this;
}

Answer ScriptedSelector::select(SelectInputParams const& in) const {
    seen.push_back(in);
    return script(in);
}

std::shared_ptr<ScriptedSelector> answering(std::vector<Answer> answers, std::string name) {
    return std::make_shared<ScriptedSelector>(
        [answers = std::move(answers), next = size_t(0)](auto const&) mutable {
            return next < answers.size() ? answers[next++] : Answer();
        },
        std::move(name));
}

Answer choose(std::map<uint64_t, uint32_t> const& frames,
              std::map<uint32_t, Answer::OpT> const& orders) {
    Answer answer{.selected = {}, .ops = orders};
    for (auto const& [index, frameNo] : frames) {
        answer.selected[index].frameNo = frameNo;
    }
    return answer;
}

Answer order(Answer::OpT what, uint32_t frameNo) {
    return choose({{0, NO_FRAME}}, {{frameNo, what}});
}

void RecordingCallback::updateFrame(Result const& result) {
    results.push_back(result);
    if (onUpdate) {
        onUpdate();
    }
}

std::vector<std::pair<uint32_t, int64_t>> RecordingCallback::shutters() const {
    std::vector<std::pair<uint32_t, int64_t>> shutters;
    for (auto const& result : results) {
        auto const metadata = hostBuffer(result.outputAppMetas.at(0)).snapshot();
        shutters.emplace_back(result.requestNo,
                              valueOf<int64_t>(metadata, ZEB_SENSOR_TIMESTAMP).value_or(-1));
    }
    return shutters;
}

ZslTest::ZslTest() {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    platform::setTraceSink(&trace, CAMERA_TRACE_TAG);
    captureLog(LogSettings::camera(NSCam::Utils::ULog::LOG_LEVEL_DEBUG));
    p1Streams[0].pHalMeta_Control = metaStream(HAL_CONTROL);
    p1Streams[0].pHalMeta_DynamicP1 = metaStream(HAL);
    p1Streams[0].pAppMeta_DynamicP1 = metaStream(APP);
    p1Streams[0].pHalImage_FullRaw = imageStream(RAW);
    IMetadata realtime;
    put<uint8_t>(realtime, ZEB_SENSOR_INFO_TIMESTAMP_SOURCE, 1);
    device.emplace(OPEN_ID, realtime);
}

void ZslTest::TearDown() {
    if (zsl != nullptr) {
        EXPECT_TRUE(leavesPending || !zsl->hasZslPendingRequest()) << "a capture is still pending";
        flush();
        zsl.clear();
    }
    for (auto const& builder : mReturned) {
        if (builder != nullptr) {
            dynamic_cast<FrameBuilder&>(*builder).finish();
        }
    }
    for (auto const& left : history->ledger()->unsettled()) {
        ADD_FAILURE() << "F" << left.frameNo << (left.isClone ? " (clone)" : "") << " of request "
                      << left.forRequestNo << ": " << toString(left.holder);
    }
    EXPECT_THAT(MetaStreamBuffer::outstandingLocks(), ::testing::IsEmpty());
    EXPECT_EQ(0, trace.depth) << "trace sections are open";
    platform::setTraceSink(nullptr, 0);
    for (auto const& key : mProperties) {
        platform::clearProperty(key);
    }
}

void ZslTest::start(bool configured) {
    zsl = IZslProcessor::createInstance(OPEN_ID, "test");
    ASSERT_NE(nullptr, zsl);
    if (configured) {
        ASSERT_EQ(0, zsl->configure(config()));
    }
}

ZslConfigParams ZslTest::config() const {
    return {.pParsedStreamInfo_P1 = &p1Streams, .pCallback = callback};
}

void ZslTest::captureLog(LogSettings settings) {
    logCapture.reset();
    logCapture.emplace(settings, [this](LogLine const& line) { log.push_back(line); });
}

void ZslTest::setProperty(std::string const& key, std::string const& value) {
    property_set(key.c_str(), value.c_str());
    mProperties.push_back(key);
}

void ZslTest::push(std::vector<ExposedFrame> const& frames) {
    for (auto const& frame : frames) {
        history->arrive(frame.set());
    }
}

Capture ZslTest::capture(uint32_t requestNo, size_t frames) {
    return captureOf(requestNo, std::vector<uint32_t>(frames, FRAME_TYPE_MAIN));
}

Capture ZslTest::captureOf(uint32_t requestNo, std::vector<uint32_t> const& frameTypes) {
    Capture made;
    made.params.requestNo = requestNo;
    made.params.pHistoryBufferProvider = history;
    for (auto type : frameTypes) {
        auto const builder = std::make_shared<FrameBuilder>(requestNo, type);
        builder->setAppMetaStreamBuffer(APP_CONTROL, metaBuffer(APP_CONTROL));
        builder->setHalMetaStreamBuffer(HAL_CONTROL, metaBuffer(HAL_CONTROL));
        mNames[builder] = std::to_string(requestNo) + "." + std::to_string(made.frames.size());
        made.frames.push_back(builder);
        made.params.vFrameBuilder.push_back(builder);
        made.params.vReqResult.push_back(std::make_shared<pipeline::policy::RequestResultParams>());
        made.params.vReqResult.back()->required = {{RAW}, {HAL}, {APP}};
    }
    return made;
}

std::string ZslTest::submit(Capture const& wanted) {
    auto params = wanted.params;
    params.pStreamIdMap = &wanted.modes;
    params.pvRequiredSensorIds = &wanted.sensors;
    history->setCurrentRequest(params.requestNo);
    return receive(zsl->submitZslRequest(std::move(params)));
}

std::string ZslTest::retry() {
    return receive(zsl->processZslPendingRequest(99));
}

std::string ZslTest::flush() {
    return receive(zsl->flush());
}

std::string ZslTest::passMs(int64_t ms) {
    clock.advance(ms * MS);
    return retry();
}

std::string ZslTest::receive(ZslFrameBuilders const& result) {
    std::string text;
    for (auto const& group : result) {
        text += "[";
        for (auto const& builder : group) {
            mReturned.push_back(builder);
            text += text.back() == '[' ? "" : " ";
            text += builder == nullptr ? "null" : mNames.at(builder) + describe(*builder);
        }
        text += "]";
    }
    return text;
}

std::string ZslTest::describe(IFrameBuilder const& builder) const {
    auto const& built = dynamic_cast<FrameBuilder const&>(builder);
    if (!built.builtFromHistory().value_or(false)) {
        return built.builtFromHistory() ? "=none" : "=unset";
    }
    auto const hal = built.halMeta(HAL);
    auto const number = hal == nullptr
                            ? std::nullopt
                            : valueOf<int32_t>(hostBuffer(hal).snapshot(), FRAME_NUMBER_TAG);
    return "=F" + (number ? std::to_string(*number) : "?");
}

std::vector<std::string> ZslTest::lines() const {
    std::vector<std::string> messages;
    for (auto const& line : log) {
        messages.push_back(line.message);
    }
    return messages;
}

size_t ZslTest::logged(std::string const& text) const {
    size_t count = 0;
    for (auto const& line : log) {
        count += line.message.find(text) != std::string::npos;
    }
    return count;
}

std::string ZslTest::line(std::string const& text) const {
    auto const has = [&](LogLine const& l) { return l.message.find(text) != std::string::npos; };
    auto const found = std::find_if(log.rbegin(), log.rend(), has);
    return found == log.rend() ? "" : found->message;
}

void ZslTest::runAndExit(std::function<void()> const& body) {
    body();
    TearDown();
    auto const& result = *::testing::UnitTest::GetInstance()->current_test_info()->result();
    for (int i = 0; i < result.total_part_count(); ++i) {
        auto const& part = result.GetTestPartResult(i);
        std::fprintf(stderr, "%s:%d: %s\n", part.file_name(), part.line_number(), part.message());
    }
    _exit(HasFailure() ? 1 : 0);
}

}  // namespace zebcam::test
