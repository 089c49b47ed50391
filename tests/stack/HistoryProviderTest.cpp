#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <host/FrameBuilder.h>
#include <host/HistoryProvider.h>
#include <platform/VirtualClock.h>

#include <functional>
#include <list>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "stack/StackFixture.h"

namespace zebcam::test {
namespace {

using host::BufferHolder;
using host::FrameBuilder;
using host::HistoryProvider;
using testing::ElementsAre;
using testing::IsEmpty;

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
        Lines printer;
        provider.dump(printer);
        return printer.lines;
    }

    uint64_t countOf(BufferHolder holder) const {
        auto const totals = provider.ledger()->totals();
        std::map<BufferHolder, uint64_t> const counts = {
            {BufferHolder::Processor, totals.withProcessor},
            {BufferHolder::FrameBuilder, totals.withFrameBuilder},
            {BufferHolder::Returned, totals.returned},
            {BufferHolder::Released, totals.released},
            {BufferHolder::Consumed, totals.consumed},
            {BufferHolder::Lost, totals.lost}};
        return counts.at(holder);
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
        int images;
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
        {"one built, one trimmed", 2,
         [&](Set& s) {
             trimFirst(s);
             toBuilder(s, 0);
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
        {"all trimmed, given back", 1,
         [&](Set& s) {
             trimFirst(s);
             giveBack(s, true);
         },
         Returned, Returned},
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
            uint64_t const before = countOf(c.end);
            uint64_t const beforeBuilt = countOf(c.whileBuilt);
            c.deed(set);
            set = {};
            EXPECT_EQ(countOf(c.whileBuilt), beforeBuilt + 1);
            builder.finish();
            EXPECT_EQ(countOf(c.end), before + 1);
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
        EXPECT_FALSE(provider.ledger()->totals().balances());
        clock.advance(20'000'000);
        EXPECT_EQ(provider.ledger()->longestHeldNs(), 20'000'000);
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
    EXPECT_EQ(lines[0].sinceNs, 5'000'000);
    EXPECT_EQ(lines[0].untilNs, 25'000'000);
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
    provider.arrive(frame(1, 3));
    auto held = takeAll();
    auto clone = provider.cloneBufferSet(held.front());
    EXPECT_NE(clone.halImage[0], held.front().halImage[0]);
    EXPECT_EQ(clone.halImage[0]->getStreamInfo(), held.front().halImage[0]->getStreamInfo());
    EXPECT_EQ(clone.requestNo, 1001U);
    auto& cloned = dynamic_cast<host::MetaStreamBuffer&>(*clone.halMeta.at(0));
    auto* const metadata = cloned.tryWriteLock("test");
    ASSERT_NE(metadata, nullptr);
    *metadata = metadataOf(99);
    cloned.unlock("test", metadata);

    trimFirst(held.front());
    giveBack(held.front(), true);
    giveBack(clone, true);
    auto const again = takeAll();
    ASSERT_EQ(again.size(), 1U);
    EXPECT_EQ(again.front().halImage.size(), 2U);
    EXPECT_EQ(valueOf(dynamic_cast<host::MetaStreamBuffer&>(*again.front().halMeta[0]).snapshot()),
              1)
        << "the clone shares metadata with the original";
}

TEST_F(HistoryProviderTest, RefusesWhatItDidNotHandOut) {
    provider.arrive(frame(1));
    auto held = takeAll();
    giveBack(held.front(), true);
    giveBack(held.front(), true);
    EXPECT_EQ(provider.strayReturns(), 1U) << "returned twice";

    HistoryProvider other(3);
    other.arrive(frame(9));
    auto foreign = other.getHistoryBufferSets().value();
    HistoryProvider::ReturnedBufferSet returned{&foreign.front(), true};
    provider.returnBufferSet(returned);
    EXPECT_EQ(provider.strayReturns(), 2U);
    EXPECT_THAT(provider.frameNumbers(), ElementsAre(1));
    other.returnBufferSet(returned);
    EXPECT_THAT(other.frameNumbers(), ElementsAre(9));
}

TEST_F(HistoryProviderTest, FramesAreInFlightUntilTheyArriveOrAreCancelled) {
    auto const inFlight = [this] {
        std::vector<uint32_t> numbers;
        for (auto const& info : provider.getInFlightInfos()) {
            numbers.push_back(info.frameNo);
        }
        return numbers;
    };
    for (uint32_t const frameNo : {5U, 6U, 7U, 6U}) {
        provider.announce(frameNo);
    }
    EXPECT_THAT(inFlight(), ElementsAre(5, 6, 7));
    provider.cancel(5);
    provider.arrive(frame(6));
    EXPECT_THAT(inFlight(), ElementsAre(7));

    provider.setHasHistory(false);
    EXPECT_FALSE(provider.getHistoryBufferSets().has_value());
    provider.setHasHistory(true);
    EXPECT_EQ(takeAll().size(), 1U);
    EXPECT_TRUE(provider.getHistoryBufferSets().has_value()) << "an empty history is a history";

    provider.endSelect();
    provider.endSelect();
    EXPECT_EQ(provider.takeEndSelectCalls(), 2U);
    EXPECT_EQ(provider.takeEndSelectCalls(), 0U);
}

}  // namespace
}  // namespace zebcam::test
