#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <host/FrameBuilder.h>
#include <pipeline/IFrameBuilder.h>

#include <atomic>
#include <thread>
#include <vector>

#include "stack/StackFixture.h"

namespace zebcam::test {
namespace {

using host::FrameBuilder;
using host::MetaStreamBuffer;
using NSCam::v3::Utils::HalMetaStreamBuffer;
using NSCam::v3::Utils::UsersManager;
using testing::ElementsAre;
using testing::IsEmpty;

class MetaLockTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_THAT(MetaStreamBuffer::outstandingLocks(), IsEmpty()); }
    void TearDown() override {
        EXPECT_THAT(MetaStreamBuffer::outstandingLocks(), IsEmpty());
        MetaStreamBuffer::forgetLockErrors();
    }

    android::sp<MetaStreamBuffer> buffer = metaBuffer(5, 42);
};

TEST_F(MetaLockTest, ManyReadersOrOneWriter) {
    struct {
        bool firstWrites;
        bool secondWrites;
        bool secondGetsIt;
    } const CASES[] = {
        {false, false, true}, {false, true, false}, {true, false, false}, {true, true, false}};
    for (auto const& c : CASES) {
        for (char const* secondUser : {"one", "two"}) {
            SCOPED_TRACE(testing::Message() << c.firstWrites << c.secondWrites << secondUser);
            auto* const first =
                c.firstWrites ? buffer->tryWriteLock("one") : buffer->tryReadLock("one");
            ASSERT_NE(first, nullptr);
            EXPECT_EQ(valueOf(*first), 42);
            auto* const second =
                c.secondWrites ? buffer->tryWriteLock(secondUser) : buffer->tryReadLock(secondUser);
            EXPECT_EQ(second != nullptr, c.secondGetsIt);
            buffer->unlock(secondUser, second);
            EXPECT_THAT(MetaStreamBuffer::outstandingLocks(), ElementsAre("meta5: one"));
            std::thread([&] { buffer->unlock("one", first); }).join();
            EXPECT_THAT(MetaStreamBuffer::outstandingLocks(), IsEmpty());
        }
    }
}

TEST_F(MetaLockTest, CanBeMadeUnobtainable) {
    buffer->setLockable(false);
    EXPECT_EQ(buffer->tryReadLock("a"), nullptr);
    EXPECT_EQ(buffer->tryWriteLock("a"), nullptr);
    buffer->setLockable(true);
    auto* const metadata = buffer->tryWriteLock("a");
    ASSERT_NE(metadata, nullptr);
    *metadata = metadataOf(7);
    buffer->unlock("a", metadata);
    EXPECT_EQ(valueOf(buffer->snapshot()), 7);
}

TEST_F(MetaLockTest, TellsOfEveryMisuse) {
    IMetadata foreign;
    auto* const metadata = buffer->tryReadLock("a");
    buffer->unlock("b", metadata);
    buffer->unlock("a", &foreign);
    buffer->unlock("a", metadata);
    buffer->unlock("a", metadata);
    EXPECT_THAT(MetaStreamBuffer::outstandingLocks(),
                ElementsAre("meta5: a (not held)", "meta5: a (not held)", "meta5: b (not held)"));
    MetaStreamBuffer::forgetLockErrors();

    buffer->tryWriteLock("w");
    buffer.clear();
    EXPECT_THAT(MetaStreamBuffer::outstandingLocks(), ElementsAre("meta5: w (buffer is gone)"));
    MetaStreamBuffer::forgetLockErrors();
}

