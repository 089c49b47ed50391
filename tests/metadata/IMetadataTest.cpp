#include <gtest/gtest.h>
#include <metadata/IMetadata.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <limits>
#include <map>
#include <new>
#include <random>
#include <utility>
#include <vector>

#include "fuzz/Fuzz.h"

namespace {

/// What this thread asked of the heap, and after how many allocations the heap is to refuse.
struct Heap {
    size_t allocations = 0;
    size_t largest = 0;
    size_t allowed = SIZE_MAX;
};
thread_local Heap heap;

}  // namespace

// Not inlined, lest the compiler takes one half of a pair for the library's.
[[gnu::noinline]] void* operator new(size_t bytes) {
    if (heap.allocations >= heap.allowed) {
        throw std::bad_alloc();
    }
    void* const memory = std::malloc(std::max<size_t>(bytes, 1));
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    ++heap.allocations;
    heap.largest = std::max(heap.largest, bytes);
    return memory;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, size_t) noexcept {
    std::free(memory);
}
// The array forms too: a sanitizer's do not come by the ones above.
[[gnu::noinline]] void* operator new[](size_t bytes) {
    return operator new(bytes);
}
[[gnu::noinline]] void operator delete[](void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete[](void* memory, size_t) noexcept {
    std::free(memory);
}

namespace NSCam {
namespace {

using Tag = IMetadata::Tag;
using Type = IMetadata::Type;
using IEntry = IMetadata::IEntry;
using Content = std::map<Tag, std::pair<Type, std::vector<int32_t>>>;
constexpr Type2Type<int32_t> INT32;

IEntry entryOf(Tag tag, size_t items, int32_t value) {
    IEntry entry(tag);
    for (size_t i = 0; i < items; ++i) {
        entry.push_back(value, INT32);
    }
    return entry;
}

Content contentOf(IEntry const& entry) {
    std::vector<int32_t> items;
    for (size_t i = 0; i < entry.count(); ++i) {
        items.push_back(entry.itemAt(i, INT32));
    }
    return {{entry.tag(), {entry.type(), items}}};
}

Content contentOf(IMetadata const& metadata) {
    Content content;
    for (size_t i = 0; i < metadata.count(); ++i) {
        content.merge(contentOf(metadata.entryAt(i)));
    }
    return content;
}

/// The fuzzer's rules, over operations that are the same in every run.
TEST(IMetadata, AgreesWithAMapWhateverIsDoneToIt) {
    std::mt19937 random;
    std::vector<uint8_t> operations(100'000);
    std::generate(operations.begin(), operations.end(),
                  [&] { return static_cast<uint8_t>(random()); });
    EXPECT_EQ(0, LLVMFuzzerTestOneInput(operations.data(), operations.size()));
}

TEST(IMetadata, RefusesWhatItCannotDoAndStaysAsItWas) {
    IMetadata metadata;
    EXPECT_NE(metadata.remove(1), 0);
    EXPECT_NE(metadata.update(1, IEntry(1)), 0);
    EXPECT_TRUE(metadata.isEmpty());
    EXPECT_TRUE(metadata.entryAt(0).isEmpty());

    metadata.update(7, entryOf(7, 3, 2));
    for (IMetadata const& lacksIt : {metadata, IMetadata()}) {
        EXPECT_EQ(lacksIt.entryFor(8).tag(), 8U);
    }
    EXPECT_NE(metadata.update(7, metadata.entryFor(8)), 0);
    EXPECT_TRUE(metadata.entryAt(1).isEmpty());
    EXPECT_EQ(contentOf(metadata), contentOf(entryOf(7, 3, 2)));
}

TEST(IMetadata, AppendingToAViewLeavesTheContainerAlone) {
    for (size_t const items : {1U, 60U}) {
        IMetadata metadata;
        metadata.update(1, entryOf(1, items, 3));
        IEntry view = metadata.entryFor(1);
        view.push_back(4.75, Type2Type<double>());
        EXPECT_EQ(view.type(), Type::Int32) << "the first item decides";
        EXPECT_EQ(view.itemAt(items, INT32), 4);
        EXPECT_EQ(contentOf(metadata), contentOf(entryOf(1, items, 3)));
    }
}

TEST(IMetadata, IsEmptyAndUsableAfterAMove) {
    Content const content{{7, {Type::Int32, {2, 2, 2}}}, {9, {Type::Int32, {4}}}};
    IMetadata from;
    from.update(7, entryOf(7, 3, 2));
    from.update(9, entryOf(9, 1, 4));
    IMetadata to(std::move(from));
    EXPECT_EQ(contentOf(to), content);
    EXPECT_TRUE(from.isEmpty());
    from += to;
    EXPECT_EQ(contentOf(from), content);
    IMetadata& self = to;
    to = std::move(self);
    EXPECT_EQ(contentOf(to), content) << "moved onto itself";

    IEntry entry = entryOf(7, 3, 2);
    IEntry const moved(std::move(entry));
    IEntry taken = entryOf(9, 1, 4);
    taken = moved;
    IEntry& itself = taken;
    taken = std::move(itself);
    EXPECT_EQ(contentOf(taken), contentOf(entryOf(7, 3, 2)));
    EXPECT_EQ(entry.itemAt(2, INT32), 0);
    entry.push_back<uint8_t>(5, {});
    EXPECT_EQ(contentOf(entry), (Content{{7, {Type::Byte, {5}}}}));
}

template <typename To, typename From>
To convert(From item) {
    IEntry entry(1);
    entry.push_back(item, Type2Type<From>());
    return entry.itemAt(0, Type2Type<To>());
}

TEST(IMetadataEntry, ConvertsToTheNearestValue) {
    constexpr int64_t BIG = int64_t{1} << 40;
    constexpr double NOT_A_NUMBER = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ((convert<uint8_t, int32_t>(300)), 255);
    EXPECT_EQ((convert<int32_t>(-BIG)), std::numeric_limits<int32_t>::min());
    EXPECT_EQ((convert<int32_t>(-2.9)), -2);
    EXPECT_EQ((convert<int32_t>(NOT_A_NUMBER)), 0);
    EXPECT_EQ((convert<int64_t>(0x1p63F)), std::numeric_limits<int64_t>::max());
    EXPECT_EQ((convert<int64_t>(-std::numeric_limits<double>::infinity())),
              std::numeric_limits<int64_t>::min());
    EXPECT_EQ((convert<int32_t>(Rational{7, -2})), -3);
    EXPECT_EQ((convert<double>(Rational{7, 0})), 0.0);
    EXPECT_EQ((convert<Rational>(-0.375F)), (Rational{-3, 8}));
    EXPECT_EQ((convert<Rational>(1e12)), (Rational{std::numeric_limits<int32_t>::max(), 1}));
}

/// Entries of `step`, 2 x `step`, ...; every third one is large.
IMetadata makeMetadata(size_t entries, IMetadata::Tag step, int32_t value) {
    IMetadata metadata;
    for (IMetadata::Tag i = 1; i <= entries; ++i) {
        metadata.update(i * step, entryOf(i * step, i % 3 == 0 ? 50 : 1, value));
    }
    return metadata;
}

TEST(IMetadataMemory, CopyAndMergeAllocateOnceAndLookupsNever) {
    IMetadata const some = makeMetadata(100, 2, 1);
    IMetadata const more = makeMetadata(200, 1, 2);

    heap = {};
    IMetadata copy(some);
    EXPECT_EQ(heap.allocations, 1U);
    copy += more;
    EXPECT_EQ(heap.allocations, 2U);

    IMetadata full(copy);  // without spare room
    heap = {};
    full.update(10, some.entryFor(2));
    EXPECT_EQ(heap.allocations, 0U) << "a small entry takes the place of another";

    heap = {};
    int64_t sum = 0;
    for (IMetadata::Tag tag = 0; tag < 210; ++tag) {
        sum += copy.entryFor(tag).itemAt(0, INT32) + copy.entryAt(tag).itemAt(0, INT32);
    }
    EXPECT_EQ(heap.allocations, 0U);
    EXPECT_EQ(sum, 200 * 2 + 200 * 2);
}

TEST(IMetadataMemory, StaysInProportionToWhatItHolds) {
    constexpr size_t ITEMS = 1000;
    constexpr size_t LIVE_BYTES = 2 * ITEMS * sizeof(int32_t);
    IMetadata other;
    other.update(1, entryOf(1, ITEMS, 1));
    other.update(2, entryOf(2, ITEMS, 2));
    std::vector<std::function<void(IMetadata&, size_t)>> const changes{
        [&](IMetadata& metadata, size_t) { metadata += other; },
        [&](IMetadata& metadata, size_t i) {
            metadata.update(1, entryOf(1, 3, 1));
            metadata.update(1, entryOf(1, ITEMS, 1));
            metadata.remove(1 + i % 2);
            metadata.update(1 + i % 2, entryOf(1, ITEMS, 1));
        },
    };
    for (size_t change = 0; change < changes.size(); ++change) {
        IMetadata metadata = other;
        heap = {};
        for (size_t i = 0; i < 200; ++i) {
            changes[change](metadata, i);
        }
        EXPECT_LE(heap.largest, 5 * LIVE_BYTES) << "change " << change;
        EXPECT_EQ(metadata.count(), 2U);
        heap = {};
        IMetadata const compact(metadata);
        EXPECT_GE(heap.largest, LIVE_BYTES + 2 * 16)
            << "no room for what is alive, change " << change;
    }
}

TEST(IMetadataMemory, AFailedAllocationChangesNothing) {
    IMetadata const other = makeMetadata(30, 2, 5);
    IEntry const large = entryOf(9, 60, 6);
    std::vector<std::function<void(IMetadata&)>> const changes{
        [&](IMetadata& metadata) { metadata += other; },
        [&](IMetadata& metadata) { metadata.update(9, large); },
        [&](IMetadata& metadata) { metadata.update(10, metadata.entryFor(3)); },
        [&](IMetadata& metadata) {
            IEntry entry = metadata.entryFor(3);
            entry.push_back(1, INT32);
            metadata.update(3, entry);
        },
    };
    IMetadata full = makeMetadata(10, 1, 4);
    full = IMetadata(full);  // a copy has no spare room
    Content const before = contentOf(full);
    for (size_t change = 0; change < changes.size(); ++change) {
        size_t failures = 0;
        for (bool done = false; !done;) {
            IMetadata metadata(full);
            heap = {.allowed = failures};
            try {
                changes[change](metadata);
                done = true;
            } catch (std::bad_alloc const&) {
                ++failures;
            }
            heap = {};
            EXPECT_EQ(contentOf(metadata) == before, !done) << "change " << change;
            ASSERT_LT(failures, 10U);
        }
        EXPECT_GE(failures, 1U) << "change " << change;
    }
}

}  // namespace
}  // namespace NSCam
