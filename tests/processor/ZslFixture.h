#pragma once

#include <IZslProcessor.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <host/DeviceRegistration.h>
#include <host/FrameBuilder.h>
#include <host/HistoryProvider.h>
#include <host/LogCapture.h>
#include <host/MetaStreamBuffer.h>
#include <host/StreamInfos.h>
#include <platform/Trace.h>
#include <platform/VirtualClock.h>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace zebcam::test {

using namespace NSCam;
using namespace NSCam::v3;
using namespace NSCam::v3::pipeline::model;
using namespace zebcam::host;
using namespace NSCam::v3::pipeline::NSPipelineContext;
using NSCam::ZslPolicy::ISelector;
using IAppCallback = NSCam::v3::pipeline::IPipelineBufferSetFrameControl::IAppCallback;
using Answer = ISelector::SelectOutputParams;
constexpr auto LOCK = Answer::LOCK, UNLOCK = Answer::UNLOCK, RELEASE = Answer::RELEASE;

constexpr StreamId_T RAW = 0x21;
constexpr StreamId_T YUV = 0x22;
constexpr StreamId_T HAL = STREAM_ID_HAL_META_P1_0;
constexpr StreamId_T APP = STREAM_ID_APP_META_P1_0;
constexpr StreamId_T HAL_CONTROL = STREAM_ID_HAL_META_CONTROL_0;
constexpr StreamId_T APP_CONTROL = STREAM_ID_APP_META_CONTROL;

constexpr uint32_t NO_FRAME = ISelector::ZslFrameResult::NO_FRAME;

constexpr int64_t MS = 1'000'000;
constexpr uint32_t MULTIFRAME = ZslPolicy::POLICY_MULTIFRAME_BIT;
constexpr int64_t SHUTTER = 100'000 * MS;   ///< boot time at the start of every test
constexpr int64_t MONOTONIC = 40'000 * MS;  ///< monotonic time at that instant

/// One stream info per id, for the life of the process. Metadata stream infos lie in memory in the
/// order of their ids, so that maps by address iterate in that order.
android::sp<IMetaStreamInfo> metaStream(StreamId_T id);
android::sp<IImageStreamInfo> imageStream(StreamId_T id);

template <typename T>
void put(IMetadata& metadata, uint32_t tag, T value) {
    IMetadata::IEntry entry(tag);
    entry.push_back(value, Type2Type<T>());
    metadata.update(tag, entry);
}

template <typename T>
std::optional<T> valueOf(IMetadata const& metadata, uint32_t tag) {
    auto const entry = metadata.entryFor(tag);
    return entry.isEmpty() ? std::nullopt : std::optional<T>(entry.itemAt(0, Type2Type<T>()));
}

android::sp<MetaStreamBuffer> metaBuffer(StreamId_T id, IMetadata metadata = {});
MetaStreamBuffer& hostBuffer(android::sp<IMetaStreamBuffer> const& buffer);

/// A sensor frame: by default frame n was exposed n ms after SHUTTER, by sensor 0 in mode 0, with
/// focus and exposure settled and sensors in sync.
struct ExposedFrame {
    ExposedFrame(uint32_t number);  // NOLINT(google-explicit-constructor): reads as a list
    ExposedFrame& at(int64_t ms);   ///< exposed `ms` after SHUTTER
    ExposedFrame& with(std::set<StreamId_T> streams);  ///< images of these streams only
    ExposedFrame& focus(uint8_t afMode, uint8_t afState, uint8_t lensState);
    template <typename T>
    ExposedFrame& tag(StreamId_T stream, uint32_t tag, T value) {
        put(metas[stream], tag, value);
        return *this;
    }
    HistoryBufferSet set() const;

    uint32_t frameNo;
    int64_t timestamp;
    std::set<StreamId_T> images{RAW};
    bool hasImageError = false;
    std::map<StreamId_T, IMetadata> metas;  ///< HAL and application results by stream
    std::set<StreamId_T> unlockable;        ///< metadata streams whose lock is never obtained
};

/// A still capture: what it asks for and the builders that it brings.
struct Capture {
    Capture& policy(uint32_t word, int64_t timeoutMs = 0);
    Capture& by(std::shared_ptr<ISelector> selector);
    Capture& sensorMode(uint32_t sensorId, uint32_t mode);
    ZslPolicy::RequiredStreams& required(size_t frame) {
        return params.vReqResult[frame]->required;
    }

    ZslRequestParams params;
    std::vector<std::shared_ptr<FrameBuilder>> frames;
    std::unordered_map<uint32_t, uint32_t> modes;
    std::vector<uint32_t> sensors;
};

