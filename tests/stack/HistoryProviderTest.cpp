#include <host/ImageStreamBuffer.h>

#include <list>
#include <utility>

#include "processor/ZslFixture.h"

namespace zebcam::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// With images of the streams 1, 2, ...
HistoryBufferSet frame(uint32_t frameNo, size_t images = 2) {
    ExposedFrame exposed(frameNo);
    exposed.images = {1, 2, 3};
    exposed.images.erase(std::next(exposed.images.begin(), static_cast<std::ptrdiff_t>(images)),
                         exposed.images.end());
    return exposed.set();
}

class HistoryProviderTest : public testing::Test {
protected:
    std::list<HistoryBufferSet> takeAll() { return provider.getHistoryBufferSets().value(); }

    void giveBack(HistoryBufferSet& set, bool isUnused) {
        HistoryProvider::ReturnedBufferSet returned{&set, isUnused};
        provider.returnBufferSet(returned);
        EXPECT_THAT(set.halImage, IsEmpty()) << "the caller keeps an empty shell";
        EXPECT_THAT(set.halMeta, IsEmpty());
    }

    std::vector<std::string> dumped() const {
        LinePrinter printer;
        provider.dump(printer);
        return printer.lines;
    }

    uint64_t countOf(BufferHolder holder) const {
        auto const t = provider.ledger()->totals();
        using enum BufferHolder;
        return holder == Processor      ? t.withProcessor
               : holder == FrameBuilder ? t.withFrameBuilder
               : holder == Returned     ? t.returned
               : holder == Released     ? t.released
               : holder == Consumed     ? t.consumed
                                        : t.lost;
    }

    platform::VirtualClock clock;
    HistoryProvider provider{3, "history"};
    FrameBuilder builder{1, 0};
};

/// Trims an image away, as it is done with streams that nobody asked for.
void trimFirst(HistoryBufferSet& set) {
    set.halImage.front()->releaseBuffer();
    set.halImage.erase(set.halImage.begin());
}

TEST_F(HistoryProviderTest, TheLedgerKnowsHowEveryHandOutEnded) {
    auto const toBuilder = [this](HistoryBufferSet& set, size_t image) {
        builder.setHalImageStreamBuffer(static_cast<int64_t>(image), set.halImage.at(image));
    };
    using Set = HistoryBufferSet;
    using enum BufferHolder;
    struct {
        char const* what;
        size_t images;
        std::function<void(Set&)> deed;
        BufferHolder whileBuilt;  ///< holder before the frame builder is done
        BufferHolder end;
    } const CASES[] = {
        {"given back", 2, [&](Set& s) { giveBack(s, true); }, Returned, Returned},
        {"released", 2, [&](Set& s) { giveBack(s, false); }, Released, Released},
        {"built whole", 2,
         [&](Set& s) {
             toBuilder(s, 0);
             toBuilder(s, 1);
             toBuilder(s, 1);  // again: counts once
         },
         FrameBuilder, Consumed},
        {"one built twice, one forgotten", 2,
         [&](Set& s) {
             toBuilder(s, 0);
             toBuilder(s, 0);
         },
         FrameBuilder, Lost},
        {"forgotten", 2, [](Set&) {}, Lost, Lost},
        {"all trimmed, metadata read", 2,
         [](Set& s) {
             trimFirst(s);
             trimFirst(s);
         },
         Consumed, Consumed},
        {"one trimmed twice, one forgotten", 2,
         [](Set& s) {
             s.halImage.front()->releaseBuffer();
             trimFirst(s);
         },
         Lost, Lost},
        {"without images", 0, [](Set&) {}, Consumed, Consumed},
    };
    for (bool const isClone : {false, true}) {
        for (auto const& c : CASES) {
            SCOPED_TRACE(testing::Message() << c.what << (isClone ? ", clone" : ""));
            HistoryBufferSet const original = frame(8, c.images);
            provider.arrive(frame(8, c.images));
            HistoryBufferSet set =
                isClone ? provider.cloneBufferSet(original) : std::move(takeAll().front());
            EXPECT_EQ(countOf(BufferHolder::Processor), 1U);
            // What is dropped of a clone costs the history nothing.
            auto const asClone = [isClone](BufferHolder holder) {
                return isClone && holder == Lost ? Released : holder;
            };
            uint64_t const before = countOf(asClone(c.end));
            uint64_t const beforeBuilt = countOf(asClone(c.whileBuilt));
            c.deed(set);
            set = {};
            EXPECT_EQ(countOf(asClone(c.whileBuilt)), beforeBuilt + 1);
            builder.finish();
            EXPECT_EQ(countOf(asClone(c.end)), before + 1);
            EXPECT_EQ(countOf(BufferHolder::FrameBuilder), 0U);
            takeAll();  // lost, if it is still here: each case begins with an empty history
        }
    }
    EXPECT_EQ(provider.strayReturns(), 0U);
}