TEST_F(MetaLockTest, AWriterIsAloneAmongThreads) {
    constexpr int THREADS = 4;
    constexpr int ROUNDS = 2000;
    std::atomic<int> readers{0};
    std::atomic<int> violations{0};
    int32_t writes = 0;  // guarded by the write lock
    std::vector<std::thread> threads;
    for (int t = 0; t < THREADS; ++t) {
        threads.emplace_back([&, t] {
            for (int done = 0; done < ROUNDS;) {
                bool const isWriter = (done + t) % 3 == 0;
                auto* const metadata =
                    isWriter ? buffer->tryWriteLock("writer") : buffer->tryReadLock("reader");
                if (metadata == nullptr) {
                    std::this_thread::yield();
                    continue;
                }
                ++done;
                if (isWriter) {
                    violations += readers != 0;
                    *metadata = metadataOf(++writes);
                } else {
                    ++readers;
                    violations += valueOf(*metadata) != (writes == 0 ? 42 : writes);
                    --readers;
                }
                buffer->unlock(isWriter ? "writer" : "reader", metadata);
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(violations, 0);
    EXPECT_EQ(valueOf(buffer->snapshot()), writes);
}

TEST(HalMetaAllocatorTest, MakesBuffersOfTheStreamOnly) {
    android::sp<host::MetaStreamInfo> const info = new host::MetaStreamInfo(9, "nine");
    HalMetaStreamBuffer::Allocator const allocator(info);
    auto const empty = allocator();
    auto const filled = allocator(metadataOf(3));
    ASSERT_NE(empty, nullptr);
    ASSERT_NE(filled, nullptr);
    EXPECT_EQ(filled->getStreamInfo(), info.get());
    auto& host = dynamic_cast<MetaStreamBuffer&>(*filled);
    EXPECT_EQ(valueOf(host.snapshot()), 3);
    EXPECT_TRUE(dynamic_cast<MetaStreamBuffer&>(*empty).snapshot().isEmpty());
    EXPECT_FALSE(host.isFinished());
    filled->finishUserSetup();
    EXPECT_TRUE(host.isFinished());
    EXPECT_EQ(HalMetaStreamBuffer::Allocator(nullptr)(metadataOf(3)), nullptr);
}

TEST(ImageBufferTest, ResetForgetsTheUsersAndKeepsTheContent) {
    auto const image = imageBuffer(1);
    android::sp<UsersManager> const users = new UsersManager(1, "image1");
    size_t const a = users->enqueUser("a");
    size_t const b = users->enqueUser("b");
    EXPECT_TRUE(users->markReleased(a));
    EXPECT_FALSE(users->markReleased(a));
    EXPECT_FALSE(users->markReleased(b + 1));
    EXPECT_EQ(users->pendingUsers(), 1U);

    image->setError(true);
    image->setUsersManager(users);
    EXPECT_EQ(image->usersManager(), users);
    image->reset();
    EXPECT_EQ(image->usersManager(), nullptr);
    EXPECT_EQ(image->resetCount(), 1U);
    EXPECT_TRUE(image->hasError());
}

TEST(FrameBuilderTest, ReplacesInPlaceAndListsInTheOrderOfTheFirstSet) {
    using Setter =
        void (FrameBuilder::*)(int64_t, android::sp<NSCam::v3::IMetaStreamBuffer> const&);
    using Getter = void (FrameBuilder::*)(FrameBuilder::MetaBuffers&) const;
    struct {
        Setter set;
        Getter get;
    } const CASES[] = {
        {&FrameBuilder::setAppMetaStreamBuffer, &FrameBuilder::getAppMetaStreamBuffers},
        {&FrameBuilder::setHalMetaStreamBuffer, &FrameBuilder::getHalMetaStreamBuffers}};
    for (auto const& c : CASES) {
        FrameBuilder builder(7, NSCam::v3::pipeline::NSPipelineContext::FRAME_TYPE_SUB);
        auto const nine = metaBuffer(9);
        auto const three = metaBuffer(3);
        auto const nineAgain = metaBuffer(9);
        (builder.*c.set)(9, nine);
        (builder.*c.set)(3, three);
        (builder.*c.set)(9, nineAgain);
        FrameBuilder::MetaBuffers out{three};
        (builder.*c.get)(out);
        EXPECT_THAT(out, ElementsAre(three, nineAgain, three)) << "appended, in order";
        (builder.*c.set)(9, nullptr);
        builder.finish();
        out.clear();
        (builder.*c.get)(out);
        EXPECT_THAT(out, IsEmpty());
    }
}

}  // namespace
}  // namespace zebcam::test