/// A policy that answers from a script and keeps what it was shown.
class ScriptedSelector final : public ISelector {
public:
    using Script = std::function<Answer(SelectInputParams const&)>;
    explicit ScriptedSelector(Script playedScript, std::string name = "Scripted")
        : script(std::move(playedScript)), mName(std::move(name)) {}
    char const* getName() const override { return onName ? onName(), "" : mName.c_str(); }
    Answer select(SelectInputParams const& in) const override;

    Script script;
    std::function<void()> onName;
    mutable std::vector<SelectInputParams> seen;  ///< pointers to metadata are no longer valid

private:
    std::string const mName;
};

/// Gives one answer per call, then chooses nothing.
std::shared_ptr<ScriptedSelector> answering(std::vector<Answer> answers,
                                            std::string name = "Scripted");

/// History frame by frame index, and orders by history frame.
Answer choose(std::map<uint64_t, uint32_t> const& frames,
              std::map<uint32_t, Answer::OpT> const& orders = {});

/// Builds frame 0 from nothing and gives an order.
Answer order(Answer::OpT what, uint32_t frameNo);

class RecordingCallback final : public IAppCallback {
public:
    void updateFrame(Result const& result) override;
    /// Request number and timestamp (-1: none) of each early shutter.
    std::vector<std::pair<uint32_t, int64_t>> shutters() const;

    std::vector<Result> results;
    std::function<void()> onUpdate;
};

/// Sections that are open.
class CountingTrace final : public platform::ITraceSink {
public:
    void beginSection(char const*) override { ++depth; }
    void endSection() override { --depth; }
    std::atomic<int> depth = 0;
};

class LinePrinter final : public android::Printer {
public:
    void printLine(char const* string) override { lines.emplace_back(string); }
    std::vector<std::string> lines;
};

/**
 * A configured processor in virtual time over an empty history of 16 frames.
 *
 * Every test ends with a flush, after which nothing may be lost, locked or open (TearDown).
 */
class ZslTest : public ::testing::Test {
protected:
    ZslTest();
    void SetUp() override { start(); }
    void TearDown() override;

    /// Replaces the processor by a new one, configured unless told otherwise.
    void start(bool configured = true);
    ZslConfigParams config() const;
    void captureLog(LogSettings settings);  ///< into `log`, instead of the camera's debug level
    void setProperty(std::string const& key, std::string const& value);

    void push(std::vector<ExposedFrame> const& frames);
    /// A capture of so many MAIN frames, each of which needs RAW, HAL and APP.
    Capture capture(uint32_t requestNo, size_t frames = 1);
    Capture captureOf(uint32_t requestNo, std::vector<uint32_t> const& frameTypes);

    // The operations; each answers which builder was filled from which history frame, for
    // instance "[5.0=F11 5.1=none][6.0=F12]" for captures 5 and 6.
    std::string submit(Capture const& wanted);
    std::string retry();
    std::string flush();
    std::string passMs(int64_t ms);  ///< time goes by, then a retry

    size_t logged(std::string const& text) const;     ///< lines that contain the text
    std::string line(std::string const& text) const;  ///< the last one; empty when there is none
    std::vector<std::string> lines() const;

    /// Ends this process: 0 if `body` and the checks at the end of a test found no fault.
    [[noreturn]] void runAndExit(std::function<void()> const& body);

    platform::VirtualClock clock{{.bootTimeNs = SHUTTER, .monotonicNs = MONOTONIC}};
    CountingTrace trace;
    std::vector<LogLine> log;
    std::optional<LogCapture> logCapture;
    std::shared_ptr<HistoryProvider> history = std::make_shared<HistoryProvider>(16);
    android::sp<RecordingCallback> callback = new RecordingCallback;
    pipeline::policy::ParsedStreamInfoMap_P1 p1Streams;
    std::optional<DeviceRegistration> device;
    android::sp<IZslProcessor> zsl;
    bool leavesPending = false;  ///< the test ends with captures pending on purpose

private:
    std::string receive(ZslFrameBuilders const& result);
    std::string describe(IFrameBuilder const& builder) const;

    std::map<std::shared_ptr<IFrameBuilder>, std::string> mNames;
    std::vector<std::shared_ptr<IFrameBuilder>> mReturned;
    std::vector<std::string> mProperties;
};

/// Names the cases of a table by their `name`.
constexpr auto caseName = [](auto const& testCase) { return std::string(testCase.param.name); };

/// Runs `body` in a new process of this test, where nothing that is read once has been read yet.
#define EXPECT_PASSES_IN_NEW_PROCESS(...) \
    EXPECT_EXIT(runAndExit(__VA_ARGS__), ::testing::ExitedWithCode(0), "")

}  // namespace zebcam::test