TEST_F(HistoryProviderTest, AForgottenSetStaysInTheLedgerByName) {
    provider.setCurrentRequest(17);
    provider.announce(5);
    provider.arrive(frame(4));
    clock.advance(5'000'000);
    {
        auto sets = takeAll();
        auto clone = provider.cloneBufferSet(sets.front());
        clock.advance(20'000'000);
        EXPECT_THAT(dumped(), ElementsAre("history: capacity 3, dropped 0", "  here: none",
                                          "  in flight: F5", "  out: F4 for R17 since 5 ms",
                                          "  out: F4 (clone) for R17 since 5 ms"));
        giveBack(clone, true);
    }
    clock.advance(100'000'000);
    auto const lines = provider.ledger()->unsettled();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].frameNo, 4U);
    EXPECT_EQ(lines[0].forRequestNo, 17U);
    EXPECT_EQ(lines[0].holder, BufferHolder::Lost);
    EXPECT_EQ(provider.ledger()->longestHeldNs(), 20'000'000);
    EXPECT_FALSE(provider.ledger()->totals().balances());
    EXPECT_EQ(dumped().back(), "  lost: F4 for R17 since 5 ms");
}

TEST_F(HistoryProviderTest, DropsTheOldestThatNobodyHolds) {
    for (uint32_t frameNo = 1; frameNo <= 4; ++frameNo) {
        provider.arrive(frame(frameNo));
    }
    EXPECT_THAT(provider.frameNumbers(), ElementsAre(2, 3, 4));
    EXPECT_EQ(provider.droppedFrames(), 1U);

    auto held = takeAll();
    EXPECT_THAT(provider.frameNumbers(), IsEmpty());
    provider.arrive(frame(5));
    provider.arrive(frame(6));
    EXPECT_EQ(provider.droppedFrames(), 1U) << "a set that is out was dropped";
    EXPECT_EQ(held.front().halImage.size(), 2U);

    giveBack(held.back(), true);
    EXPECT_THAT(provider.frameNumbers(), ElementsAre(4, 5, 6));
    giveBack(held.front(), true);
    EXPECT_THAT(provider.frameNumbers(), ElementsAre(4, 5, 6)) << "no room for the older one";
    EXPECT_EQ(provider.droppedFrames(), 2U);
    giveBack(*std::next(held.begin()), false);
    EXPECT_TRUE(provider.ledger()->totals().balances());
}

TEST_F(HistoryProviderTest, ATrimmedSetComesBackAsItIsAndACloneNever) {
    HistoryBufferSet arriving = frame(1, 3);
    std::vector<std::weak_ptr<host::ImageContent const>> contents;
    for (auto const& image : arriving.halImage) {
        auto const content = std::make_shared<host::ImageContent const>();
        static_cast<host::ImageStreamBuffer&>(*image).setContent(content);
        contents.push_back(content);
    }
    provider.arrive(std::move(arriving));
    auto held = takeAll();
    auto clone = provider.cloneBufferSet(held.front());
    EXPECT_NE(clone.halImage[0], held.front().halImage[0]);
    auto& cloned = hostBuffer(clone.halMeta.at(0));
    auto* const metadata = cloned.tryWriteLock("test");
    ASSERT_NE(metadata, nullptr);
    metadata->clear();
    cloned.unlock("test", metadata);

    auto const trimmed = held.front().halImage.front();
    trimFirst(held.front());
    EXPECT_EQ(contents[0].use_count(), 1) << "the clone's";
    giveBack(held.front(), true);
    giveBack(clone, true);
    EXPECT_TRUE(contents[0].expired());
    EXPECT_EQ(contents[1].use_count(), 1) << "the history's";
    giveBack(clone, true);
    EXPECT_EQ(provider.strayReturns(), 1U) << "returned twice";
    auto const again = takeAll();
    ASSERT_EQ(again.size(), 1U);
    EXPECT_EQ(again.front().halImage.size(), 2U);
    EXPECT_FALSE(hostBuffer(again.front().halMeta[0]).snapshot().isEmpty())
        << "the clone shares metadata with the original";
}

}  // namespace
}  // namespace zebcam::test
