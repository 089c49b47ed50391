#include <cerrno>

#include "ZslFixture.h"

namespace zebcam::test {
namespace {

TEST_F(ZslTest, PendingCapturesAreServedInOrder) {
    submit(capture(5));
    submit(capture(6));
    EXPECT_EQ(1U, logged("[submitZslRequest] [requestNo:6]: fail. (selected:#0, preselect:#0, "
                         "remaining:#1) => add to pending [fakeShutter:100000002000; "
                         "pendingReq(#2):R5 R6 ]"));
    EXPECT_EQ(-ENOSYS, zsl->configure(config()));
    EXPECT_EQ(1U, logged("[configure] 2 ZSL pending requests not finish yet, 1st-reqNo: 5"));
    push({11, 12});
    EXPECT_EQ("[5.0=F11][6.0=F12]", retry());
    EXPECT_EQ(1U, logged("[processZslPendingRequest] [requestNo:99]: success. (reqNo:6, "
                         "selected:#1, tuning:#0) => remove from pending (#0)"));
    log.clear();
    EXPECT_EQ("", retry());
    EXPECT_TRUE(log.empty()) << log.front().message;
}

TEST_F(ZslTest, PartlyServedCaptureKeepsTheRestPendingAndGoesBeforeANewOne) {
    push({11});
    EXPECT_EQ("[5.0=F11]", submit(capture(5, 3)));
    push({12});
    EXPECT_EQ("[5.1=F12]", retry());
    EXPECT_EQ(1U, logged("[requestNo:99]: fail. (reqNo:5, selected:#1, preselect:#0, "
                         "remaining:#1) => keep pending (#1)"));
    push({13, 14});
    EXPECT_EQ("[5.2=F13][6.0=F14]", submit(capture(6)));
    EXPECT_EQ(1U, callback->results.size());
}

TEST_F(ZslTest, DummyFramesAreLeftOut) {
    push({11, 12});
    auto mixed = captureOf(5, {FRAME_TYPE_MAIN, FRAME_TYPE_PREDUMMY, FRAME_TYPE_SUB,
                               FRAME_TYPE_POSTDUMMY, FRAME_TYPE_PRESUB, 5});
    auto const selector = answering({});
    mixed.by(selector);
    submit(mixed);
    EXPECT_EQ(1U, logged("[prepareFrames] skip (1,PREDUMMY)"));
    EXPECT_EQ(1U, logged("[prepareFrames] skip (3,POSTDUMMY)"));
    ASSERT_EQ(4U, selector->seen.at(0).frameInfos.size());
    EXPECT_EQ(3U, selector->seen.at(0).frameInfos.rbegin()->first);
    EXPECT_EQ("[5.0=none 5.2=none 5.4=none 5.5=none]", flush());

    EXPECT_EQ("[]", submit(captureOf(6, {FRAME_TYPE_PREDUMMY})));
    EXPECT_EQ("[]", submit(capture(7, 0)));
    EXPECT_EQ(2U, logged("selectOut: no need to trigger selector to select, pre-select only"));
}

}  // namespace
}  // namespace zebcam::test
