#include <limits>

#include "ZslFixture.h"

namespace zebcam::test {
namespace {

using Shutters = std::vector<std::pair<uint32_t, int64_t>>;

TEST_F(ZslTest, EarlyShutterIsOneBufferWithATime) {
    push({ExposedFrame(11).at(-9), ExposedFrame(12).at(-4)});
    submit(capture(5));
    ASSERT_EQ(1U, callback->results.size());
    auto const& result = callback->results[0];
    EXPECT_EQ(5U, result.requestNo);
    EXPECT_EQ(0U, result.nAppOutMetaLeft);
    EXPECT_EQ(1U, result.nHalOutMetaLeft);
    EXPECT_FALSE(result.isFrameEnd);
    EXPECT_TRUE(result.outputHalMetas.empty());
    EXPECT_EQ((Shutters{{5, SHUTTER - 4 * MS + 1000}}), callback->shutters());
    EXPECT_EQ(1U,
              logged("[selectBuf_Locked] Debug1: update fakeShutter: 100000000000->99996000000"));
    leavesPending = true;
}

TEST_F(ZslTest, ShutterThatCannotBeSentIsToldAndNotCounted) {
    auto streamless = p1Streams;
    streamless[0].pAppMeta_DynamicP1.clear();
    std::pair<ZslConfigParams, char const*> const cases[] = {
        {{.pParsedStreamInfo_P1 = &p1Streams, .pCallback = {}},
         "can not promote pCallback for shutter"},
        {{.pParsedStreamInfo_P1 = nullptr, .pCallback = callback},
         "no P1 streams configured for shutter"},
        {{.pParsedStreamInfo_P1 = &streamless, .pCallback = callback},
         "no pAppMeta_DynamicP1 stream of sensor 0 configured for shutter"}};
    for (auto const& [broken, says] : cases) {
        log.clear();
        ASSERT_EQ(0, zsl->configure(broken));
        auto waiting = capture(5);
        submit(waiting);
        EXPECT_EQ(1U, logged(std::string("[callbackFakeShutter] ") + says));
        EXPECT_EQ(0U, logged("cb fakeShutter"));
        EXPECT_EQ(1U, logged("add to pending [fakeShutter:0; pendingReq(#1):R5 ]"));
        EXPECT_EQ("[5.0=none]", flush());
        EXPECT_EQ(0, waiting.frames[0]->timestamp());
    }
    EXPECT_EQ(0, zsl->configure(config()));
    submit(capture(6));
    EXPECT_EQ((Shutters{{6, SHUTTER + 1000}}), callback->shutters()) << "the count went on";
    leavesPending = true;
}

class FrameUpdateTest : public ZslTest {
protected:
    /// The time in a result of `requestNo` on `stream` after the processor heard of it.
    int64_t timeAfter(uint32_t requestNo, StreamId_T stream, bool isFrameEnd = false) {
        IMetadata metadata;
        put<int64_t>(metadata, ZEB_SENSOR_TIMESTAMP, 42);
        put<int32_t>(metadata, 0x10007, 4);
        auto const buffer = metaBuffer(stream, metadata);
        IAppCallback::Result result;
        result.requestNo = requestNo;
        result.outputAppMetas = {buffer};
        result.isFrameEnd = isFrameEnd;
        zsl->onFrameUpdated(requestNo, result);
        EXPECT_EQ(4, valueOf<int32_t>(buffer->snapshot(), 0x10007)) << "another tag was touched";
        return valueOf<int64_t>(buffer->snapshot(), ZEB_SENSOR_TIMESTAMP).value_or(-1);
    }
};

TEST_F(FrameUpdateTest, TimeIsRemovedUntilTheFrameEnds) {
    submit(capture(5));
    EXPECT_EQ(42, timeAfter(6, APP)) << "a request without early shutter";
    EXPECT_EQ(42, timeAfter(5, APP - 1));
    EXPECT_EQ(42, timeAfter(5, APP + 3));
    EXPECT_EQ(42, timeAfter(5, APP_CONTROL));
    EXPECT_EQ(42, timeAfter(5, std::numeric_limits<StreamId_T>::min() + 1));
    for (auto stream : {APP, APP + 1, APP + 2}) {
        EXPECT_EQ(-1, timeAfter(5, stream));
    }
    EXPECT_EQ(1U,
              logged("[onFrameUpdated] (0x100000026:meta:100000026) remove ZEB_SENSOR_TIMESTAMP "
                     "tag(0xe0010) [requestNo:5, fakeShutter:100000001000]"));
    flush();
    EXPECT_EQ(-1, timeAfter(5, APP)) << "the entry outlives the capture";
    EXPECT_EQ(-1, timeAfter(5, APP, true));
    EXPECT_EQ(42, timeAfter(5, APP)) << "the frame has ended";
}

TEST_F(FrameUpdateTest, BuffersThatCannotBeRewrittenAreToldAndPassed) {
    submit(capture(5));
    auto const busy = metaBuffer(APP);
    auto const timeless = metaBuffer(APP + 1);
    auto* pHeld = busy->tryReadLock("application");
    IAppCallback::Result result;
    result.outputAppMetas = {busy, timeless};
    zsl->onFrameUpdated(5, result);
    busy->unlock("application", pHeld);
    EXPECT_EQ(1U, logged("[onFrameUpdated] cannot lock metadata"));
    EXPECT_EQ(
        1U, logged("(0x100000025:meta:100000025) can not find ZEB_SENSOR_TIMESTAMP tag(0xe0010)"));
    leavesPending = true;
}

}  // namespace
}  // namespace zebcam::test
