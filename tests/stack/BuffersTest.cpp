#include <thread>

#include "processor/ZslFixture.h"

namespace zebcam::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class MetaLockTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_THAT(MetaStreamBuffer::outstandingLocks(), IsEmpty()); }
    void TearDown() override {
        EXPECT_THAT(MetaStreamBuffer::outstandingLocks(), IsEmpty());
        MetaStreamBuffer::forgetLockErrors();
    }

    android::sp<MetaStreamBuffer> buffer = metaBuffer(5);
};

TEST_F(MetaLockTest, ManyReadersOrOneWriter) {
    for (auto const& [firstWrites, secondWrites] :
         {std::pair(false, false), {false, true}, {true, false}, {true, true}}) {
        for (char const* secondUser : {"one", "two"}) {
            SCOPED_TRACE(testing::Message() << firstWrites << secondWrites << secondUser);
            auto* const first =
                firstWrites ? buffer->tryWriteLock("one") : buffer->tryReadLock("one");
            ASSERT_NE(first, nullptr);
            auto* const second =
                secondWrites ? buffer->tryWriteLock(secondUser) : buffer->tryReadLock(secondUser);
            EXPECT_EQ(second != nullptr, !firstWrites && !secondWrites);
            buffer->unlock(secondUser, second);
            EXPECT_THAT(MetaStreamBuffer::outstandingLocks(), ElementsAre("meta:5: one"));
            std::thread([&] { buffer->unlock("one", first); }).join();
            EXPECT_THAT(MetaStreamBuffer::outstandingLocks(), IsEmpty());
        }
    }
}

TEST_F(MetaLockTest, TellsOfEveryMisuse) {
    IMetadata foreign;
    auto* const metadata = buffer->tryReadLock("a");
    buffer->unlock("b", metadata);
    buffer->unlock("a", &foreign);
    buffer->unlock("a", metadata);
    buffer->unlock("a", metadata);
    EXPECT_THAT(
        MetaStreamBuffer::outstandingLocks(),
        ElementsAre("meta:5: a (not held)", "meta:5: a (not held)", "meta:5: b (not held)"));
    MetaStreamBuffer::forgetLockErrors();

    buffer->tryWriteLock("w");
    buffer.clear();
    EXPECT_THAT(MetaStreamBuffer::outstandingLocks(), ElementsAre("meta:5: w (buffer is gone)"));
    MetaStreamBuffer::forgetLockErrors();
}

TEST(UsersManagerTest, AUserIsReleasedOnce) {
    android::sp<NSCam::v3::Utils::UsersManager> const users =
        new NSCam::v3::Utils::UsersManager(5, nullptr);
    std::vector<size_t> const ids{users->enqueUser("one"), users->enqueUser("two")};
    EXPECT_TRUE(users->markReleased(ids[1]));
    EXPECT_FALSE(users->markReleased(ids[1]));
    EXPECT_FALSE(users->markReleased(ids.size())) << "an id that was never given";
    EXPECT_EQ(users->pendingUsers(), 1U);
    EXPECT_EQ(users->getStreamName(), "");
}

TEST(FrameBuilderTest, ReplacesInPlaceAndListsInTheOrderOfTheFirstSet) {
    FrameBuilder builder(7, FRAME_TYPE_SUB);
    auto const three = metaBuffer(3);
    auto const nineAgain = metaBuffer(9);
    builder.setHalMetaStreamBuffer(9, metaBuffer(9));
    builder.setHalMetaStreamBuffer(3, three);
    builder.setHalMetaStreamBuffer(9, nineAgain);
    FrameBuilder::MetaBuffers out{three};
    builder.getHalMetaStreamBuffers(out);
    EXPECT_THAT(out, ElementsAre(three, nineAgain, three)) << "appended, in order";
    builder.finish();
    out.clear();
    builder.getHalMetaStreamBuffers(out);
    EXPECT_THAT(out, IsEmpty());
}

}  // namespace
}  // namespace zebcam::test
